#!/usr/bin/env bash
# Builds in the folder of the sources, $SRC_DIR, and installs into $PREFIX with its Python, as
# conda-build sets them. The package of Python finds the library beside site-packages.
set -euo pipefail
cd "$SRC_DIR"
cmake -S . -B build/conda -G Ninja ${CMAKE_ARGS:-} -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX="$PREFIX" -DCMAKE_INSTALL_LIBDIR=lib -DCMAKE_PREFIX_PATH="$PREFIX" \
  -DVES_BUILD_TESTS=OFF -DVES_BUILD_EXAMPLES=OFF
cmake --build build/conda --parallel "${CPU_COUNT:-2}"
for component in library development tools; do
  cmake --install build/conda --component "$component"
done
"${PYTHON:-python3}" -m pip install --no-deps --no-build-isolation --no-index \
  --prefix "$PREFIX" bindings/python
