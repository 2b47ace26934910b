#!/usr/bin/env bash
# Makes the Debian packages of a finished build, and uses each as unpacked beside the library alone.
# check_packages.sh BUILD_DIR SOURCE_DIR WORK_DIR CPACK
set -euo pipefail
build=$1 source=$2 work=$3 cpack=$4
export OPENBLAS_NUM_THREADS=1
unset PYTHONPATH VES_LIBRARY VES_PROVIDER LD_LIBRARY_PATH PKG_CONFIG_PATH
rm -rf "$work"
mkdir -p "$work"
cd "$work"
"$cpack" --config "$build/CPackConfig.cmake" -B "$work" >cpack.log 2>&1 || { cat cpack.log; exit 1; }

fail() { echo "FAILED: $*"; exit 1; }

# unpack FOLDER PACKAGE...
unpack() {
  local folder=$1 package
  shift
  for package in "$@"; do dpkg-deb -x "$package"_*.deb "$folder"; done
}

# Every file of the installation is in one package, and in one only.
cmake --install "$build" --prefix "$work/installed" >/dev/null
(cd installed && find . ! -type d) | sort >expected
for package in *.deb; do dpkg-deb --fsys-tarfile "$package" | tar -t; done |
  grep -v -e '/$' -e '^./usr/share/doc/' | sed -e 's|^./usr/|./|' -e 's|\.gz$||' | sort >packed
diff expected packed || fail "the packages (>) hold other files than an installation (<)"

unpack libves0 libves0
stray=$(find libves0 ! -type d ! -name 'lib*.so.0*' ! -path '*/doc/*')
[ -z "$stray" ] || fail "not of a shared library: $stray"

# requires PACKAGE PATTERN...: each pattern fits one of what the package depends on.
requires() {
  local package=$1 pattern
  shift
  for pattern in "$@"; do
    dpkg-deb -f "$package"_*.deb Depends | tr , '\n' | grep -E "^ ?$pattern" >/dev/null ||
      fail "$package does not depend on $pattern"
  done
}
same="libves0 \(= $(dpkg-deb -f libves0_*.deb Version)\)$"
requires libves0 libopenmpi3
requires libves-dev "$same" libopenmpi-dev
requires ves-tools "$same" libopenmpi3 libscalapack-openmpi
requires python3-ves "$same" python3-numpy python3-scipy libscalapack-openmpi

# enter PACKAGE: unpacks it with the library, into a folder of its own that the loader knows.
enter() {
  root=$work/$1/usr
  unpack "$work/$1" libves0 "$1"
  export LD_LIBRARY_PATH=$(dirname "$(find "$root" -name libves.so.0)")
}

enter ves-tools
ldd "$root/bin/ves" | grep "$root/lib.*libves.so.0" >/dev/null || fail "the program loads another libves"
"$root/bin/ves" solve --model laplace2d:20x20 -k 4
zcat "$root/share/man/man1/ves.1.gz" | grep 'ves solve' >/dev/null
bash -n "$root/share/bash-completion/completions/ves"
zcat "$root/share/doc/ves-tools/changelog.gz" | diff - "$source/CHANGELOG.md"

enter python3-ves
PYTHONPATH=$root/lib/python3/dist-packages /usr/bin/python3 -B -c "
import numpy, scipy.sparse, ves
values, vectors = ves.eigsh(scipy.sparse.diags(numpy.arange(1.0, 201.0)), k=4)
assert numpy.allclose(values, [1, 2, 3, 4], atol=1e-10), values
assert ves.__file__.startswith('$root/'), ves.__file__
assert '$root/lib' in open('/proc/self/maps').read(), 'another libves was loaded'"

enter libves-dev
export PKG_CONFIG_PATH=$LD_LIBRARY_PATH/pkgconfig
gcc "$source/examples/01_first_steps.c" $(pkg-config --cflags --libs ves) -lscalapack-openmpi -o main
ldd main | grep "$root/lib.*libves.so.0" >/dev/null || fail "the C program loads another libves"
./main
g++ "$source/examples/01_first_steps.cpp" $(pkg-config --cflags --libs ves) -lscalapack-openmpi \
  -llapack -lblas -o main_cpp
./main_cpp
if [ -f installed/include/fortran/ves.mod ]; then
  mpifort "$source/examples/01_first_steps.f90" $(pkg-config --cflags --libs ves-fortran) \
    -lscalapack-openmpi -llapack -lblas -o main_fortran
  ./main_fortran
fi

# No file of text points back to where it was built.
if found=$(grep -rIl -e "$build" -e "$source" "$work"/{ves-tools,python3-ves,libves-dev}); then
  fail "the folder of the build is named in $found"
fi
echo "the packages work"
