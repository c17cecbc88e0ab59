#!/usr/bin/env bash
# Holds the public headers against the list of exports: each name of the list is declared in exactly
# one header, once, and no header declares a function that the list lacks.
# Usage: check_headers.sh EXPORTS.def HEADER-FOLDER
set -euo pipefail
export LC_ALL=C
exports=$1 headers=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if ! grep -vE '^[A-Za-z_][A-Za-z0-9_]*$' "$exports" >"$work/odd"; then :; fi
if [ -s "$work/odd" ]; then echo "not one name per line:"; cat "$work/odd"; exit 1; fi
sort "$exports" >"$work/listed"
if [ -n "$(uniq -d "$work/listed")" ]; then
  echo "listed twice:"; uniq -d "$work/listed"; exit 1
fi

# One line per declaration, directives and comments gone: "ZN_API type Name(arguments);" gives "Name header".
for header in "$headers"/*.h; do
  sed -e '/^ *#/d' -e 's://.*$::' "$header" | tr '\n' ' ' | sed 's:/\*[^*]*\*\+\([^/*][^*]*\*\+\)*/: :g' |
    tr ';' '\n' | { grep -oE '\bZN_API\b.*' || true; } |
    sed -nE "s/^ZN_API [^(]*[ *]([A-Za-z_][A-Za-z0-9_]*)\(.*/\1 $(basename "$header")/p"
done | sort >"$work/declarations"
cut -d' ' -f1 "$work/declarations" >"$work/declared"

result=0
Report() {  # Report TEXT NAMES
  if [ -n "$2" ]; then echo "$1"; echo "$2" | sed 's/^/  /'; result=1; fi
}
Report "declared more than once:" "$(uniq -d "$work/declared")"
Report "exported but declared in no header:" "$(comm -23 "$work/listed" <(uniq "$work/declared"))"
Report "declared but not exported:" "$(comm -13 "$work/listed" <(uniq "$work/declared"))"
echo "$(wc -l <"$work/listed") exports, $(wc -l <"$work/declared") declarations"
exit $result
