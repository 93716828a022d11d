#!/usr/bin/env bash
# Installs what is missing, builds and runs all tests: the optimized build as users get it, then the same units
# with the address and undefined-behaviour sanitizers, linted on the way.
set -euo pipefail
cd "$(dirname "$0")"
. cmake/install-packages.sh
# shellcheck disable=SC2086,SC2154 # words, of the file above
orx_install g++ gfortran cmake ninja-build pkg-config libopenblas-serial-dev libblis-serial-dev libhdf5-dev \
  libmumps-seq-dev libmumps-headers-dev libscotch-dev liblapack3 libcli11-dev libpng-dev libgtest-dev \
  clang-format clang-tidy libclang-rt-14-dev hdf5-tools python3-h5py $orx_mpi_packages

passed=0 failed=0
for preset in release asan; do
  log=build/$preset/build.log
  mkdir -p "build/$preset"
  echo "building: $preset"
  cmake --preset $preset >"$log" 2>&1 && cmake --build --preset $preset >>"$log" 2>&1 || { tail -n 60 "$log"; exit 1; }
  ctest --preset $preset | tee "build/$preset/test.log" || true
  total=$(grep -oP 'out of \K[0-9]+' "build/$preset/test.log")
  bad=$(grep -oP '[0-9]+(?= tests? failed out of)' "build/$preset/test.log")
  passed=$((passed + total - bad)) failed=$((failed + bad))
done
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
