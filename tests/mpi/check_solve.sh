#!/usr/bin/env bash
# check_solve.sh ORXMTX ORXMTX_MPI COMMAND...: displacements and reactions of orxmtx-mpi, which COMMAND... starts on some
# ranks, against those of orxmtx; what neither of them solves; and files that stay as they were.
set -euo pipefail
orxmtx=$1 program=$2
shift 2
on_ranks=("$@")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# A lattice of bars between 5 x 4 x 3 nodes of 3 unknowns, the nodes in random order. lattice.txt has the lower triangle,
# unsymmetric.txt all of a matrix that is not symmetric; the first layer of nodes is held, one of them moved.
awk 'BEGIN {
  srand(5); nx = 5; ny = 4; nz = 3; count = nx * ny * nz
  for (p = 0; p < count; ++p) place[p] = p
  for (p = count - 1; p > 0; --p) { q = int(rand() * (p + 1)); t = place[p]; place[p] = place[q]; place[q] = t }
  for (p = 0; p < count; ++p) at[place[p]] = p
  for (p = 0; p < count; ++p) {
    i = p % nx; j = int(p / nx) % ny; k = int(p / (nx * ny))
    node[place[p]] = i " " j " " k
    for (c = 1; c <= 3 && i == 0; ++c) print 3 * place[p] + c (c == 3 && j == 0 ? "=0.01" : "") >"fix.txt"
    for (d = 14; d < 27; ++d) {
      e[0] = d % 3 - 1; e[1] = int(d / 3) % 3 - 1; e[2] = int(d / 9) - 1
      if (i + e[0] < 0 || i + e[0] >= nx || j + e[1] < 0 || j + e[1] >= ny || k + e[2] < 0 || k + e[2] >= nz) continue
      q = p + e[0] + nx * e[1] + nx * ny * e[2]
      s = 1000 * (1 + rand()) / (e[0]^2 + e[1]^2 + e[2]^2)
      for (r = 0; r < 3; ++r) for (c = 0; c < 3; ++c) {
        v = s * e[r] * e[c]; a = 3 * place[p]; b = 3 * place[q]
        K[a + r, a + c] += v; K[b + r, b + c] += v; K[a + r, b + c] -= v; K[b + r, a + c] -= v
      }
    }
  }
  for (p = 0; p < count; ++p) print node[p] >"nodes.txt"
  for (key in K) {
    split(key, at, SUBSEP)
    if (at[1] >= at[2]) printf "%d %d %.17g\n", at[1] + 1, at[2] + 1, K[key] >"lattice.txt"
    printf "%d %d %.17g\n", at[1] + 1, at[2] + 1, K[key] * (at[1] > at[2] ? 1.1 : 1) + (at[1] == at[2] ? 10 : 0) >"unsymmetric.txt"
  }
  printf "%%%%MatrixMarket matrix array real general\n%d 3\n", 3 * count >"loads.mtx"
  for (l = 0; l < 9 * count; ++l) printf "%.17g\n", 2 * rand() - 1 >"loads.mtx"
  for (l = 0; l < 3 * count; ++l) print rand() >"load.txt"
}'
printf '1 1 1\n2 1 -1\n2 2 1\n4 4 3\n5 5 2\n6 5 -2\n6 6 2\n' >chains.txt # two free chains, and nothing at unknown 3
printf '1\n0\n0\n0\n0\n1\n' >chains-load.txt

failed=0
fail() { echo "FAILED: $*"; failed=1; }
solve() { "${on_ranks[@]}" "$program" solve "$@"; }

