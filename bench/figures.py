#!/usr/bin/env python3
"""Turns what tests and tools leave behind into Markdown. Called by scripts/figures.

figures.py starts LOG           success over random starts, from the output of trust_test
figures.py faults LOG ...       runs with injected faults, random calls and cycles, from test output
figures.py coverage BUILD       lines and branches of src/, from the counters of a coverage build
figures.py tests LOG            how many of ctest's tests passed
figures.py mutation REPORT      score and survivors, from the report of scripts/mutate.py
figures.py lines ROOT           share of test lines
figures.py sanitizers LOG ROOT  findings in a log of ctest, and the suppressions in force
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
from collections import defaultdict

SOLVERS = ["LOBPCG", "LOBPCG batch", "PPCG"]
START_PROBLEMS = ["Laplacian", "linear elements, preconditioned", "fivefold lowest value"]


def table(head, rows):
    """Markdown: the first column is text, the others are numbers."""
    print("| " + " | ".join(head) + " |")
    print("|---" + "|--:" * (len(head) - 1) + "|")
    for row in rows:
        print("| " + " | ".join(str(cell) for cell in row) + " |")


def percent(part, whole):
    return f"{100 * part / whole:.1f} %" if whole else "none"


def starts(log):
    """A run of trust_test names the type before the figures of that type."""
    kind, counts = None, defaultdict(dict)
    for line in pathlib.Path(log).read_text().splitlines():
        named = re.search(r"TypeParam = (.+)$", line)
        if named:
            kind = named[1].replace("std::complex<", "complex ").rstrip(">")
        found = re.match(r"solver (\d+), problem (\d+): (\d+) of (\d+) starts converged", line)
        if found and kind:
            solver, problem, good, all_ = map(int, found.groups())
            counts[kind, solver][problem] = (good, all_)
    if not counts:
        sys.exit("no figures of random starts in " + log)
    rows = []
    for (kind, solver), by_problem in sorted(counts.items(), key=lambda item: item[0][1]):
        cells = [f"{g} of {n}" for g, n in (by_problem.get(p, (0, 0)) for p in range(3))]
        rows.append([f"{SOLVERS[solver]}, {kind}"] + cells)
    table(["starts that ended converged"] + START_PROBLEMS, rows)
    good, all_ = (sum(v[i] for c in counts.values() for v in c.values()) for i in (0, 1))
    print(f"\nIn all {good} of {all_} ({percent(good, all_)}).")


def faults(*logs):
    """What fault_test, random_calls_test and communicator_test print of themselves."""
    text = "".join(pathlib.Path(log).read_text() for log in logs)
    runs = [int(n) for n in re.findall(r"^(\d+) faulty runs ended and were judged", text, re.M)]
    calls = re.search(r"^(\d+ calls in random order), (\d+ runs) among them", text, re.M)
    cycles = re.search(r"^(\d+) cycles left (\d+) communicators and (-?\d+) kB", text, re.M)
    if not (runs and calls and cycles):
        sys.exit("no figures of faults in " + " ".join(logs))
    failed = sorted(set(re.findall(r"FAILED  \] (\S+)", text)))
    print(f"- {sum(runs)} runs with a fault injected into operators or dense routines, on 1 and 4 "
          "processes: every one ended, and what it claimed was true.")
    print(f"- {calls[1]} of the flat interface, {calls[2]} among them: every code was a documented "
          "one.")
    print(f"- {cycles[1]} solvers created, run and destroyed on changing communicators: "
          f"{cycles[2]} communicators were left, and at most {cycles[3]} kB of memory on a"
          " process.")
    if failed:
        print(f"\n**Failed: {', '.join(failed)}.**")


def counters(build):
    """gcov's records of the library's own objects, one per object."""
    with tempfile.TemporaryDirectory() as scratch:
        for data in sorted(pathlib.Path(build).resolve().glob("CMakeFiles/ves.dir/**/*.gcda")):
            text = subprocess.run(
                ["gcov", "--json-format", "--branch-probabilities", "--stdout", str(data)],
                cwd=scratch, check=True, capture_output=True, text=True).stdout
            yield from (json.loads(line) for line in text.splitlines() if line.startswith("{"))


def coverage(build):
    """A line or branch of a template counts as covered when one of its instances covers it."""
    lines, branches = defaultdict(int), defaultdict(int)
    for record in counters(build):
        for file in record["files"]:
            name = os.path.normpath(file["file"])  # a header has the path of each that includes it
            if not name.startswith("src/"):
                continue
            for line in file["lines"]:
                place = (name, line["line_number"])
                lines[place] = max(lines[place], line["count"])
                regular = [b for b in line["branches"] if not b["throw"]]
                for at, branch in enumerate(regular):
                    branches[place + (at,)] = max(branches[place + (at,)], branch["count"])
    if not lines:
        sys.exit("no counters in " + build)
    by_folder = defaultdict(lambda: [0, 0, 0, 0])
    for offset, counts in ((0, lines), (2, branches)):
        for place, count in counts.items():
            for folder in (place[0].split("/")[1] + "/", "all"):
                by_folder[folder][offset] += 1
                by_folder[folder][offset + 1] += count > 0
    rows = [[name, n, percent(hit, n), b, percent(taken, b)]
            for name, (n, hit, b, taken) in sorted(by_folder.items(),
                                                  key=lambda f: (f[0] == "all", f[0]))]
    table(["folder of src/", "lines", "covered", "branches", "taken"], rows)


def mutation(report):
    data = json.loads(pathlib.Path(report).read_text())
    mutants = data["mutants"]
    killed = [m for m in mutants if m["result"] != "survived"]
    print(f"{len(mutants)} places of src/ drawn with seed {data['seed']}: "
          f"{len(killed)} changes were noticed ({percent(len(killed), len(mutants))}), "
          f"{sum(m['result'] == 'timed out' for m in killed)} of them by a time limit. "
          f"<!-- commit {data['revision']} -->")
    survivors = [m for m in mutants if m["result"] == "survived"]
    if survivors:
        print("\nNot noticed:\n")
    for m in survivors:
        print(f"- `{m['file']}:{m['line']}`: `{m['old']}` as `{m['new']}`")


CODE = {".c", ".cpp", ".h", ".hpp", ".f90", ".inc", ".py", ".sh", ".cmake"}


def lines(root):
    """Lines that are not empty of all code that git knows; tests beside what they test, too."""
    count, tests = defaultdict(int), 0
    for name in subprocess.run(["git", "-C", root, "ls-files"], capture_output=True, text=True,
                               check=True).stdout.splitlines():
        path = pathlib.Path(root, name)
        is_script = name.startswith("scripts/") or name == ".ci/run"
        is_code = path.suffix in CODE or path.name == "CMakeLists.txt"
        if not (is_code or is_script):
            continue
        found = sum(1 for line in path.read_text().splitlines() if line.strip())
        if "tests" in path.parts:
            tests += found
        else:
            count[f"{name.split('/')[0]}/" if "/" in name else "beside them"] += found
    rest = sum(count.values())
    table(["folder", "lines that are not empty, without tests"], sorted(count.items()))
    print(f"\nTests are {tests} lines, {percent(tests, rest)} of the other code.")


def tests_of(log):
    """{name: passed} of a log of ctest, and its text."""
    text = pathlib.Path(log).read_text(errors="replace")
    parts = re.split(r"^\d+/\d+ Test: (.+)$", text, flags=re.M)
    return {name: "\nTest Passed." in body or "\nTest Pass Reason:" in body
            for name, body in zip(parts[1::2], parts[2::2])}, text


def tests(log):
    results, _ = tests_of(log)
    failed = [name for name, passed in results.items() if not passed]
    print(f"{len(results)} tests ran, {len(results) - len(failed)} passed."
          + (f" **Failed: {', '.join(failed)}.**" if failed else ""))


def suppressions(root):
    """{(file, reason): patterns}: the reason is the comment above a group of patterns."""
    groups = defaultdict(list)
    for path in sorted(pathlib.Path(root, "tests/sanitizers").glob("*.supp")):
        reason, in_comment = "no reason is given", False
        for line in path.read_text().splitlines():
            if line.startswith("#"):
                reason = (reason + " " if in_comment else "") + line.lstrip("# ")
                in_comment = True
            elif line.strip():
                in_comment = False
                groups[path.name, reason].append(line.strip())
    return groups


def sanitizers(log, root):
    tests(log)
    print()
    _, text = tests_of(log)
    table(["sanitizer", "findings"], [[name, len(re.findall(pattern, text))] for name, pattern in (
        ("address", r"ERROR: AddressSanitizer"), ("leak", r"ERROR: LeakSanitizer"),
        ("undefined behaviour", r": runtime error: "))])
    print("\nSuppressed:\n")
    for (file, reason), patterns in suppressions(root).items():
        print(f"- {', '.join(f'`{p}`' for p in patterns)} (tests/sanitizers/{file}): {reason}")


def main():
    functions = (starts, faults, tests, coverage, mutation, lines, sanitizers)
    sections = {f.__name__: f for f in functions}
    if len(sys.argv) < 3 or sys.argv[1] not in sections:
        sys.exit(__doc__)
    sections[sys.argv[1]](*sys.argv[2:])


if __name__ == "__main__":
    os.environ.setdefault("LC_ALL", "C")
    main()
