#!/usr/bin/env bash
# Runs the tests of the network at full size (100,000 calls over a faulty network, hundreds of kills,
# thousands of sessions) and prints what they measured. It takes some minutes and wants the machine
# for itself, so no suite runs it.
# Usage: scripts/soak.sh [--preset NAME] [filter]     (NAME: release, the default, debug, asan;
#                                                      filter: a GoogleTest filter, e.g. 'Kills.*')
# Environment: ZN_SOAK_SEED (repeats a run's faults), ZN_JOBS (parallel jobs of the build)
set -euo pipefail
cd "$(dirname "$0")/.."
preset=release
if [ "${1:-}" = --preset ]; then
  preset=$2
  shift 2
fi
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "${ZN_JOBS:-$(nproc)}" --target network_test >/dev/null
log=build/logs/soak.log
mkdir -p build/logs
status=0
ZN_SOAK=1 "build/$preset/bin/network_test" --gtest_filter="${1:-*}" \
  >"$log" 2>&1 || status=$?
grep -E '^(measured:|\[  (PASSED|SKIPPED|FAILED) )' "$log" || true
if [ "$status" -ne 0 ]; then
  grep -nE 'Failure|error:' "$log" | head -n 20 || true
  echo "soak.sh: FAILED; full log: $PWD/$log"
  exit 1
fi
echo "soak.sh: PASSED; full log: $PWD/$log"
