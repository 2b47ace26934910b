#!/usr/bin/env bash
# Installs the library into a fresh prefix and builds clients that know only that prefix: the
# listings of the READMEs by CMake package, and those on classes of their own by pkg-config.
# check_install.sh BUILD_DIR SOURCE_DIR WORK_DIR MPIRUN...
set -euo pipefail
build=$1 source=$2 work=$3
shift 3
export OPENBLAS_NUM_THREADS=1
rm -rf "$work"
mkdir -p "$work"/{readme,first}
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
pc=$(find "$prefix" -name ves.pc)
export PKG_CONFIG_PATH=$(dirname "$pc") LD_LIBRARY_PATH=$(dirname "$(dirname "$pc")")

# The README's programs, CMakeLists.txt and command lines as they stand there.
listing() { awk -v lang="$1" '$0 == "```" lang {on = 1; next} /^```/ {on = 0} on' "$2"; }
listing python "$source/README.md" | diff - "$source/docs/listings/first_steps.py"
cp "$source/examples/01_first_steps.c" "$work/readme/main.c"
listing cmake "$source/README.md" >"$work/readme/CMakeLists.txt"
listing cpp "$source/README.md" >"$work/first/main.cpp"
sed 's/main\.c/main.cpp/' "$work/readme/CMakeLists.txt" >"$work/first/CMakeLists.txt"
diff "$work/first/main.cpp" "$source/examples/01_first_steps.cpp"

build_with_cmake() {
  cmake -S "$1" -B "$1/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >"$1/log" 2>&1 &&
    cmake --build "$1/build" >>"$1/log" 2>&1 || { cat "$1/log"; exit 1; }
}
build_with_cmake "$work/readme"
"$work/readme/build/main" >"$work/readme/values"
build_with_cmake "$work/first"
"$work/first/build/main" | diff - "$work/readme/values"
listing sh "$source/README.md" | sed "s|PREFIX|$prefix|g; /-o main\$/a ./main | diff - ../readme/values" \
  >"$work/first/lines"
(cd "$work/first" && env -u LD_LIBRARY_PATH bash -euo pipefail lines)

if [ -f "$prefix/include/fortran/ves.mod" ]; then
  mkdir "$work/fortran"
  listing fortran "$source/bindings/fortran/README.md" >"$work/fortran/main.f90"
  listing cmake "$source/bindings/fortran/README.md" >"$work/fortran/CMakeLists.txt"
  diff "$work/fortran/main.f90" "$source/examples/01_first_steps.f90"
  build_with_cmake "$work/fortran"
  "$work/fortran/build/main"
  (cd "$work/fortran" && mpifort main.f90 $(pkg-config --cflags --libs ves-fortran) \
    -lscalapack-openmpi -llapack -lblas -o makefile_main && ./makefile_main)
fi

for program in own_operator own_test own_solver; do
  g++ -std=c++17 -Wall -Wextra -Werror "$source/docs/listings/$program.cpp" \
    $(pkg-config --cflags --libs ves) -lscalapack-openmpi -llapack -lblas -o "$work/$program"
  "$work/$program"
  "$@" -np 2 "$work/$program"
done

# One header of its own per class: each compiles alone, and ves.h in strict C11.
for header in $(cd "$prefix/include" && find ves ves*.hpp -name '*.h*'); do
  echo "#include <$header>" | g++ -std=c++17 -fsyntax-only $(pkg-config --cflags ves) -x c++ -
done
echo '#include <ves.h>' | gcc -std=c11 -Wall -Wextra -Wpedantic -Werror -fsyntax-only $(pkg-config --cflags ves) -x c -

# No C name of the libraries' inside leaks out, and their code is shared as it stands in the file.
for library in "$LD_LIBRARY_PATH"/lib*.so; do
  if nm -D --defined-only "$library" | awk '$2 == "T" {print $3}' | grep -vE '^(Ves|_Z|__ves)'; then
    echo "$library exports names that are not its interface"
    exit 1
  fi
  if readelf -d "$library" | grep TEXTREL; then
    echo "$library has to be changed where it is loaded"
    exit 1
  fi
done
echo "clients of the installed package work"
