#!/usr/bin/env bash
# fuzz.sh [BUILD [TARGET...]]: builds the fuzz targets with clang and runs each for ORX_FUZZ_SECONDS, 3 by default.
# They start from the seeds and from the files of tests/mtx. Findings stay in BUILD/findings; one that has been
# mended belongs into tests/mtx/malformed. For ten minutes each: ORX_FUZZ_SECONDS=600 tests/fuzz/fuzz.sh
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
files=$here/../mtx
build=${1:-$here/../../build/fuzz}
shift || true
targets=("${@:-}")
[ -n "${targets[0]}" ] || targets=(text fortran block chunked dense)

mkdir -p "$build/findings"
{
  CXX=${ORX_FUZZ_CXX:-clang++-14} cmake -S "$here" -B "$build" -G Ninja && cmake --build "$build"
} >"$build/build.log" 2>&1 || { tail -n 60 "$build/build.log"; exit 1; }

# A reader that asks for more than this is told that there is no memory: the error is its own, not a finding.
export ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=32 UBSAN_OPTIONS=print_stacktrace=1
status=0
for target in "${targets[@]}"; do
  corpus=$build/corpus/$target
  mkdir -p "$corpus"
  folders=("$corpus")
  for folder in "$here/seeds/$target" "$files/malformed/$target" "$files/wellformed/$target"; do
    [ ! -d "$folder" ] || folders+=("$folder")
  done
  log=$build/$target.log
  if "$build/fuzz_$target" -max_total_time="${ORX_FUZZ_SECONDS:-3}" -timeout=60 -rss_limit_mb=2048 -max_len=2048 \
    -print_final_stats=1 -artifact_prefix="$build/findings/$target-" "${folders[@]}" >"$log" 2>&1; then
    echo "$target: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") runs," \
      "coverage $(grep -oP 'cov: \K[0-9]+' "$log" | tail -n 1), no finding"
  else
    tail -n 40 "$log"
    echo "$target: FOUND something, see $build/findings"
    status=1
  fi
done
exit $status
