#!/usr/bin/env bash
# Builds the bus and shows this machine through it, on a bare Debian 12 too: it installs what is
# missing. A service on a free port of this machine, and a console logged on to it over TCP: the
# object tree, a query, a call with its progress, an alert that a real event raises, then live
# changes: on a terminal until Ctrl-C, elsewhere for ten seconds. The service ends with the script.
# The installed copy lies in build/run, full logs in build/logs.
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

# A copy of the installed sample, kept from run to run: what `settings set` changes stays. Nobody
# outside this machine is served.
export ZN_SETTINGS=$PWD/build/run/settings.toml
if ! grep -qsF "\"$PWD/build/run/" "$ZN_SETTINGS" || ! grep -qs ^BindAddress "$ZN_SETTINGS"; then
  sed '/^InstallDir/a BindAddress = "127.0.0.1"' build/run/share/znmira/settings.toml >"$ZN_SETTINGS"
fi
znctl=build/run/bin/znctl
if [ $# -gt 0 ]; then exec "$znctl" "$@"; fi

service_log=$logs/run-znsvc.log
service=
follower=
mounted=
CleanUp() {
  if [ -n "$mounted" ]; then umount "$mounted" || true; fi
  if [ -n "$follower" ]; then kill "$follower" 2>/dev/null || true; fi
  if [ -n "$service" ]; then
    kill "$service" 2>/dev/null || true
    wait "$service" || true
  fi
}
trap CleanUp EXIT

Fail() {
  printf 'run.sh: FAILED: %s; log of the service: %s\n' "$1" "$PWD/$service_log"
  exit 1
}

Title() { printf '\n== %s\n' "$1"; }

Show() {  # Show ARGUMENTS...: one znctl command, as a person would type it
  local word
  printf '$ znctl -H %s' "$place"
  for word in "$@"; do
    if [[ $word == *[!a-zA-Z0-9_./:=-]* ]]; then word="'$word'"; fi
    printf ' %s' "$word"
  done
  printf '\n'
  local status=0
  "$znctl" -H "$place" "$@" || status=$?
  # 130: ended by Ctrl-C, which is how a watch is meant to end
  if [ "$status" -ne 0 ] && [ "$status" -ne 130 ]; then Fail "znctl ended with $status"; fi
}

# Waits until COMMAND succeeds, for at most so many tenths of a second.
Await() {  # Await TENTHS COMMAND...
  local left=$1
  shift
  until "$@"; do
    left=$((left - 1))
    if [ "$left" -le 0 ]; then return 1; fi
    sleep 0.1
  done
}

Title "a service that shows this machine, on a free port"
printf '$ znsvc --foreground --port 0 --settings %s\n' "$ZN_SETTINGS"
: >"$service_log"  # what an earlier run said is not taken for this one's
# A session of its own: Ctrl-C is for the console.
setsid build/run/bin/znsvc --foreground --port 0 >"$service_log" 2>&1 </dev/null &
service=$!
Await 300 grep -q ', port' "$service_log" || Fail "the service does not listen"
cat "$service_log"
place=127.0.0.1:$(sed -n 's/.*, port \([0-9]*\).*/\1/p' "$service_log")

Title "this machine as objects, seen over TCP"
Show tree

# The build folder may lie on something the provider does not show (a container's layers).
sample=$PWD/build/run/sample.bin
mount_point=$(stat -c %m "$PWD/build/run")
Title "found by value"
if "$znctl" -H "$place" get "$mount_point" Device >/dev/null 2>&1; then
  Show query "SELECT FROM HostInv_FileSystem WHERE MountPoint EQ \"$mount_point\""
  Title "a call with its progress: the checksum of a file on $mount_point"
  # The file is a hole of half a gigabyte, which costs no space.
  truncate -s 512M "$sample"
  Show call "$mount_point" "{7b1c5f52-0d3e-4a5b-9c86-2e8f4b7a61d3}" 1 1 "Path=$sample" --async
else
  Show query 'SELECT FROM HostInv_Interface WHERE Name EQ lo'
  Title "a call with its progress: every provider looks again"
  Show refresh
fi

# A small file system in a file, filled to its end: where this user may mount one.
image=$PWD/build/run/small.img
folder=$PWD/build/run/small
MountSmall() {
  mkdir -p "$folder"
  truncate -s 16M "$image"
  /sbin/mke2fs -q -F -t ext2 -m 0 "$image" && mount -o loop "$image" "$folder"
}
Title "an alert raised by a real event: a file system fills up"
if MountSmall >"$logs/run-mount.log" 2>&1; then
  mounted=$folder
  Await 100 "$znctl" -H "$place" get "$folder" Device >/dev/null 2>&1 || Fail "the mount is not seen"
  (
    sleep 2
    dd if=/dev/zero of="$folder/ballast" bs=1M >/dev/null 2>&1 || true
  ) &
  follower=$!
  Show alerts --follow --count 1 --for 30
  wait "$follower"
  follower=
  Await 50 umount "$folder" || Fail "$folder cannot be unmounted"  # the provider may just look at it
  mounted=
else
  echo "(this user may mount nothing here: $logs/run-mount.log; the stop below raises one too)"
fi

if [ -t 0 ] && [ -t 1 ]; then
  Title "live changes, until Ctrl-C"
  Show watch
else
  Title "ten seconds of live changes"
  Show watch --for 10
fi

Title "the service stops, and tells its consoles"
printf '$ kill %s\n' "$service"
(
  sleep 2
  kill "$service"
) &
Show alerts --follow event.alert.keld.server --count 1 --for 30
wait "$service" || Fail "the service ended with $?"
service=
tail -n +2 "$service_log"
printf '\nrun.sh: done. More: ./run.sh --local types, ./run.sh --local show <object>, ./run.sh --help\n'
