#!/usr/bin/env bash
# check_symbols.sh ROOT LIBRARY...: each library's dynamic symbols are exactly those of docs/exported-symbols/<name>.txt,
# and no private member is among them. With ORX_WRITE_SYMBOLS=1 the lists are written instead.
set -euo pipefail
root=$1
lists=$root/docs/exported-symbols
shift
status=0

# private_members HEADER...: "CLASS::NAME(" for each private function of a class that nothing else in its header calls:
# what an inline function calls has to be exported.
private_members() {
  awk '
  function report(    name, copy) {
    for (name in owner) {
      copy = text
      if (gsub("[^A-Za-z0-9_]" name "\\(", "", copy) == 1) print owner[name] "::" name "("
    }
    delete owner
    text = ""
  }
  FNR == 1 { report() }
  { sub(/\/\/.*/, ""); text = text $0 "\n" }
  /^(class|struct) [^;]*$/ { class = $0; sub(/ (final )?[:{].*/, "", class); sub(/.* /, "", class); private = /^class/ }
  /^(public|protected|private):/ { private = /^private/ }
  private && match($0, /^  [^ }(][^(]*[A-Za-z0-9_~]\(/) {
    name = substr($0, 1, RLENGTH - 1); sub(/.*[^A-Za-z0-9_~]/, "", name); owner[name] = class
  }
  END { report() }' "$@"
}
private=$(cd "$root" && private_members platform/core/*.h platform/sim/*.h blac/*.h mtx/*.h module/*.h solve/*.h host/*.h)
[ "$(wc -l <<<"$private")" -gt 20 ] || { echo "only these private members were found: $private"; exit 1; }
for library; do
  name=$(basename "$library")
  name=${name%%.so*}
  symbols=$(nm -D --defined-only "$library" | sed 's/^[0-9a-f]* . //' | c++filt | LC_ALL=C sort -u)
  if grep -F "$private" <<<"$symbols"; then
    echo "$name: these private members are exported; ORX_LOCAL keeps them inside"
    status=1
  fi
  if [ -n "${ORX_WRITE_SYMBOLS:-}" ]; then
    printf '%s\n' "$symbols" >"$lists/$name.txt"
  elif ! diff -u --label "documented: $name" --label "exported" "$lists/$name.txt" - <<<"$symbols"; then
    status=1
  else
    echo "$name: $(wc -l <<<"$symbols") symbols as documented"
  fi
done
exit $status
