#!/usr/bin/env bash
# check_solver_module.sh EXAMPLES ORXMTX: the solver modules in C++, C and Fortran, which are in the folder EXAMPLES, print the
# same digits, write the same results and leave nothing else.
set -euo pipefail
examples=$1 orxmtx=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for program in cpp c fortran fortran_i8; do
  mkdir "$work/$program" && cd "$work/$program"
  "$examples/solver_module_$program" >../output 2>../progress
  [ "$(ls)" = tower.sim ]
  mv ../output ../progress .
  sed -i '/ seconds$/d' progress
  "$orxmtx" db tower.sim >description
  [ -s progress ]
  diff ../cpp/output output
  diff ../cpp/progress progress
  diff ../cpp/description description
  if command -v h5diff >/dev/null; then h5diff ../cpp/tower.sim tower.sim; fi
done
grep -q 'type mode shapes' "$work/c/description"

# Another program's numbers for this tower: assembled with rotated matrices in Python, solved with SciPy's eigh.
awk 'function off(a, b) { return a / b - 1 > 1e-9 || a / b - 1 < -1e-9 }
     $1 == "largest" { wrong += off($3, 1.3712653104338) || $6 != 276 }
     $1 == "mode" { ++modes; f[$2] = $3 }
     /certified/ { wrong += $NF != 1; ++checks }
     /^equilibrium/ { wrong += $NF > 1e-9; ++checks }
     $1 == "modal" { wrong += $4 + 0 > 1e-9 || $8 > 1e-9; ++checks }
     END { exit wrong || checks != 3 || modes != 8 || off(f[1], 0.5309736621621) || off(f[8], 9.5475971275498) }' \
  "$work/fortran/output" || { cat "$work/fortran/output"; exit 1; }

# Where results cannot be written, each program says so, and leaves nothing.
for program in cpp c fortran; do
  rm -rf "$work/$program" && mkdir -p "$work/$program/tower.sim" && cd "$work/$program"
  if "$examples/solver_module_$program" >../output 2>../progress; then exit 1; fi
  tail -n 1 ../progress | grep -q 'Creating tower.sim failed: Is a directory.$'
  [ "$(find . -type f)" = '' ]
done
