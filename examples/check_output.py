"""Runs an example and compares what it prints with what the gallery shows of it.

Text must be the same, but for blanks. A number with a point may differ from the one shown by the
accuracy or by one in its last digit, a whole number not at all. Counts of columns end where
rounding lets a pair pass, so that each set of BLAS kernels has its own: they are shown rounded,
behind a ~, and may differ by COUNT_FACTOR. With VES_SHOW=1 in the environment the file is written
anew.
"""

import argparse
import os
import re
import subprocess
import sys
from decimal import Decimal

NUMBER = re.compile(r"(~?[-+]?\d+(?:\.\d*)?(?:[eE][-+]?\d+)?)")
# On four sets of kernels the last steps of a self-consistency loop took 4, 8 or 12 columns, longer
# runs up to 17 % more; late steps that lose their guess take more than four times as many.
COUNT_FACTOR = 3


def mark_counts(text, counts):
    """The text with the counts, which groups of a regular expression match, as ~ and two digits."""
    def mark(match):
        before, count, after = match.groups()
        # In a column the mark takes the place of a blank.
        before = before[:-1] if before.endswith("  ") else before
        return f"{before}~{float(f'{int(count):.1e}'):.0f}{after}"
    return re.sub(rf"({counts[0]})(\d+)({counts[1]})", mark, text) if counts else text


def agree(shown, now, accuracy):
    """Whether two numbers, as they are printed, are the same."""
    if shown.startswith("~"):
        about, count = int(shown[1:]), int(now)
        return about <= COUNT_FACTOR * count and count <= COUNT_FACTOR * about
    difference = abs(Decimal(shown) - Decimal(now))
    if shown.lstrip("+-").isdigit():
        return difference == 0
    return difference <= max(accuracy, Decimal(1).scaleb(Decimal(shown).as_tuple().exponent))


def same_line(shown, now, accuracy):
    """Whether two lines are the same: every second part of a split line is a number."""
    parts, others = NUMBER.split(shown), NUMBER.split(now)
    return (len(parts) == len(others)
            and all(a.split() == b.split() for a, b in zip(parts[::2], others[::2]))
            and all(agree(a, b, accuracy) for a, b in zip(parts[1::2], others[1::2])))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--counts", nargs=2, metavar=("BEFORE", "AFTER"),
                        help="regular expressions of what stands before and after a count")
    parser.add_argument("--from", dest="start", default="", help="how the first line shown begins")
    parser.add_argument("shown")
    parser.add_argument("accuracy", type=Decimal)
    parser.add_argument("command", nargs=argparse.REMAINDER)
    asked = parser.parse_args()
    run = subprocess.run(asked.command, stdout=subprocess.PIPE, text=True)
    print(run.stdout, end="")
    if run.returncode != 0:
        sys.exit(f"the example failed with code {run.returncode}")
    lines = run.stdout.splitlines()
    while lines and not lines[0].startswith(asked.start):
        del lines[0]
    if os.environ.get("VES_SHOW") == "1":
        with open(asked.shown, "w") as output:
            output.write(mark_counts("".join(line + "\n" for line in lines), asked.counts))
    with open(asked.shown) as output:
        shown = output.read().splitlines()
    if len(shown) != len(lines):
        sys.exit(f"{len(lines)} lines instead of the {len(shown)} of {asked.shown}")
    for number, (line, now) in enumerate(zip(shown, lines), 1):
        if not same_line(line, now, asked.accuracy):
            sys.exit(f"{asked.shown}:{number} shows\n{line}\nbut the example prints\n{now}")


main()
