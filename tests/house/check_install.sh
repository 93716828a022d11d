#!/usr/bin/env bash
# check_install.sh BUILD CONSUMERS: installs the build into a fresh folder, moves that folder, and builds and runs
# programs in C, C++ and Fortran against it, with find_package and with pkg-config.
set -euo pipefail
build=$1 consumers=$2
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

c_output='19 43 22 50'
cpp_output='206 ORXSrvMatrix::SetValues - Illegal input.
202 ORXSrvSparseImExPorter: Failed to open file no such file.
tally 0'
fortran_output=' 10.0 14.0 14.0 20.0'

cmake -S "$consumers" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$work/installed" >"$work/log" 2>&1 &&
  cmake --build "$work/cmake" >>"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
expect 'C, find_package' "$c_output" "$work/cmake/consumer_c"
expect 'C++, find_package' "$cpp_output" "$work/cmake/consumer_cpp"
expect 'Fortran, find_package' "$fortran_output" "$work/cmake/consumer_f90"

pc=$(find "$work/installed" -name orx_linear_algebra.pc)
export PKG_CONFIG_PATH=${pc%/*}
flags=$(pkg-config --cflags --libs orx_linear_algebra)
# shellcheck disable=SC2086 # flags are words
g++ -std=c++20 "$consumers/consumer.cpp" $flags -o "$work/pkg_cpp"
expect 'C++, pkg-config' "$cpp_output" "$work/pkg_cpp"
# shellcheck disable=SC2086
gfortran "$consumers/consumer.f90" $flags -o "$work/pkg_f90"
expect 'Fortran, pkg-config' "$fortran_output" "$work/pkg_f90"
expect 'installed orxmtx' 'orxmtx 0.1.0' "$work/installed/bin/orxmtx" --version
