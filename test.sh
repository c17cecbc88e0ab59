#!/usr/bin/env bash
# Builds the project and passes every test, on a bare Debian 12 too: it installs what is missing.
# One line per step; full logs in build/logs; ends with the summary of the whole suite, or with the
# step that failed and its log.
# Usage: ./test.sh [--quick] [step...]
#   --quick   the suite in the debug build alone, for daily use
#   step      only these: format seam fuzz asan tsan debug release
# Environment: ZN_JOBS (parallel jobs, default: cores), ZN_FUZZ_SECONDS (per fuzz target, default 60),
#   ZN_FUZZ_SEED (default 1, so that the same tree gives the same result; 0 to look for new faults)
set -euo pipefail
cd "$(dirname "$0")"

known_steps="format seam asan tsan fuzz debug release"
chosen="format seam asan tsan fuzz release"
case "${1:-}" in
  -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
  --quick) chosen=debug; shift ;;
esac
if [ $# -gt 0 ]; then chosen=$*; fi
for step in $chosen; do
  case " $known_steps " in
    *" $step "*) ;;
    *) echo "test.sh: unknown step $step (known: $known_steps)" >&2; exit 2 ;;
  esac
done
Chosen() { [[ " $chosen " == *" $1 "* ]]; }

# shellcheck source=scripts/steps.sh
source scripts/steps.sh
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_stack_use_after_return=1:strict_string_checks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-second_deadlock_stack=1:halt_on_error=1:suppressions=$PWD/tests/tsan.supp}

# Runs the suite of a preset; the arguments go to ctest.
Suite() {
  local preset=$1
  shift
  ctest --preset "$preset" -j "$jobs" --timeout 300 --no-tests=error "$@"
}

# The thread sanitizer of this compiler cannot place its shadow where addresses are randomized by
# more than 30 bits; there its programs (gtest lists its tests at build time) run without.
FixedAddresses() {
  local bits
  bits=$(cat /proc/sys/vm/mmap_rnd_bits 2>/dev/null || echo 28)
  if [ "$bits" -gt 30 ]; then setarch "$(uname -m)" -R "$@"; else "$@"; fi
}

# More targets at once than cores: each runs for its whole minute, and the step stays short.
Fuzz() {
  Build fuzz --target fuzz_targets || return
  export ZN_FUZZ_SEED=${ZN_FUZZ_SEED:-1} ZN_FUZZ_SECONDS=${ZN_FUZZ_SECONDS:-60}
  ctest --preset fuzz -j $((2 * jobs)) --no-tests=error
}

# The steps, in the order of known_steps; the last build's suite comes at the very end.
steps_total=1
for step in $chosen; do
  case $step in
    asan | tsan | debug | release) steps_total=$((steps_total + 2)) ;;
    *) steps_total=$((steps_total + 1)) ;;
  esac
done

begin=$SECONDS
echo "test.sh: $chosen; logs in build/logs"
Step install scripts/install-deps.sh test
if Chosen format; then Step format scripts/format.sh --check; fi
if Chosen seam; then Step seam Build seam -- -k 0; fi
if Chosen asan; then
  Step asan-build Build asan
  Step asan-suite Suite asan
  last=asan
fi
if Chosen tsan; then
  # Everything in the library that has threads, and the service; the other programs' own tests run
  # under the other builds.
  Step tsan-build FixedAddresses Build tsan --target unit_framework unit_support unit_ucl \
    unit_service unit_clientsvc integration_providers service_process_test
  Step tsan-suite FixedAddresses Suite tsan \
    -R '^(framework|support|ucl|service|clientsvc|providers)\.'
  last=tsan
fi
if Chosen fuzz; then
  Step fuzz Fuzz
  last=fuzz
fi
for preset in debug release; do
  if Chosen $preset; then
    Step $preset-build Build $preset
    Step $preset-suite Suite $preset
    last=$preset-suite
  fi
done

echo "test.sh: PASSED, $step_number steps in $((SECONDS - begin)) s"
# What ctest itself says of the last suite closes the output.
if [ -n "${last:-}" ]; then
  log=build/logs/$last.log
  [ -f "$log" ] || log=build/logs/$last-suite.log
  sed -n '/^[0-9]*% tests passed/,$p' "$log"
fi
