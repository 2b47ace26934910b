#!/usr/bin/env python3
"""Measures what the tests notice: changes one comparison or sign of the library at a time.

Draws places of src/**/*.cpp by a seed, changes each in a copy of the tree, rebuilds the library and
runs the tests of the place's folder. A change is killed when a test fails, crashes or takes much
longer than on the unchanged library. Survivors are printed, and all results are written to
build/mutation/report.json, where scripts/figures finds them.
"""
import argparse
import json
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
COPIED = ["CMakeLists.txt", "bindings", "cmake", "docs", "include", "src", "tests"]

# Tests of a folder of src/, with the processes they run on: one where that shows the fault.
TESTS = {
    "kernel": [("data_test", 1), ("dense_test", 1)],
    "parallel": [("parallel_test", 4), ("data_test", 2), ("dense_test", 4), ("collectives_test", 4),
                 ("report_test", 1)],
    "data": [("data_test", 1), ("data_test", 2), ("interface_test", 1)],
    "cholesky": [("dense_test", 1), ("dense_test", 4)],
    "eigensolver": [("dense_test", 1), ("dense_test", 4)],
    "detector": [("detector_test", 1)],
    "orthogonalizer": [("orthogonalizer_test", 1)],
    "projector": [("orthogonalizer_test", 1)],
    "solver": [("report_test", 1), ("solver_test", 1), ("batch_test", 1), ("collectives_test", 4),
               ("trust_test", 1), ("memory_test", 1)],
    "interface": [("interface_test", 1), ("report_test", 1)],
}

# A binary operator stands between blanks, which sets it apart from brackets of templates, arrows
# and shifts; a sign stands after a bracket, comma, blank or return.
REPLACEMENTS = {
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "==": ["!="], "!=": ["=="], "+": ["-"], "-": ["+"], "+=": ["-="], "-=": ["+="],
}
BINARY = re.compile(r"(?<= )(<=|>=|==|!=|\+=|-=|<|>|\+|-)(?= )")
SIGN = re.compile(r"(?:(?<=[(\[])|(?<=[,=?:] )|(?<=return ))-(?=[\w(.])")


def code_of(line):
    """The line with comments and texts blanked out; nothing of a directive of the preprocessor."""
    if line.lstrip().startswith("#"):
        return ""
    line = re.sub(r'"(?:\\.|[^"\\])*"', lambda m: "_" * len(m[0]), line)
    return re.sub(r"//.*", "", line)


def places(source):
    """(file, line number, column, old, new) of every change that could be made."""
    for path in sorted(source.glob("src/**/*.cpp")):
        for number, line in enumerate(path.read_text().splitlines(), 1):
            code = code_of(line)
            for match in BINARY.finditer(code):
                for new in REPLACEMENTS[match[0]]:
                    yield path.relative_to(source), number, match.start(), match[0], new
            for match in SIGN.finditer(code):
                yield path.relative_to(source), number, match.start(), "-", ""


def draw(source, seed):
    """Every place once, in random order, with one of its changes."""
    by_place = {}
    for place in places(source):
        by_place.setdefault(place[:3], []).append(place)
    generator = random.Random(seed)
    order = sorted(by_place)
    generator.shuffle(order)
    return [generator.choice(by_place[key]) for key in order]


def run(command, limit, log):
    """The exit code, or None after the time limit; ends only the process group it started."""
    with open(log, "w") as output:
        process = subprocess.Popen(command, stdout=output, stderr=subprocess.STDOUT,
                                   stdin=subprocess.DEVNULL, start_new_session=True)
        try:
            return process.wait(timeout=limit)
        except subprocess.TimeoutExpired:
            # mpirun takes its processes with it when it is asked to end.
            process.terminate()
            try:
                process.wait(timeout=20)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
            return None


