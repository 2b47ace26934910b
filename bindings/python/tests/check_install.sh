#!/usr/bin/env bash
# Installs the package in both ways and uses it as a stranger would: from a folder of its own, with
# nothing but what the documentation says in the environment.
# check_install.sh PYTHON BUILD_DIR PACKAGE_DIR WORK_DIR
set -euo pipefail
python=$1 build=$2 package=$3 work=$4
unset PYTHONPATH VES_LIBRARY VES_PROVIDER LD_LIBRARY_PATH
rm -rf "$work"
mkdir -p "$work"
cd "$work"

use='import ves, os
values, vectors = ves.eigsh([[2, 1], [1, 2]], k=1)
assert abs(values[0] - 1) < 1e-12
print(ves.__file__)'

# Beside the library, which the package finds by itself.
cmake --install "$build" --prefix "$work/prefix" >/dev/null
packages=$(dirname "$(dirname "$(find "$work/prefix" -path '*/ves/__init__.py')")")
[[ $packages == */python3/dist-packages ]]
PYTHONPATH=$packages "$python" -c "$use" | grep "^$packages"

# By pip, without network; the library then is the loader's to find, or named.
cp -r "$package" source
"$python" -m pip install --quiet --disable-pip-version-check --no-build-isolation --no-deps \
  --no-index --target "$work/site" ./source
library=$(find "$work/prefix" -name libves.so.0)
PYTHONPATH=$work/site LD_LIBRARY_PATH=$(dirname "$library") "$python" -c "$use" | grep "^$work/site"
PYTHONPATH=$work/site VES_LIBRARY=$library "$python" -c "$use" | grep "^$work/site"
PYTHONPATH=$work/site VES_LIBRARY=$library "$python" -c "
import ves, importlib.metadata
assert ves.version() == importlib.metadata.version('ves'), 'package and library differ in version'"
echo "the installed package works"
