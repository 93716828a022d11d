#!/usr/bin/env bash
# check_faults.sh ORXMTX ORXMTX_MPI BLADED_DISK COMMAND...: what files that are cut off or damaged, and ranks that die, do
# to orxmtx-mpi, which COMMAND... starts on some ranks: one message, an exit code, no hang, files as before.
set -euo pipefail
orxmtx=$1 program=$2 assemble=$3
shift 3
on_ranks=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$assemble" assemble . >/dev/null

failed=0
fail() { echo "FAILED: $*"; failed=1; }

# On all ranks to the letter what one machine says.
for matrix in disk-model.sim:M disk-M.chk; do
  "$orxmtx" info "$matrix" >expected.txt
  "${on_ranks[@]}" "$program" info "$matrix" >found.txt || fail "info $matrix"
  diff expected.txt found.txt || fail "info $matrix says something else"
done
"$orxmtx" info - <disk-M.chk >expected.txt
"${on_ranks[@]}" "$program" info - <disk-M.chk | diff expected.txt - || fail 'info of standard input'

# refused CODE TEXT ARGUMENTS...: one message that has the text, and that exit code.
refused() {
  local code=$1 text=$2 found=0
  shift 2
  "${on_ranks[@]}" "$program" "$@" >/dev/null 2>found.err || found=$?
  [ "$found" = "$code" ] || fail "exit code $found of $*, expected $code"
  [ "$(grep -c '^orxmtx-mpi: ' found.err)" = 1 ] || fail "not one message of $*: $(cat found.err)"
  grep -qF -e "$text" found.err || fail "no '$text' in: $(grep '^orxmtx-mpi: ' found.err)"
}
cp disk-model.sim cut.sim
truncate -s -100000 cut.sim
refused 1 'truncated file' info cut.sim:M
cp disk-model.sim due.sim
printf orxapply | dd of=due.sim conv=notrunc status=none
refused 1 'has a commit that was cut off' info due.sim:M
[ "$(head -c 8 due.sim)" = orxapply ] || fail 'a file with an unfinished commit was changed'
refused 1 "holds no matrix 'X'" info disk-model.sim:X
refused 2 'no command' count disk-model.sim
refused 2 '--scheme' info --scheme disk-model.sim

# A rank is killed while all of them work: the others end too, and the result of before stays.
seq 48240 >load.txt
"${on_ranks[@]}" "$program" solve disk-model.sim:M load.txt out.sim >/dev/null || fail 'a solution'
cp out.sim before.sim
"${on_ranks[@]}" "$program" solve disk-model.sim:K load.txt out.sim >found.txt 2>&1 &
mpirun=$!
sleep 1.5
rank=$(pgrep -P "$mpirun" -f 'orxmtx-mpi solve' | tail -n 1)
kill -9 "$rank"
if wait "$mpirun"; then fail 'a killed rank went unnoticed'; fi
cmp -s out.sim before.sim || fail 'a killed rank changed the result of before'
[ "$failed" -eq 0 ]
