#!/usr/bin/env bash
# Holds the dynamic symbols of the library against the list of exports, both ways. Every one is a
# function of the version node; the node's own name is the only other symbol.
# Usage: check_symbols.sh EXPORTS.def LIBRARY NM
set -euo pipefail
export LC_ALL=C
exports=$1 library=$2 nm=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

sort "$exports" >"$work/listed"
"$nm" -D --defined-only --format=posix "$library" >"$work/dynamic"
awk '$2 == "T" && $1 ~ /@@ZNMIRA_3$/ { sub(/@@.*/, "", $1); print $1 }' "$work/dynamic" |
  sort >"$work/functions"
awk '!($2 == "T" && $1 ~ /@@ZNMIRA_3$/) && !($2 == "A" && $1 ~ /^ZNMIRA_3(@@ZNMIRA_3)?$/)' \
  "$work/dynamic" >"$work/others"

result=0
Report() {  # Report TEXT NAMES
  if [ -n "$2" ]; then echo "$1"; echo "$2" | sed 's/^/  /'; result=1; fi
}
Report "listed but not in the library:" "$(comm -23 "$work/listed" "$work/functions")"
Report "in the library but not listed:" "$(comm -13 "$work/listed" "$work/functions")"
Report "neither a function nor of the version node:" "$(cat "$work/others")"
echo "$(wc -l <"$work/listed") listed, $(wc -l <"$work/functions") functions in $library"
exit $result