class Workshop:
    """The copy of the tree, its build and its tests."""

    def __init__(self, folder, jobs, mpirun):
        self.tree, self.build = folder / "tree", folder / "build"
        self.log, self.jobs, self.mpirun = folder / "log", jobs, mpirun.split()
        self.limits = {}
        folder.mkdir(parents=True, exist_ok=True)
        shutil.rmtree(self.tree, ignore_errors=True)
        self.tree.mkdir()
        for name in COPIED:
            source = ROOT / name
            (shutil.copytree if source.is_dir() else shutil.copy2)(source, self.tree / name)

    def make(self, *targets):
        command = ["cmake", "--build", str(self.build), "-j", str(self.jobs), "--target", *targets]
        return run(command, 3600, self.log) == 0

    def prepare(self, tests):
        """Builds the unchanged library with these tests and takes their time on it."""
        command = ["cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja",
                   "-DCMAKE_BUILD_TYPE=Release", "-DVES_BUILD_EXAMPLES=OFF",
                   "-DVES_BUILD_FORTRAN=OFF", "-DVES_BUILD_TOOLS=OFF"]
        if run(command, 600, self.log) != 0 or not self.make(*sorted({name for name, _ in tests})):
            sys.exit(f"the unchanged tree does not build, see {self.log}")
        for test in tests:
            self.limits[test] = self.limit_of(test)

    def test(self, name, processes, limit):
        program = str(self.build / "tests" / name)
        return run([*self.mpirun, "-np", str(processes), program], limit, self.log)

    def limit_of(self, test):
        """Ten times what the unchanged library takes, half a minute at least."""
        start = time.monotonic()
        if self.test(*test, 3600) != 0:
            sys.exit(f"{test[0]} fails on the unchanged library, see {self.log}")
        return max(30.0, 10.0 * (time.monotonic() - start))

    def judge(self, tests):
        for test in tests:
            code = self.test(*test, self.limits[test])
            if code != 0:
                return "timed out" if code is None else "killed"
        return "survived"


def mutate(shop, place):
    """The result of one change; None when it does not compile."""
    file, number, column, old, new = place
    path = shop.tree / file
    text = path.read_text()
    lines = text.splitlines(keepends=True)
    before = lines[number - 1]
    after = before[:column] + new + before[column + len(old):]
    lines[number - 1] = after
    path.write_text("".join(lines))
    try:
        result = shop.judge(TESTS[file.parts[1]]) if shop.make("ves") else None
    finally:
        path.write_text(text)
    return result and {"file": str(file), "line": number, "old": before.strip(),
                       "new": after.strip(), "result": result}


def revision():
    found = subprocess.run(["git", "rev-parse", "--short", "HEAD"], cwd=ROOT, capture_output=True,
                           text=True, check=False)
    return found.stdout.strip() or "an unknown commit"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--count", type=int, default=60, help="changes that compile (60)")
    parser.add_argument("--seed", type=int, default=1, help="of the draw (1)")
    parser.add_argument("--folder", type=pathlib.Path, default=ROOT / "build/mutation",
                        help="of the copy, the build and the report (build/mutation)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="compile jobs")
    parser.add_argument("--mpirun", default="mpirun --oversubscribe --allow-run-as-root")
    parser.add_argument("--list", action="store_true", help="only show the places drawn")
    asked = parser.parse_args()
    os.environ.update(OPENBLAS_NUM_THREADS="1", OMP_NUM_THREADS="1",
                      OMPI_MCA_mpi_yield_when_idle="1", GTEST_FAIL_FAST="1")

    order = draw(ROOT, asked.seed)
    if asked.list:
        for file, number, _, old, new in order[:asked.count]:
            print(f"{file}:{number}: {old} -> {new or 'nothing'}")
        return
    shop = Workshop(asked.folder.resolve(), asked.jobs, asked.mpirun)
    # Spare places stand in for changes that do not compile.
    drawn = order[:2 * asked.count]
    shop.prepare(sorted({test for place in drawn for test in TESTS[place[0].parts[1]]}))
    mutants = []
    for place in drawn:
        if len(mutants) == asked.count:
            break
        found = mutate(shop, place)
        if found is None:
            continue
        mutants.append(found)
        print(f"{found['result']}: {found['file']}:{found['line']}\n  {found['old']}\n"
              f"  {found['new']}", flush=True)
        report = {"seed": asked.seed, "revision": revision(), "mutants": mutants}
        (shop.log.parent / "report.json").write_text(json.dumps(report, indent=1) + "\n")
    killed = sum(m["result"] != "survived" for m in mutants)
    print(f"{killed} of {len(mutants)} changes were noticed")


if __name__ == "__main__":
    main()
