#!/usr/bin/env bash
# Makes a minimal Debian 12 and lets apt install the packages there: first the program and the
# Python package, which bring what they need, then what clients are built with. Removing leaves
# nothing. As root. try_packages.sh PACKAGES FOLDER
set -euo pipefail
packages=$(realpath "$1") debian=$(realpath -m "$2")
source=$(realpath "$(dirname "$0")/../..")

# The mirror of this machine, as apt has it.
mirror=$(apt-get indextargets --format '$(REPO_URI)' \
  'Created-By: Packages' 'Codename: bookworm' 'Component: main' | head -n 1)
[ -n "$mirror" ] || { echo "apt knows no mirror of bookworm: apt-get update" >&2; exit 1; }
rm -rf --one-file-system "$debian"
mkdir -p "$debian"
debootstrap --variant=minbase bookworm "$debian" "$mirror"
mkdir -p "$debian"/try/client
cp "$packages"/*.deb "$debian/try"
cp "$source/examples/01_first_steps.c" "$debian/try/client/main.c"
awk '$0 == "```cmake" {on = 1; next} /^```/ {on = 0} on' "$source/README.md" \
  >"$debian/try/client/CMakeLists.txt"

cat >"$debian/try/use" <<'USE'
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 OPENBLAS_NUM_THREADS=1
export OMPI_MCA_mpi_yield_when_idle=1
quietly() { "$@" >/try/log 2>&1 || { cat /try/log; exit 1; }; }
get() { quietly apt-get install -y -qq --no-install-recommends "$@"; }
cd /try
# Some minimal systems leave out manual pages and documentation.
rm -f /etc/dpkg/dpkg.cfg.d/*
quietly apt-get update -qq

echo "== ves-tools, python3-ves"
get ./libves0_*.deb ./ves-tools_*.deb ./python3-ves_*.deb
ves solve --model laplace2d:20x20 -k 4
ves info
python3 -c "import numpy, scipy.sparse as sparse, ves
values, vectors = ves.eigsh(sparse.diags(numpy.arange(1.0, 201.0)), k=4)
assert numpy.allclose(values, [1, 2, 3, 4], atol=1e-10), values"
mpirun --allow-run-as-root --oversubscribe -np 2 ves solve --model laplace2d:20x20 -k 4 --quiet

echo "== libves-dev, libves-doc"
get man-db gcc g++ cmake make pkg-config libscalapack-openmpi-dev ./libves-dev_*.deb \
  ./libves-doc_*.deb
man -w ves
grep -q '<title>' /usr/share/doc/libves-doc/html/index.html
gcc client/main.c $(pkg-config --cflags --libs ves) -lscalapack-openmpi -o main
./main
quietly cmake -S client -B client/build
quietly cmake --build client/build
client/build/main

echo "== removal"
quietly apt-get purge -y -qq libves0 libves-dev libves-doc ves-tools python3-ves
left=$(find /usr /etc /var/lib -name 'ves*' -o -name 'libves*' -o -name 'python3-ves*')
[ -z "$left" ] || { echo "left behind: $left"; exit 1; }
USE

# The mounts end with the processes.
unshare --mount --pid --fork bash -euo pipefail -c '
  mount -t proc proc "$1/proc"
  mount -t sysfs sysfs "$1/sys"
  mount -t tmpfs tmpfs "$1/dev/shm"
  exec chroot "$1" /bin/bash /try/use' bash "$debian"
rm -rf --one-file-system "$debian"
echo "the packages work on a fresh Debian 12"
