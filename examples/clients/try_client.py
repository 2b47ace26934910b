"""try_client.py PACKAGE SCRIPT ...: runs a client where the Python package that it is of is there;
else says so and ends with 77, by which CTest knows a test that was skipped."""

import importlib.util
import runpy
import sys

package, script = sys.argv[1:3]
spec = importlib.util.find_spec(package)
if spec is None or spec.origin is None:  # without an origin: only the folder beside this file
    print(f"skipped: the Python package {package} is not installed (scripts/install-deps clients)")
    sys.exit(77)
sys.argv = sys.argv[2:]
runpy.run_path(script, run_name="__main__")
