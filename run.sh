#!/usr/bin/env bash
# Builds the bus and shows this machine through it, on a bare Debian 12 too: it installs what is
# missing. The object tree, a call with its progress, then live changes: on a terminal until Ctrl-C,
# elsewhere for ten seconds. The installed copy lies in build/run, full logs in build/logs.
# Usage: ./run.sh [znctl arguments]
#   with arguments: only builds what has changed and runs znctl with them, on the same settings
# Environment: ZN_JOBS (parallel jobs, default: cores)
set -euo pipefail
cd "$(dirname "$0")"
if [ "${1:-}" = -h ] || [ "${1:-}" = --help ]; then
  sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"
  exit 0
fi
# shellcheck source=scripts/steps.sh
source scripts/steps.sh

steps_total=3
# With arguments the output is znctl's alone.
exec 3>&1
if [ $# -gt 0 ]; then exec >&2; fi
Step run-install scripts/install-deps.sh build
Step run-build Build product
Step run-copy cmake --install build/product --prefix "$PWD/build/run"
exec >&3 3>&-

# A copy of the installed sample, kept from run to run: what `settings set` changes stays.
export ZN_SETTINGS=$PWD/build/run/settings.toml
if ! grep -qsF "\"$PWD/build/run/" "$ZN_SETTINGS"; then
  cp build/run/share/znmira/settings.toml "$ZN_SETTINGS"
fi
znctl=build/run/bin/znctl
if [ $# -gt 0 ]; then exec "$znctl" "$@"; fi

Show() {  # Show TITLE ARGUMENTS...: one znctl command, as a person would type it
  local title=$1
  shift
  printf '\n== %s\n$ znctl' "$title"
  printf ' %q' "$@"
  printf '\n'
  local status=0
  "$znctl" "$@" || status=$?
  # 130: ended by Ctrl-C, which is how a watch is meant to end
  if [ "$status" -ne 0 ] && [ "$status" -ne 130 ]; then
    echo "run.sh: FAILED: znctl ended with $status"
    exit 1
  fi
}

Show "this machine as objects" --local tree
# A call that takes a while: the SHA-256 of a file on one of the file systems just shown. The file is
# a hole of half a gigabyte, which costs no space.
sample=$PWD/build/run/sample.bin
truncate -s 512M "$sample"
mount_point=$(stat -c %m "$sample")
files=7b1c5f52-0d3e-4a5b-9c86-2e8f4b7a61d3  # the provider's interface for files
if "$znctl" --local get "$mount_point" Device >/dev/null 2>&1; then
  Show "a call with its progress: the checksum of a file on $mount_point" \
    --local call "$mount_point" "{$files}" 1 1 "Path=$sample" --async
else
  # The build folder lies on something the provider does not show (a container's layers).
  Show "a call with its progress: every provider looks again" --local refresh
fi

if [ -t 0 ] && [ -t 1 ]; then
  Show "live changes, until Ctrl-C" --local watch
else
  Show "ten seconds of live changes" --local watch --for 10
fi
printf '\nrun.sh: done. More: ./run.sh --local types, ./run.sh --local show <object>, ./run.sh --local --help\n'
