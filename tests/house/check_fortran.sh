#!/usr/bin/env bash
# check_fortran.sh SOURCE_DIR MODULE EXPORTED GUIDE: the Fortran module declares every C entry point of the lists of exported
# symbols, with the C prototype to the last const, and compiles in programs whose default integers and reals are longer.
# The guide for hosts names all of them.
set -euo pipefail
source=$1 module=$2 exported=$3 guide=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

gfortran -fdefault-integer-8 -fdefault-real-8 -Wall -Wextra -Werror -fsyntax-only -J"$work" "$module"
gfortran -fc-prototypes -fsyntax-only -J"$work" "$module" >"$work/prototypes.h"
{
  printf '#include "host/orx_linear_algebra.h"\n'
  # The compiler does not tell the arguments of a procedure that is passed, nor that a C pointer is passed by address.
  sed 's/int (\*work)()/void (*work)(void*)/; s/int (\*function)()/orx_progress function/
       s/ADOPT (const void \*/ADOPT (void *const */; s/ADDRESS (const long \*registry, void \*/&*/
       /ORX_SPARSE_ARRAYS/ { s/void \*\(row_pointers\|column_indices\)/int const **\1/g; s/void \*\(values\|diagonal\)/double const **\1/g }' \
    "$work/prototypes.h"
} >"$work/both.c"
gcc -Wall -Werror -fsyntax-only -I"$source" -I"$source/platform" "$work/both.c"

entry='(BLAC_|ORXSRV|ORX_)[A-Z0-9_]+'
grep -hxE "$entry" "$exported"/*.txt | LC_ALL=C sort -u >"$work/exported"
diff -u --label exported --label 'declared in fortran/' "$work/exported" \
  <(grep -oE "$entry \(" "$work/prototypes.h" | tr -d ' (' | LC_ALL=C sort -u)
diff -u --label exported --label "named in ${guide##*/}" <(grep -v BLAC_ "$work/exported") \
  <(grep -oE '`(ORXSRV|ORX_)[A-Z0-9_]+`' "$guide" | tr -d '`' | LC_ALL=C sort -u)