# agrees LIMIT ARGUMENTS...: the same rows, and values that differ by the limit of the largest in their column.
agrees() {
  local limit=$1
  shift
  "$orxmtx" solve "$@" >expected.txt 2>expected.err || { cat expected.err; fail "orxmtx solve $*"; }
  solve "$@" >found.txt 2>found.err || { cat found.err; fail "solve $*"; }
  compare "$limit" expected.txt found.txt || fail "solve $*: other values"
}
compare() {
  awk -v limit="$1" 'function size(x) { return x < 0 ? -x : x }
    /^#/ { next }
    FNR == NR { line[++lines] = $0; for (c = 2; c <= NF; ++c) if (size($c) > largest[c]) largest[c] = size($c); next }
    { split(line[++found], expected); if (expected[1] != $1 || expected[2] == "") bad = 1
      for (c = 2; c <= NF; ++c) if (!(size($c - expected[c]) <= limit * largest[c])) bad = 1 }
    END { exit bad || lines == 0 || found != lines }' "$2" "$3"
}
agrees 1e-10 lattice.txt loads.mtx --fix fix.txt
agrees 1e-10 unsymmetric.txt load.txt
agrees 1e-10 unsymmetric.txt loads.mtx --fix fix.txt
seq 180 >all.txt
agrees 1e-10 lattice.txt loads.mtx --fix all.txt
for line in '# eigenvalues: 0 negative, 0 zero, 144 positive' '# held by fix.txt: 36 unknowns, 144 free'; do
  solve lattice.txt load.txt --fix fix.txt >found.txt
  grep -qF -e "$line" found.txt || fail "no line '$line'"
done

# Conjugate gradients stop at 1e-10 of the load.
"$orxmtx" solve lattice.txt loads.mtx --fix fix.txt >expected.txt
for nodes in '' '--coordinates nodes.txt'; do
  # shellcheck disable=SC2086 # words
  solve lattice.txt loads.mtx --fix fix.txt --solver cg $nodes >found.txt || fail "cg $nodes"
  compare 1e-8 expected.txt found.txt || fail "cg $nodes: other values"
done

# A database of results, and one that stays as it was when nothing comes of the work.
solve lattice.txt loads.mtx out.sim --fix fix.txt --reactions reactions.mtx >/dev/null || fail 'results in files'
"$orxmtx" solve lattice.txt loads.mtx serial.mtx --fix fix.txt --reactions serial-reactions.mtx >/dev/null
"$orxmtx" cmp out.sim serial.mtx --tolerance 1e-9 --absolute 1e-15 >/dev/null || fail 'displacements in a database'
"$orxmtx" cmp reactions.mtx serial-reactions.mtx --tolerance 1e-9 --absolute 1e-10 >/dev/null || fail 'reactions in a file'

# refused CODE TEXT ARGUMENTS...: one message, that exit code, and the results of before.
refused() {
  local code=$1 text=$2 found=0
  shift 2
  cp out.sim before.sim
  solve "$@" >/dev/null 2>found.err || found=$?
  [ "$found" = "$code" ] || fail "exit code $found of solve $*, expected $code"
  [ "$(grep -c '^orxmtx-mpi: ' found.err)" = 1 ] || fail "not one message of solve $*: $(cat found.err)"
  grep -qF -e "$text" found.err || fail "no '$text' in: $(grep '^orxmtx-mpi: ' found.err)"
  cmp -s out.sim before.sim || fail "solve $* changed a file"
}
refused 3 'K is singular, 6 motions without stiffness' lattice.txt load.txt out.sim
refused 3 'K is singular, 1 unknown has no stiffness: 3, 2 motions without stiffness' chains.txt chains-load.txt out.sim
refused 3 'K is singular, 1 unknown has no stiffness: 3' chains.txt chains-load.txt out.sim --solver cg
refused 3 'did not converge' lattice.txt load.txt out.sim --solver cg
refused 3 'not symmetric, which --solver cg needs' unsymmetric.txt load.txt out.sim --solver cg
refused 2 '--coordinates is for --solver cg' lattice.txt load.txt out.sim --coordinates nodes.txt
refused 1 'cannot read' lattice.txt load.txt out.sim --fix missing.txt
refused 2 'OUT names the input file' lattice.txt load.txt load.txt
[ "$failed" -eq 0 ]
