#!/usr/bin/env bash
# The program ves as its users call it, on some number of processes: results, files, complaints and
# exit codes. check_commands.sh VES FOLDER COMMAND... where COMMAND starts the processes.
set -uo pipefail
ves=$1 folder=$2
shift 2
start=("$@")
processes=1
[ $# -eq 0 ] || processes=${!#}
rm -rf "$folder"
mkdir -p "$folder"
cd "$folder" || exit 1
failures=0

fail() {
  echo "FAILED: $*"
  sed 's/^/  | /' output
  failures=$((failures + 1))
}

# expect CODE TEXT ARGUMENT...: the program ends with the code, and its output holds the text.
expect() {
  local code=$1 text=$2 found
  shift 2
  timeout 60 "${start[@]}" "$ves" "$@" >output 2>&1
  found=$?
  [ "$found" -eq "$code" ] || fail "exit code $found, not $code: ves $*"
  [ -z "$text" ] || grep -qF -- "$text" output || fail "'$text' is missing: ves $*"
}

on_one_process() {
  local start=()
  "$@"
}

# values FILE: the eigenvalues of a result file, one on each line.
values() { sed -n '/"eigenvalues": \[/,/\]/p' "$1" | grep -oE '[-0-9.e+]+,?$' | tr -d ,; }

# agree FILE TOLERANCE [FACTOR]: the eigenvalues, multiplied, with the numbers in the file exact.
agree() {
  values "$1" | paste - exact | awk -v tolerance="$2" -v factor="${3:-1}" '
    NF != 2 { bad = 1 } { d = $1 * factor - $2; if (d < 0) d = -d; if (!(d <= tolerance)) bad = 1 }
    END { exit bad || NR == 0 }' || { values "$1" | paste - exact >output; fail "values of $1"; }
}

# tridiagonal N DIAGONAL BESIDE: a symmetric Matrix Market file.
tridiagonal() {
  awk -v n="$1" -v d="$2" -v b="$3" 'BEGIN {
    print "%%MatrixMarket matrix coordinate real symmetric"; print n, n, 2 * n - 1
    for (i = 1; i <= n; ++i) { print i, i, d; if (i < n) print i + 1, i, b } }'
}

# chain N K MASS: the lowest values of stiffness (2, -1), with the mass matrix (4, 1)/6 for MASS 1.
chain() {
  awk -v n="$1" -v k="$2" -v mass="$3" 'BEGIN { pi = atan2(0, -1)
    for (j = 1; j <= k; ++j) { c = cos(pi * j / (n + 1)); printf "%.15g\n", (2 - 2 * c) / (mass ? (2 + c) / 3 : 1) } }'
}

# What one process alone decides, or what differs in no way on several, is tried on one: each start of
# mpirun takes a second.
tampered_results() {
  sed 's/a.x"/twice.x"/' results/a.json >results/twice.json
  awk 'NR == 103 { exit } { print } ' results/a.x >results/column
  { cat results/column; awk 'NR > 2' results/column; awk 'NR > 202' results/a.x; } >results/twice.x
  expect 1 "WRONG  orthogonality" check results/twice.json
  sed '50s/.*/bad/' results/a.x >results/twice.x
  expect 3 "twice.x:50: 'bad' is not a number" check results/twice.json
  expect 0 "" solve a.mtx -k 4 --detector eigenvalues --tol 1e-12 --json values.json --vectors values.x
  expect 0 "of eigenvalues" check values.json
  sed '/"eigenvalues": \[/,/]/ s/0\.00[0-9]*/0.0012/' values.json >moved.json
  expect 1 "WRONG  residuals" check moved.json
  rm results/twice.x
  expect 3 "twice.x: cannot be read" check results/twice.json
  echo '{"problem": 3}' >bad.json
  expect 3 "bad.json" check bad.json
}

