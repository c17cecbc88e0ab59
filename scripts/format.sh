#!/usr/bin/env bash
# Formats every tracked or new C and C++ file of the work tree with clang-format 14.
# Usage: scripts/format.sh [--check]     (--check only reports, and fails where one differs)
set -euo pipefail
cd "$(dirname "$0")/.."
arguments=(-i)
if [ "${1:-}" = --check ]; then arguments=(--dry-run --Werror); fi
if [ -d .git ] || [ -f .git ]; then
  files=(git ls-files -z --cached --others --exclude-standard -- '*.h' '*.c' '*.cpp')
else
  files=(find . -path ./build -prune -o \( -name '*.h' -o -name '*.c' -o -name '*.cpp' \) -print0)
fi
"${files[@]}" | while IFS= read -r -d '' file; do
  if [ -f "$file" ]; then printf '%s\0' "$file"; fi  # a deleted file is still listed
done | xargs -0 -r clang-format "${arguments[@]}"
