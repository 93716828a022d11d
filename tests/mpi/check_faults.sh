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

# Results of before, beside which nothing may be left.
kept() {
  for result in old.sim product.sim; do grep -qx "$result of before" "$result" || fail "$1 changed $result"; done
  if compgen -G '*.new*'; then fail "$1 left a file"; fi
}

# refused CODE TEXT ARGUMENTS...: one message that has the text, that exit code, and the results of before.
for result in old.sim product.sim; do echo "$result of before" >$result; done
refused() {
  local code=$1 text=$2 found=0
  shift 2
  timeout 60 "${on_ranks[@]}" "${limited[@]}" "$program" "$@" >/dev/null 2>found.err || found=$?
  [ "$found" = "$code" ] || fail "exit code $found of $*, expected $code"
  [ "$(grep -c '^orxmtx-mpi: ' found.err)" = 1 ] || fail "not one message of $*: $(cat found.err)"
  grep -qF -e "$text" found.err || fail "no '$text' in: $(grep '^orxmtx-mpi: ' found.err)"
  kept "$*"
}
limited=()
cp disk-model.sim cut.sim
truncate -s -100000 cut.sim
refused 1 'truncated file' info cut.sim:M
refused 1 'truncated file' modes cut.sim --shapes old.sim
cp disk-model.sim due.sim
printf orxapply | dd of=due.sim conv=notrunc status=none
refused 1 'has a commit that was cut off' info due.sim:M
[ "$(head -c 8 due.sim)" = orxapply ] || fail 'a file with an unfinished commit was changed'
refused 1 "holds no matrix 'X'" info disk-model.sim:X
refused 2 'no command' count disk-model.sim
refused 2 '--scheme' info --scheme disk-model.sim

# A chain of 600 masses, of which three weigh something; and one whose triangles differ.
awk 'BEGIN { for (i = 1; i <= 600; ++i) {
  print i, i, 2 >"chain.txt"; print i, i, 2 >"skew.txt"; print i, i, i % 200 == 100 >"masses.txt"
  if (i < 600) { print i + 1, i, -1 >"chain.txt"; print i + 1, i, -1 >"skew.txt"; print i, i + 1, -1 - (i == 7) / 9 >"skew.txt" }
} }'
printf '%%%%MatrixMarket matrix coordinate real symmetric\n3 3 1\n3 3 1\n' >three.mtx
refused 1 'has order 600, expected the same' modes chain.txt three.mtx --shapes old.sim
refused 1 'the matrix is not symmetric: (8, 7) = -1' modes skew.txt masses.txt --shapes old.sim
"${on_ranks[@]}" "$program" modes chain.txt masses.txt -n 10 --shapes few.sim >found.txt || fail 'more modes than there are'
[ "$(grep -c '^ ' found.txt)" = 3 ] || fail "not the three modes that there are: $(cat found.txt)"

# The disk of the root takes files of 4.3 MB, the product is one of 4.6. (The memory that ranks share is a file, too.)
{ printf '%%%%MatrixMarket matrix array real general\n48240 12\n'; seq 578880; } >loads.mtx
"$orxmtx" solve disk-model.sim:M loads.mtx twelve.sim >/dev/null || fail 'twelve columns'
limited=(bash -c '[ "$OMPI_COMM_WORLD_RANK" != 0 ] || ulimit -f 4200; exec "$@"' -)
refused 3 'product.sim' multiply disk-model.sim:M twelve.sim:0/0 product.sim
limited=()

# stopped SIGNAL VICTIM ARGUMENTS...: work for old.sim in which the root, the last rank or mpirun gets a signal ends.
stopped() {
  local signal=$1 victim=$2 beside='' run mpirun
  shift 2
  timeout 60 "${on_ranks[@]}" "$program" "$@" >/dev/null 2>found.err &
  run=$!
  until beside=$(compgen -G 'old.sim.new*'); do
    kill -0 $run || { fail "$* ended by itself: $(cat found.err)"; return; }
    sleep 0.1
  done
  sleep 0.5
  mpirun=$(pgrep -P $run)
  case $victim in
    root) victim=${beside##*.new} ;;
    last) victim=$(pgrep -P "$mpirun" orxmtx-mpi | grep -vx "${beside##*.new}" | tail -n 1) ;;
    mpirun) victim=$mpirun ;;
  esac
  SECONDS=0
  kill -s "$signal" "$victim"
  if wait $run; then fail "$1 went on without $victim"; fi
  [ $SECONDS -lt 20 ] || fail "ranks of $1 hung for $SECONDS s"
  kept "$signal in $1"
}
modes=(modes disk-model.sim -n 200 --shapes old.sim)
stopped KILL last "${modes[@]}"
stopped KILL root "${modes[@]}"
stopped TERM mpirun "${modes[@]}"
stopped KILL last solve disk-model.sim:K loads.mtx old.sim
[ "$failed" -eq 0 ]
