# Sourced by run.sh and test.sh: numbered steps with one line each on the terminal and a full log
# each in build/logs. A failed step shows the end of its log, names the log and ends the script.
# shellcheck shell=bash

logs=build/logs
mkdir -p "$logs"
step_number=0

# Step NAME COMMAND...: runs the command with its output in build/logs/NAME.log.
Step() {
  local name=$1 log="$logs/$1.log" begin=$SECONDS
  shift
  step_number=$((step_number + 1))
  printf '[%d/%d] %-16s ' "$step_number" "$steps_total" "$name"
  if "$@" >"$log" 2>&1 </dev/null; then
    printf 'ok   %4d s\n' $((SECONDS - begin))
    return
  fi
  printf 'FAILED after %d s\n' $((SECONDS - begin))
  echo "--- from $log:"
  # In a parallel build the first error seldom stands at the end.
  grep -nE '(^|[^a-zA-Z_])(error:|FAILED:|\*\*\*Failed|ERROR: |runtime error:|E: )' "$log" | cut -c1-200 | head -n 20 || true
  echo "--- its end:"
  tail -n 30 "$log" | cut -c1-400
  echo "---"
  echo "$(basename "$0"): FAILED at step $name; full log: $PWD/$log"
  exit 1
}

# Build PRESET [cmake --build arguments]: configures where needed, then builds.
Build() {
  local preset=$1
  shift
  cmake --preset "$preset" && cmake --build --preset "$preset" -j "$jobs" "$@"
}

jobs=${ZN_JOBS:-$(nproc)}
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros
