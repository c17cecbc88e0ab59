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
if [ $# -gt 0 ]; then exec 3>&1 >/dev/null; fi
Step run-install scripts/install-deps.sh build
Step run-build Build product
Step run-copy cmake --install build/product --prefix "$PWD/build/run"
if [ $# -gt 0 ]; then exec >&3 3>&-; fi

export ZN_SETTINGS=$PWD/build/run/share/znmira/settings.toml
znctl=build/run/bin/znctl
if [ $# -gt 0 ]; then exec "$znctl" "$@"; fi

Show() {  # Show TITLE ARGUMENTS...: one znctl command, as a person would type it
  local title=$1
  shift
  printf '\n== %s\n$ znctl' "$title"
  printf ' %q' "$@"
  printf '\n'
  if ! "$znctl" "$@"; then
    echo "run.sh: FAILED at: znctl $*"
    exit 1
  fi
}

Show "this machine as objects" --local tree
Show "a call with its progress: every provider looks again" --local refresh

watch=(--local watch)
if [ -t 1 ] && [ -t 0 ]; then
  Show "live changes, until Ctrl-C" "${watch[@]}"
else
  printf '\n== ten seconds of live changes\n$ znctl'
  printf ' %q' "${watch[@]}"
  printf '\n'
  status=0
  timeout --signal=INT --kill-after=5 10 "$znctl" "${watch[@]}" || status=$?
  # 124: the time was up, which is how it is meant to end
  if [ "$status" -ne 0 ] && [ "$status" -ne 124 ]; then
    echo "run.sh: FAILED: watch ended with $status"
    exit 1
  fi
fi
printf '\nrun.sh: done. More: ./run.sh --local types, ./run.sh --local show <object>, ./run.sh --local --help\n'
