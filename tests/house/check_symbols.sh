#!/usr/bin/env bash
# check_symbols.sh LISTS LIBRARY...: each library's dynamic symbols are exactly those of LISTS/<name>.txt.
# With ORX_WRITE_SYMBOLS=1 the lists are written instead.
set -euo pipefail
lists=$1
shift
status=0
for library; do
  name=$(basename "$library")
  name=${name%%.so*}
  symbols=$(nm -D --defined-only "$library" | sed 's/^[0-9a-f]* . //' | c++filt | LC_ALL=C sort -u)
  if [ -n "${ORX_WRITE_SYMBOLS:-}" ]; then
    printf '%s\n' "$symbols" >"$lists/$name.txt"
  elif ! diff -u --label "documented: $name" --label "exported" "$lists/$name.txt" - <<<"$symbols"; then
    status=1
  else
    echo "$name: $(wc -l <<<"$symbols") symbols as documented"
  fi
done
exit $status