wrong_options() {
  expect 2 "nan" solve a.mtx --tol nan
  expect 2 "required" solve
  expect 2 "OUT is required" convert a.mtx
  expect 2 "excludes" solve a.mtx --model laplace1d:5
  expect 2 "ic serves the lowest pairs" solve a.mtx --largest --precond ic
  expect 2 "--shift needs" solve a.mtx --shift 1
  expect 2 "--rr-period needs --solver ppcg" solve a.mtx --rr-period 3
  expect 2 "B: it is empty" solve a.mtx ""
  expect 2 "(did you mean solve?)" solv
  expect 2 "'40x40' does not have the number of sizes" solve --model laplace3d:40x40
  expect 2 "(did you mean laplace1d?)" solve --model laplace:3
  expect 2 "would drop imaginary parts" solve c.mtx --scalar double
  expect 2 "2 eigenvalues lie below" solve a.mtx --precond shift-invert --shift 0.005
  expect 2 "without inner steps" bench --forecast --inner 2
  expect 2 "take jacobi or none" bench --forecast --precond ic
  expect 2 "did you mean cluster" bench --forecast --machine clutser
  expect 2 "requires --forecast" bench --order 1e6
  expect 0 "shift-invert at" solve a.mtx b.mtx -k 20 --precond shift-invert
}

tridiagonal 100 2 -1 >a.mtx
tridiagonal 100 0.66666666666666667 0.16666666666666667 >b.mtx

# Results, their files, and the check of them on one process too.
mkdir results
expect 0 "8 of 8 pairs converged" solve a.mtx -k 8 --json results/a.json --vectors results/a.x \
  --plot results/a.svg --tol 1e-9
chain 100 8 0 >exact
agree results/a.json 1e-8
[ "$(grep -c '<path class="pair"\|<circle\|>threshold<' results/a.svg)" -eq 17 ] || fail "a picture without its lines"
expect 0 "good   residuals" check results/a.json
on_one_process expect 0 "good   orthogonality" check results/a.json
expect 0 "in 0 iterations" solve a.mtx -k 8 --start results/a.x
chain 100 12 0 | tail -4 >exact
gzip -k a.mtx
expect 0 "a.ves: 100 rows, 298 real entries" convert a.mtx.gz a.ves
[ "$(echo *.part)" = "*.part" ] || fail "a part of a file was left"
expect 0 "4 of 4" solve a.mtx.gz -k 4 --deflate results/a.x --json beside.json --tol 1e-9
agree beside.json 1e-8
expect 0 "iteration 0: 0 of 3 pairs" solve a.mtx -k 3 --precond none --progress
[ "$processes" -gt 1 ] || sed '1,/^residuals below/d' output | grep -q '^iteration 0' || fail "a late head"
"$ves" solve a.mtx -k 3 --json unread.json | true
[ -s unread.json ] || fail "a run ended with the reader of its head"
expect 0 "" solve a.mtx -k 3 --quiet
[ -s output ] && fail "--quiet was not"
chain 100 6 1 >exact
for solver in lobpcg lobpcg-batch ppcg; do
  expect 0 "6 of 6 pairs" solve a.mtx b.mtx --solver "$solver" --json "$solver.json" --tol 1e-9 --precond jacobi
  agree "$solver.json" 1e-8
done
expect 0 "6 largest pairs" solve a.ves b.mtx -k 6 --largest --tol 1e-9 --json top.json --vectors top.x
chain 100 100 1 | tac | head -6 >exact
agree top.json 1e-8
expect 0 "good   order" check top.json
# Steel in mm and tonnes, of values near 1e10.
tridiagonal 100 2e5 -1e5 >k.mtx
tridiagonal 100 5.2333333333333333e-9 1.3083333333333333e-9 >m.mtx
expect 0 "4 of 4 pairs" solve k.mtx m.mtx -k 4 --detector relative-residuals --tol 1e-4 --json steel.json
chain 100 4 1 >exact
agree steel.json 1e-7 7.85e-14
expect 0 "preconditioner ic" solve a.mtx --scalar float -k 4 --precond ic
expect 0 "in single precision" solve a.mtx -k 4 --precond inner --guard 3 --inner 4
! "$ves" info | grep -q ", silicon" ||
  expect 0 "in single precision" solve --model silicon:ecut=5 -k 4
expect 2 "double precision" solve a.mtx --scalar float --precision mixed
expect 2 "--inner" solve a.mtx --inner many
expect 0 "complex-float" solve a.mtx --scalar complex-float -k 4 --tol 1e-3 --ortho svd-qr \
  --json cf.json --vectors cf.x
expect 0 "good   residuals" check cf.json

# Fewer rows than processes, complex numbers, a repeated value.
printf '%%%%MatrixMarket matrix coordinate complex hermitian\n3 3 4\n1 1 2 0\n2 1 0 1\n2 2 2 0\n3 3 1 0\n' >c.mtx
expect 0 "3 of 3 pairs" solve c.mtx -k 3 --json c.json --vectors c.x
printf '1\n1\n3\n' >exact
agree c.json 1e-8
expect 0 "good   order" check c.json

