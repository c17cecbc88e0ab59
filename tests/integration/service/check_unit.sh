#!/usr/bin/env bash
# Holds the unit file against systemd's own measure: an exposure of 4.0 at most.
# Usage: check_unit.sh SYSTEMD_ANALYZE znsvc.service.in
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed 's|@binDir@|/usr/bin|; s|@docDir@|/usr/share/doc/znmira|' "$2" >"$work/znsvc.service"
"$1" security --offline=true --threshold=40 "$work/znsvc.service" | tail -n 1
