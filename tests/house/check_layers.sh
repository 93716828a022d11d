#!/usr/bin/env bash
# check_layers.sh ROOT: fails when a source includes what the table of docs/architecture.md does not allow it, or uses
# names of HDF5 outside the rooms that may.
set -euo pipefail
cd "$1"

find platform blac mtx module solve host tools examples bench tests -name '*.h' -o -name '*.hpp' -o -name '*.cpp' -o -name '*.c' |
  sort | awk '
# The table: unit_of[path pattern] and allowed[unit].
FILENAME == "docs/architecture.md" {
  if (split($0, cell, "|") < 6 || cell[2] !~ /^ *([0-9]+|side) *$/) next
  unit = cell[3]; gsub(/ /, "", unit)
  count = split(cell[4], paths, " ")
  for (k = 1; k <= count; ++k) unit_of[paths[k]] = unit
  allowed[unit] = " " cell[5] " " unit " "
  next
}
function unit_for(path,    pattern, stem, best) {
  best = ""
  for (pattern in unit_of) {
    stem = pattern; sub(/\*$/, "", stem)
    exact = pattern !~ /[\/*]$/
    if ((exact ? path == stem : index(path, stem) == 1) && length(pattern) > length(best)) best = pattern
  }
  return best == "" ? "" : unit_of[best]
}
function fail(text) { print text; failed = 1 }
function exists(path,    line, found) {
  found = (getline line < path) >= 0
  close(path)
  return found
}
function check(file, line, included,    target, unit, other, owner) {
  folder = file; sub(/[^\/]*$/, "", folder)
  target = exists(included) ? included : exists("platform/" included) ? "platform/" included : folder included
  unit = unit_for(file); other = unit_for(target)
  if (other == "") return fail(file ":" line ": " included " belongs to no room of docs/architecture.md")
  if (index(allowed[unit], " all ")) return
  owner = target
  if (sub(/\/impl\/.*/, "/", owner) && index(file, owner) != 1 && unit != "module")
    return fail(file ":" line ": " included " is private to " owner)
  if (index(allowed[unit], " " other " ")) return
  if (index(allowed[unit], " public ") && target ~ /^(platform\/core|platform\/sim|blac|mtx|module|solve|host)\/[^\/]+$/) return
  fail(file ":" line ": " unit " may not include " included " of " other)
}
function may_use_hdf5(file) { return file ~ /^platform\/sim\/impl\/store\/|^tests\/sim\/|^(tests|tools)\/mpi\/|^bench\/(peers\/Hdf5Peer|rows_on_ranks)/ }
function check_foreign(file, line, header) {
  if (exists(header) || exists("platform/" header)) fail(file ":" line ": " header " is ours, and included with quotes")
  if (header == "blis.h" && file !~ /^blac\/impl\//) fail(file ":" line ": only blac/impl/ includes blis.h")
  if (header ~ /^(dmumps_c|scotch)\.h$/ && file !~ /^solve\/(impl|mumps)\/|^tools\/mpi\/|^bench\/peers\/mumps_peer/) fail(file ":" line ": only solve/ and tools/mpi/ include " header)
  if (header == "hdf5.h" && !may_use_hdf5(file)) fail(file ":" line ": only platform/sim/impl/store/ includes hdf5.h")
  if (header ~ /^(petsc|slepc|mpi)[a-z]*\.h$/ && file !~ /^(tests|tools)\/mpi\/|^bench\/peers\//) fail(file ":" line ": only tools/mpi/ includes " header)
  if (header == "png.h" && file !~ /^(tests\/)?tools?\//) fail(file ":" line ": only tools/ includes png.h")
  if (header ~ /^CLI\// && file !~ /^tools\//) fail(file ":" line ": only tools/ includes CLI")
}
FILENAME == "-" {
  file = $0; ++files
  if (unit_for(file) == "") fail(file " belongs to no room of docs/architecture.md")
  for (line = 1; (getline text < file) > 0; ++line) {
    if (text ~ /(^|[^A-Za-z0-9_])(H5[A-Z]+[a-z]|H5[A-Z]*_[A-Z]|h(id|err|size|ssize|addr)_t)/ &&
        !may_use_hdf5(file) && file !~ /^bench\//) # its tables print the names of what it compares with
      fail(file ":" line ": only platform/sim/impl/store/ uses names of HDF5")
    if (text !~ /^[ \t]*#[ \t]*(include|import)/) continue
    if (match(text, /^#include "[^"]+"/)) check(file, line, substr(text, 11, RLENGTH - 11))
    else if (match(text, /^#include <[^>]+>/)) check_foreign(file, line, substr(text, 11, RLENGTH - 11))
    else fail(file ":" line ": an include is written as #include \"...\" or #include <...>")
  }
  close(file)
}
END {
  if (files < 20) fail("only " files " sources found: is this the root of the project?")
  if (failed) exit 1
  print files " sources keep to the levels"
}' docs/architecture.md -
