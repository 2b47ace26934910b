"""Runs an example and compares what it prints with what the gallery shows of it.

usage: check_output.py SHOWN ACCURACY COUNTS COMMAND...

Text must be the same, but for blanks. A number with a point may differ from the one in the file
SHOWN by ACCURACY or by one in its last digit, a whole number by the fraction COUNTS. With
VES_SHOW=1 in the environment the file is written anew.
"""

import os
import re
import subprocess
import sys
from decimal import Decimal

NUMBER = re.compile(r"([-+]?\d+(?:\.\d*)?(?:[eE][-+]?\d+)?)")


def agree(shown, now, accuracy, counts):
    """Whether two numbers, as they are printed, are the same."""
    difference = abs(Decimal(shown) - Decimal(now))
    if shown.lstrip("+-").isdigit():
        return difference <= counts * abs(Decimal(shown))
    return difference <= max(accuracy, Decimal(1).scaleb(Decimal(shown).as_tuple().exponent))


def same_line(shown, now, accuracy, counts):
    """Whether two lines are the same: every second part of a split line is a number."""
    parts, others = NUMBER.split(shown), NUMBER.split(now)
    return (len(parts) == len(others)
            and all(a.split() == b.split() for a, b in zip(parts[::2], others[::2]))
            and all(agree(a, b, accuracy, counts) for a, b in zip(parts[1::2], others[1::2])))


file, accuracy, counts = sys.argv[1], Decimal(sys.argv[2]), Decimal(sys.argv[3])
run = subprocess.run(sys.argv[4:], stdout=subprocess.PIPE, text=True)
print(run.stdout, end="")
if run.returncode != 0:
    sys.exit(f"the example failed with code {run.returncode}")
if os.environ.get("VES_SHOW") == "1":
    with open(file, "w") as output:
        output.write(run.stdout)
with open(file) as output:
    shown, now = output.read().splitlines(), run.stdout.splitlines()
if len(shown) != len(now):
    sys.exit(f"{len(now)} lines instead of the {len(shown)} of {file}")
for number, (line, other) in enumerate(zip(shown, now), 1):
    if not same_line(line, other, accuracy, counts):
        sys.exit(f"{file}:{number} shows\n{line}\nbut the example prints\n{other}")
