#!/usr/bin/env bash
# Two modal analyses from nothing to pictures, on a fresh Debian 12: installs what is missing, builds, assembles a
# published benchmark structure through the library, solves for its natural frequencies with orxmtx, compares them with
# the published ones, and reads the modes from a registered out-of-core matrix in C++ and in Fortran. Then a bladed disk
# of 48,240 unknowns: all its modes up to 4 kHz, counted. Then a solver module in Fortran that assembles, solves and
# keeps its results by itself, beside the same one in C and in C++.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/install-packages.sh

build=build/demo
output=demo-output
log=$build/build.log

build_programs() {
  cmake --preset release -B "$build" -DORX_BUILD_TESTS=OFF &&
    cmake --build "$build" --target tapered_cantilever modal_projection bladed_disk orxmtx \
      solver_module_fortran solver_module_c solver_module_cpp
}

orx_install g++ gfortran cmake ninja-build libopenblas-serial-dev pkg-config libblis-serial-dev libhdf5-dev \
  libmumps-seq-dev libmumps-headers-dev libscotch-dev liblapack3 libcli11-dev libpng-dev
mkdir -p "$build" "$output"

echo "building (log in $log)"
build_programs >"$log" 2>&1 || { tail -n 60 "$log" >&2; echo "the build failed; see $log" >&2; exit 1; }
orxmtx=$build/tools/orxmtx

echo "assembling the tapered membrane"
"$build/examples/tapered_cantilever" assemble "$output"

echo "solving: orxmtx modes $output/K.txt $output/M.txt -n 6 --shapes $output/shapes.txt"
"$orxmtx" modes "$output/K.txt" "$output/M.txt" -n 6 --shapes "$output/shapes.txt" >"$output/modes.txt"

echo "picture of the mode shapes: $output/modes.svg"
echo
"$build/examples/tapered_cantilever" report "$output"

echo
(cd "$output" && "$OLDPWD/$build/examples/modal_projection" .) | tee "$output/projection.txt"
side() { sed -n "s/^$1 *//p" "$output/projection.txt"; }
diff <(side C++) <(side Fortran) && echo "C++ and Fortran agree to the last digit"

echo
echo "assembling a bladed disk"
"$build/examples/bladed_disk" assemble "$output"

disk="$output/disk-K.chk $output/disk-M.chk --interval 0 4000 --shapes $output/disk.sim"
echo "solving: orxmtx modes $disk"
started=$SECONDS
# shellcheck disable=SC2086 # arguments are words
"$orxmtx" modes $disk --explain >"$output/disk.txt"
grep -e '# order' -e '# sparse' -e '# certified' "$output/disk.txt"
echo "done in $((SECONDS - started)) s; picture of two mode shapes: $output/disk.svg"
echo
"$build/examples/bladed_disk" report "$output"

echo
echo "a solver module in Fortran: a tower under wind, results in $output/tower.sim"
for language in cpp c fortran; do
  (cd "$output" && "$OLDPWD/$build/examples/solver_module_$language" >"tower-$language.txt" 2>tower-progress.txt)
done
cat "$output/tower-fortran.txt"
for language in cpp c; do cmp "$output/tower-$language.txt" "$output/tower-fortran.txt"; done
echo "C and C++ agree to the last digit"
