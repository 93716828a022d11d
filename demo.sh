#!/usr/bin/env bash
# Two modal analyses from nothing to pictures, on a fresh Debian 12: installs what is missing, builds, assembles a
# published benchmark structure through the library, solves for its natural frequencies with orxmtx, compares them with
# the published ones, and reads the modes from a registered out-of-core matrix in C++ and in Fortran. Then a bladed disk
# of 48,240 unknowns: all its modes up to 4 kHz, counted. Then a solver module in Fortran that assembles, solves and
# keeps its results by itself, beside the same one in C and in C++.
#
# With --mpi instead: the bladed disk by orxmtx and on two ranks by orxmtx-mpi, side by side.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/install-packages.sh

case "${1-}" in
  --mpi) isMpi=yes ;;
  '') isMpi= ;;
  *) echo "usage: $0 [--mpi]" >&2; exit 2 ;;
esac

build=build/demo
output=demo-output
log=$build/build.log

targets=(tapered_cantilever modal_projection bladed_disk orxmtx solver_module_fortran solver_module_c solver_module_cpp)
packages=(g++ gfortran cmake ninja-build libopenblas-serial-dev pkg-config libblis-serial-dev libhdf5-dev libmumps-seq-dev
  libmumps-headers-dev libscotch-dev liblapack3 libcli11-dev libpng-dev)
if [ "$isMpi" ]; then
  build=build/demo-mpi log=build/demo-mpi/build.log
  targets=(bladed_disk orxmtx orxmtx-mpi)
  # shellcheck disable=SC2206 # words
  packages+=($orx_mpi_packages)
fi

build_programs() {
  cmake --preset release -B "$build" -DORX_BUILD_TESTS=OFF -DORX_BUILD_MPI="${isMpi:-no}" &&
    cmake --build "$build" --target "${targets[@]}"
}

orx_install "${packages[@]}"
mkdir -p "$build" "$output"

echo "building (log in $log)"
build_programs >"$log" 2>&1 || { tail -n 60 "$log" >&2; echo "the build failed; see $log" >&2; exit 1; }
orxmtx=$build/tools/orxmtx

run_on_two_ranks() {
  local mpirun=(mpirun --oversubscribe -n 2)
  [ "$(id -u)" -ne 0 ] || mpirun+=(--allow-run-as-root)
  echo "assembling a bladed disk"
  "$build/examples/bladed_disk" assemble "$output"
  local model="$output/disk-model.sim --interval 0 1200" seconds
  for program in "$orxmtx" "${mpirun[*]} $build/tools/mpi/orxmtx-mpi"; do
    echo "solving: $program modes $model"
    seconds=$(date +%s.%N)
    # shellcheck disable=SC2086 # programs and arguments are words
    $program modes $model >"$output/$(basename "$program").txt"
    echo "done in $(date +%s.%N | awk -v start="$seconds" '{ printf "%.1f", $1 - start }') s"
  done
  grep -h -e '# certified' "$output/orxmtx.txt" "$output/orxmtx-mpi.txt"
  echo
  echo "  mode   orxmtx, Hz   orxmtx-mpi on 2 ranks, Hz   difference"
  paste <(grep -v '#' "$output/orxmtx.txt") <(grep -v '#' "$output/orxmtx-mpi.txt") |
    awk '{ d = $7 / $2 - 1; if (d < 0) d = -d; if (d > most) most = d
           printf "%6d %12.6f %27.6f %12.0e\n", $1, $2, $7, d }
         END { printf "the printed digits differ by at most %.0e of a frequency\n", most; exit NR == 0 || most > 1e-10 }'
}
if [ "$isMpi" ]; then
  run_on_two_ranks
  exit
fi

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
