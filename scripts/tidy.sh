#!/usr/bin/env bash
# Runs clang-tidy with the rules of .clang-tidy over the library, the programs and the providers. It
# takes some minutes, so no test runs it.
# Usage: scripts/tidy.sh [pattern of paths]     (default: every source of src, programs, providers)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh test
cmake --preset debug -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null
run-clang-tidy -quiet -p build/debug -j "${ZN_JOBS:-$(nproc)}" "${1:-/(src|programs|providers)/}"
