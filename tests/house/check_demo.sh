#!/usr/bin/env bash
# check_demo.sh TAPERED_CANTILEVER ORXMTX: the demo's chain of programs; the report fails on a frequency off by 0.5 %.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$1" assemble "$work"
"$2" modes "$work/K.txt" "$work/M.txt" -n 6 --shapes "$work/shapes.txt" >"$work/modes.txt"
"$1" report "$work"
grep -q '</svg>' "$work/modes.svg"
