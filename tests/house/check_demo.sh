#!/usr/bin/env bash
# check_demo.sh TAPERED_CANTILEVER ORXMTX MODAL_PROJECTION: the demo's chain of programs; the report fails on a
# frequency off by 0.5 %, the projection on coupled modes. C++ and Fortran print the same digits.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$1" assemble "$work"
"$2" modes "$work/K.txt" "$work/M.txt" -n 6 --shapes "$work/shapes.txt" >"$work/modes.txt"
"$1" report "$work"
grep -q '</svg>' "$work/modes.svg"
side() { sed -n "s/^$1 *//p" "$work/projection.txt"; }
(cd "$work" && "$3" . >projection.txt)
[ "$(side C++ | wc -l)" = 6 ]
diff <(side C++) <(side Fortran)
[ "$(find "$work" -name '*.sim*')" = '' ] # the registry's file is gone
