#!/usr/bin/env bash
# check_install.sh BUILD CONSUMERS README SOLVER_MODULE: installs the build into a fresh folder, moves that folder, and
# builds and runs programs in C, C++ and Fortran against it, with find_package and with pkg-config; the README's examples
# and the solver modules of the folder SOLVER_MODULE too.
set -euo pipefail
build=$1 consumers=$2 readme=$3 solver_module=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/first" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
mv "$work/first" "$work/installed" # nothing may depend on the place it was installed to
expect() { # expect NAME EXPECTED COMMAND...
  local name=$1 expected=$2 actual
  shift 2
  actual=$("$@") || { echo "$name: exit code $?"; exit 1; }
  [ "$actual" = "$expected" ] || { printf '%s printed\n%s\ninstead of\n%s\n' "$name" "$actual" "$expected"; exit 1; }
  echo "$name: ok"
}

block() { # block LANGUAGE [N]: the README's N-th code block of a language
  awk -v start="\`\`\`$1" -v wanted="${2:-1}" '/^```/ { inside = $0 == start && ++n == wanted; next } inside' "$readme"
}
block cpp >"$work/readme.cpp"
block cpp 2 >"$work/readme_solve.cpp"
block cpp 3 >"$work/readme_database.cpp"
block fortran >"$work/readme.f90"

c_output='19 43 22 50'
cpp_output='206 ORXSrvMatrix::SetValues - Illegal input.
202 ORXSrvSparseImExPorter: Failed to open file no such file.
tally 0'
fortran_output=' 10.0 14.0 14.0 20.0
20
The matrix container has no matrix 6.'

cmake -S "$consumers" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/installed" \
  -DSOLVE_EXAMPLE="$work/readme_solve.cpp" >"$work/log" 2>&1 &&
  cmake --build "$work/cmake" >>"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
expect 'C, find_package' "$c_output" "$work/cmake/consumer_c"
expect 'C++, find_package' "$cpp_output" "$work/cmake/consumer_cpp"
expect 'Fortran, find_package' "$fortran_output" "$work/cmake/consumer_f90"
expect 'README, sparse, find_package' "$(block text 2)" "$work/cmake/consumer_solve"

pc=$(find "$work/installed" -name orx_linear_algebra.pc)
export PKG_CONFIG_PATH=${pc%/*}
flags=$(pkg-config --cflags --libs orx_linear_algebra)
pkg_config_build() { # pkg_config_build COMPILER... SOURCE: the program of a source, as $work/program
  # shellcheck disable=SC2086 # flags are words
  "$@" $flags -o "$work/program"
}
pkg_config_build g++ -std=c++20 "$consumers/consumer.cpp"
expect 'C++, pkg-config' "$cpp_output" "$work/program"
pkg_config_build g++ -std=c++20 "$work/readme.cpp"
expect 'README, C++' "$(block text 1)" "$work/program"
flags=$(pkg-config --cflags --libs orx_solve)
pkg_config_build g++ -std=c++20 "$work/readme_solve.cpp"
expect 'README, sparse' "$(block text 2)" "$work/program"
pkg_config_build g++ -std=c++20 "$work/readme_database.cpp"
(cd "$work" && expect 'README, database' "$(block text 3)" ./program)
flags=$(pkg-config --cflags --libs orx_host)
module=$(pkg-config --variable=fortran orx_host)
pkg_config_build gfortran -J"$work" "$module" "$consumers/consumer.f90"
expect 'Fortran, pkg-config' "$fortran_output" "$work/program"
pkg_config_build gfortran -J"$work" "$module" "$work/readme.f90"
expect 'README, Fortran' "$(block text 4)" "$work/program"
solve() { (cd "$work" && ./program 2>/dev/null); }
pkg_config_build gcc -std=c11 -Wall -Wextra -pedantic-errors -Werror "$solver_module/solver_module.c" -lm
solver_output=$(solve)
grep -q '^mode 8 ' <<<"$solver_output"
pkg_config_build gfortran -J"$work" "$module" "$solver_module/solver_module.f"
expect 'solver module, Fortran as C' "$solver_output" solve
pkg_config_build gfortran -J"$work" -fdefault-integer-8 "$module" "$solver_module/solver_module.f"
expect 'solver module, Fortran with long integers as C' "$solver_output" solve
expect 'installed orxmtx' 'orxmtx 0.1.0' "$work/installed/bin/orxmtx" --version

for notice in 'OpenBLAS BSD' 'LAPACK Tennessee' 'BLIS BSD' 'MUMPS CeCILL-C' 'SCOTCH CeCILL-C' 'CLI11 BSD'; do
  read -r name words <<<"$notice"
  grep -q "$words" "$work/installed/share/doc/orx_linear_algebra/licences/$name.txt" || { echo "no notice of $name"; exit 1; }
done
