#!/usr/bin/env bash
# Owns the list of Debian 12 packages that building, testing and the daily tools need, and installs
# the missing ones with apt-get. Nothing else in the project installs anything. With everything in
# place it asks dpkg once and ends without root.
# Usage: scripts/install-deps.sh [build|test]     (build: what run.sh needs; test: all, the default)
set -euo pipefail

build_packages=(
  # compiler and build tools
  g++ cmake ninja-build ccache pkg-config
  # the library: settings file, formalization documents
  libtomlplusplus-dev libxerces-c-dev
  # checksums, devices, mounts and network interfaces of the inventory provider
  libssl-dev libudev-dev libmount-dev libnl-route-3-dev
  # logons, and the notices to systemd of the service
  libpam0g-dev libsystemd-dev
  # the console
  libcli11-dev libfmt-dev nlohmann-json3-dev
)
test_packages=(
  libgtest-dev libgmock-dev libbenchmark-dev librapidcheck-dev
  # fuzz targets (libFuzzer and its sanitizer runtimes), lock analysis, formatting, static analysis
  clang libclang-rt-14-dev llvm clang-format clang-tidy
  # the compile-only check of the portable half
  g++-mingw-w64-i686-posix
  # the live test adds an interface in a network namespace of its own
  iproute2
  # logons by recorded passwords, the check of the unit file
  libpam-wrapper systemd
)

case "${1:-test}" in
  build) wanted=("${build_packages[@]}") ;;
  test) wanted=("${build_packages[@]}" "${test_packages[@]}") ;;
  *) echo "usage: $0 [build|test]" >&2; exit 2 ;;
esac

installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' | sed -n 's/^installed //p')
missing=()
for package in "${wanted[@]}"; do
  grep -qxF -- "$package" <<<"$installed" || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "all ${#wanted[@]} packages are installed"
  exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "missing packages: ${missing[*]}" >&2
    echo "run this as root, or install sudo, or install them with apt-get" >&2
    exit 1
  fi
  as_root=(sudo)
fi
echo "installing: ${missing[*]}"
"${as_root[@]}" apt-get update
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y --no-install-recommends "${missing[@]}"