# A ring of six vertices.
printf '# ring\n0 1\n1 2\n2 3\n3 4\n4 5\n5 0\n' >ring.txt
printf '0\n1\n1\n' >exact
expect 0 "3 of 3" solve --model graph:ring.txt -k 3 --json results/ring.json --vectors results/ring.x
agree results/ring.json 1e-8
expect 0 "good   residuals" check results/ring.json
expect 0 "lobpcg-batch" bench --model laplace2d:12x10 -k 5
expect 0 "lobpcg on " bench --forecast --model laplace2d:12x10 -k 5 --order 1e12 --json far.json
grep -q '"fastestOn"' far.json || fail "a forecast without its file"
expect 0 "BLAS" info
expect 0 "Exit codes" --help

# Results that are wrong or have lost a file.
sed 's/"\(eigenvalues\|residuals\)": \[/&\n  0.25,/; s/"converged": 8,/"converged": 9,/' results/a.json >results/more.json
expect 3 "8 vectors for 9 eigenvalues" check results/more.json
sed '/"eigenvalues"/,/]/ s/0\.00[0-9]*/0.0012/' results/a.json >results/wrong.json
expect 1 "WRONG  residuals" check results/wrong.json
[ "$processes" -gt 1 ] || tampered_results
expect 1 "try         --precond" solve a.mtx -k 3 --max-iter 1 --precond none
expect 1 "stand at the rounding of ||A||" solve a.mtx -k 3 --tol 1e-18
expect 1 "stopped by the time limit" solve a.mtx -k 3 --precond none --time-limit 1e-9 --json stopped.json --vectors stopped.x
expect 1 "WRONG  convergence" check stopped.json

# Complaints: options, then files.
expect 2 "more than the order" solve a.mtx -k 101
expect 2 "--tolerance (did you mean --tol?)" solve a.mtx --tolerance 1
if [ "$processes" -eq 1 ]; then
  wrong_options
else
  expect 2 "one process" solve a.mtx --precond shift-invert
fi
expect 3 "cannot be read" solve missing.mtx
head -c 200 a.mtx.gz >cut.gz
expect 3 "cut.gz: cannot be unpacked: the file ends too early" solve cut.gz
expect 3 "cannot be written" solve a.mtx --json nowhere/a.json
expect 3 "written over a.mtx" solve a.mtx --vectors ./a.mtx
expect 3 "written over a.mtx" convert a.mtx ./a.mtx
expect 3 "/dev/full: is not a regular file" convert a.mtx /dev/full
expect 3 "nowhere/a.ves: cannot be written" convert a.mtx nowhere/a.ves
head -c 1000 a.ves >cut.ves
expect 3 "cut.ves: the file has 1000 bytes" solve a.mtx cut.ves
expect 3 "written over same" solve a.mtx --vectors same --json same
mkfifo pipe
expect 3 "pipe: is not a regular file" solve pipe
expect 3 "pipe: is not a regular file" check pipe
# A full disk takes the vectors, but not the values.
expect 3 "/dev/full: cannot be written" solve a.mtx -k 2 --vectors /dev/full --json full.json
grep -q "2 of 2 pairs" output || fail "no report beside a full disk"
[ "$(values full.json | wc -l)" -eq 2 ] || fail "no result file beside a full disk"
timeout 60 "${start[@]}" "$ves" info >/dev/full 2>output
[ $? -ne 0 ] || [ "$processes" -gt 1 ] || fail "a report was lost in silence"
sed '7s/.*/1 two 3/' a.mtx >bad.mtx
expect 3 "bad.mtx:7: expected the number of a column, found 'two'" solve bad.mtx
expect 3 "bad.mtx:7:" solve a.mtx bad.mtx
[ "$(grep -c 'bad.mtx:7' output)" -eq 1 ] || fail "more than one message"
expect 3 "order 3, but A of order 100" solve a.mtx c.mtx
sed '3s/.*/1 1 -1/' b.mtx >indefinite.mtx
expect 3 "B is not positive definite" solve a.mtx indefinite.mtx
sed '3s/.*/1 1 0.01/' b.mtx >indefinite.mtx
expect 3 "it has an eigenvalue of at most" solve a.mtx indefinite.mtx

[ "$failures" -eq 0 ] && echo "all commands did as expected on $processes process(es)"
exit "$failures"
