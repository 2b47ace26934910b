#!/usr/bin/env bash
# Which kernels the program and Python take from an OpenBLAS that does not know the processor, and
# what they say of older ones: check_kernels.sh VES PYTHON OTHER_KERNELS MPIRUN...
set -uo pipefail
ves=$1 python=$2 other=$3
shift 3
mpirun=("$@")
unset OPENBLAS_CORETYPE VES_KERNELS
failures=0

runs() {
  local flag
  for flag in "$@"; do
    grep -m1 '^flags' /proc/cpuinfo | grep -qw "$flag" || return 1
  done
}
best=Prescott next=Prescott
! runs avx2 fma || best=Haswell
! runs avx2 fma avx512f avx512dq avx512bw avx512vl avx512cd || best=SkylakeX next=Haswell

program() { timeout 60 env LD_PRELOAD="$other" "$@"; }
loaded() { program "$@" "$python" -c "import ves; print(ves._kernels.kernels_in_use())"; }

# same WANTED FOUND WHAT
same() {
  [ "$1" = "$2" ] || { echo "FAILED: '$2', not '$1': $3"; failures=$((failures + 1)); }
}

# both KERNELS NAME=VALUE...: what is in use in that environment.
both() {
  local wanted=$1
  shift
  same "$wanted" "$(program "$@" "$ves" info --kernels 2>&1)" "program, $*"
  same "$wanted" "$(loaded "$@" 2>&1)" "Python, $*"
}

both "$best"
both Prescott OPENBLAS_CORETYPE=
both Prescott OPENBLAS_CORETYPE=Prescott
for routine in sgemm_ dgemm_ cgemm_ zgemm_; do
  both "$next" WRONG_PRODUCTS="$best:$routine"
done
both "$next" CRASHING_KERNELS="$best"
both "$next" LACKING_KERNELS="$best"
both Prescott CRASHING_KERNELS=SkylakeX WRONG_PRODUCTS=Haswell:dgemm_
# Started anew once and no more, whatever that came to.
same Prescott "$(program VES_KERNELS="$best" "$ves" info --kernels)" "second start"

# said COUNT TEXT COMMAND...: lines of what is printed that hold the text.
said() {
  local count=$1 text=$2
  shift 2
  same "$count" "$("$@" 2>&1 | grep -cF -- "$text")" "lines with $text, $*"
}

advised=1
[ "$best" != Prescott ] || advised=0
old=OPENBLAS_CORETYPE=Prescott
said "$advised" "OPENBLAS_CORETYPE=$best" program $old "$ves" info
said "$advised" "OPENBLAS_CORETYPE=$best" program $old "$ves" solve --model laplace1d:9 -k 1
said 0 "OPENBLAS" program $old "$ves" solve --model laplace1d:9 -k 1 --quiet
said "$advised" "$best" program CRASHING_KERNELS="$best" "$ves" info
said 0 "OPENBLAS_CORETYPE" program "$ves" info
said 1 "2 processes" program "${mpirun[@]}" -np 2 "$ves" solve --model laplace1d:9 -k 1
twice="import numpy, ves; [ves.eigsh([[2, 1], [1, 2]], k=1) for _ in '12']"
said "$advised" "KernelWarning: OpenBLAS uses its kernels" program "$python" -W always -c "$twice"
said 0 "Warning" program "$python" -c "import ves; ${twice#*; }"
said 0 "Warning" program $old "$python" -W "ignore:OpenBLAS" -c "$twice"
said 0 "OPENBLAS_CORETYPE" program "$python" -c "import os, ves; print(os.environ)"

[ "$failures" -eq 0 ] && echo "the best kernels here are those for $best"
exit "$failures"
