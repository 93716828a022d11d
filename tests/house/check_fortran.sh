#!/usr/bin/env bash
# check_fortran.sh SOURCE_DIR MODULE EXPORTED: the Fortran module declares every C entry point of the list of exported
# symbols, with the C prototype to the last const, and compiles in programs whose default integers and reals are longer.
set -euo pipefail
source=$1 module=$2 exported=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

gfortran -fdefault-integer-8 -fdefault-real-8 -Wall -Wextra -Werror -fsyntax-only -J"$work" "$module"
gfortran -fc-prototypes -fsyntax-only -J"$work" "$module" >"$work/prototypes.h"
{
  printf '#include "blac/BLAC.h"\n'
  (cd "$source" && grep -l 'extern "C"' module/*.h) | sed 's/.*/#include "&"/'
  # The compiler does not tell the argument of a procedure that is passed.
  sed 's/int (\*work)()/void (*work)(void*)/' "$work/prototypes.h"
} >"$work/both.c"
gcc -Wall -Werror -fsyntax-only -I"$source" -I"$source/platform" "$work/both.c"

diff -u --label "exported" --label "declared in fortran/" <(grep -xE '(BLAC_|ORXSRV)[A-Z0-9_]+' "$exported") \
  <(grep -oE '(BLAC_|ORXSRV)[A-Z0-9_]+ \(' "$work/prototypes.h" | tr -d ' (' | LC_ALL=C sort -u)
