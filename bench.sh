#!/usr/bin/env bash
# bench.sh [WORD]: installs what is missing, builds the benchmarks and prints the table of claims about speed; with a
# word, only the claims whose text contains it. The word half-million makes the one claim that is not made without it: a
# model of so many unknowns. PETSc, CHOLMOD and SciPy are peers where they are installed;
# orxmtx-mpi is measured where its packages are.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/install-packages.sh
orx_install g++ gfortran cmake ninja-build pkg-config libopenblas-serial-dev libblis-serial-dev libcli11-dev \
  libpng-dev libhdf5-dev libmumps-seq-dev libmumps-headers-dev libscotch-dev liblapack3 libeigen3-dev libsqlite3-dev

build=${ORX_BENCH_BUILD:-build/bench}
mkdir -p "$build"
log=$build/build.log
echo "building: bench"
{
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DORX_BUILD_TESTS=OFF -DORX_BUILD_BENCHMARKS=ON &&
    cmake --build "$build" --target orx_bench
} >"$log" 2>&1 || { tail -n 60 "$log"; exit 1; }
exec "$build/bench/orx_bench" "$@"
