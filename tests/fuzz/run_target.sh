#!/usr/bin/env bash
# Runs one libFuzzer program from its kept corpus for ZN_FUZZ_SECONDS, from the seed ZN_FUZZ_SEED (0:
# another one each time). New inputs go to the build folder; one that fails is left beside them as
# crash-*, timeout-* or oom-*.
# Usage: run_target.sh PROGRAM CORPUS WORK-FOLDER
set -eu
program=$1 corpus=$2 work=$3
mkdir -p "$work/found"
exec "$program" -max_total_time="${ZN_FUZZ_SECONDS:-60}" -seed="${ZN_FUZZ_SEED:-0}" \
  -timeout=10 -rss_limit_mb=2048 \
  -print_final_stats=1 -artifact_prefix="$work/" "$work/found" "$corpus"
