#!/usr/bin/env bash
# Runs clang-tidy with the rules of .clang-tidy over the library, the programs and the providers. It
# takes half an hour, so no test runs it.
# Usage: scripts/tidy.sh [pattern of paths]     (default: every source of src, programs, providers)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh test
# A folder of its own: clang reads neither the other compiler's precompiled headers nor all its options.
cmake --preset debug -B build/tidy -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON \
  -DCMAKE_CXX_COMPILER=clang++ >/dev/null
run-clang-tidy -quiet -p build/tidy -j "${ZN_JOBS:-$(nproc)}" "${1:-^$PWD/(src|programs|providers)/}"
