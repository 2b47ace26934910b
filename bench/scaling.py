#!/usr/bin/env python3
"""Checks the model of a run by counted and delayed runs; writes docs/scaling.md and its pictures.

  scaling.py BUILD DOCS [--parts counts delays forecast]

BUILD holds solve and ves. Parts that are not made stay in the page as they are. Ends with 1 where a
count differs from its prediction by more than 2 %.
Called by scripts/scaling, which says more.
"""
import argparse
import json
import os
import pathlib
import subprocess
import sys
import tempfile

from benchmarks import table

TITLES = {"counts": "Predicted and counted", "delays": "Slower collectives",
          "forecast": "To 10,000 processes"}
PROCESSES = (1, 2, 4, 8, 16)
POINTS = 16  # an axis of the Laplacian: as many planes as the most processes
FEW, MANY = 6, 16  # iterations, of which the difference is counted: two full steps of PPCG
MACHINES = {"cluster": "cluster of the 2020s", "ethernet": "10 Gbit Ethernet"}
COLOURS = {"lobpcg": "C0", "lobpcg-batch": "C1", "ppcg": "C2"}

HEAD = """# Scaling

<!-- Written by a script: do not edit. -->

Made by `scripts/scaling`. What an iteration costs on p processes, as a function of the order n, the
pairs k and the solver:

- **A and T** and **products on tall blocks** are shared by rows: 1 / p of them each. Operations are
  those of [the theory](theory.md#costs); where blocks are narrow the memory limits them.
- **Dense problems** are solved by every process for itself, whatever p.
- **Collectives**, reductions and broadcasts, are as many and as long whatever n and p, for
  sub-blocks of PPCG below 100 columns whatever k; each takes log2 p steps of a latency, and its
  bytes the more time the wider the block.
- **Memory** of a process is what `VesSolverMemory` says for n / p rows.

The formulas are those of [`ves bench --forecast`](command_line.md#many-processes), which counts
the iterations of runs on your machine and tells by them the time on 1, 2, 4, ... 10,000 processes,
by parts. They know nothing of what A and T say to other processes, of waiting for a slower one, or
of networks that others use, too. **What is past 16 processes is a model, no measurement.**
"""


class Bench:
    def __init__(self, build):
        self.solve, self.ves = build / "bench" / "solve", build / "tools" / "ves"
        self.isGood = True

    def run(self, processes, case, delay=0):
        """One run of solve as a dictionary; it need not converge."""
        command = ["mpirun", "--oversubscribe", "--allow-run-as-root", "-np", str(processes),
                   str(self.solve), "laplacian", str(POINTS), *case]
        env = dict(os.environ, VES_BENCH_DELAY_US=str(delay))
        done = subprocess.run(command, env=env, capture_output=True, text=True, timeout=600)
        lines = [line for line in done.stdout.splitlines() if line.startswith("{")]
        if not lines:
            sys.exit(f"{' '.join(command)}: {done.stderr}")
        return json.loads(lines[-1].replace(": -nan", ": NaN").replace(": nan", ": NaN"))

    def iterations(self, processes, case, limit, delay=0):
        """A run to that limit of iterations, of which no pair converges."""
        found = self.run(processes, (*case, "threshold=1e-30", f"maxiter={limit}", "alone=0"),
                         delay)
        if found["iterations"] < limit or found["converged"] > 0:
            sys.exit(f"{case}: {found['iterations']} iterations, {found['reason']}")
        return found

    def isClose(self, predicted, counted):
        close = abs(predicted - counted) <= 0.02 * max(abs(predicted), abs(counted))
        self.isGood = self.isGood and close
        return close


def solvers(k):
    return {"LOBPCG": (str(k), "solver=lobpcg"),
            f"LOBPCG batch {k // 2}": (str(k), "solver=lobpcg-batch", f"block={k // 2}"),
            "PPCG 8": (str(k), "solver=ppcg", "block=8")}


def sums(sizes):
    return sum(sizes.values()), 1e-3 * sum(float(size) * n for size, n in sizes.items())


def predicted(model):
    """What solve's model has: {name: a number an iteration}."""
    found = {"Mflop": 1e3 * model["gflop"]}
    for kind in ("reductions", "broadcasts"):
        found[kind] = sum(count for _, count, _ in model[kind])
        found[f"kB of {kind}"] = 1e-3 * sum(count * size for _, count, size in model[kind])
    return found


def counted(bench, processes, case):
    """What happened in an iteration, as predicted; and the longer run."""
    few, many = (bench.iterations(processes, case, n) for n in (FEW, MANY))
    more = many["iterations"] - few["iterations"]
    per = lambda number: (number(many) - number(few)) / more
    found = {"Mflop": per(lambda r: 1e3 * r["gflop"]) * processes}
    if processes == 1:  # statistics of the library count reductions of one process, too
        found["reductions"] = per(lambda r: r["reductions"])
        found["kB of reductions"] = per(lambda r: 1e3 * r["megabytesReduced"])
        return found, many
    for kind in ("reductions", "broadcasts"):
        for name, i in ((kind, 0), (f"kB of {kind}", 1)):
            found[name] = per(lambda r: sums(r[f"{kind}BySize"])[i])
    return found, many


def span(numbers):
    low, high = (f"{x:.4g}" for x in (min(numbers), max(numbers)))
    return low if low == high else f"{low} to {high}"


def counts(bench, _):
    names = ("reductions", "kB of reductions", "broadcasts", "kB of broadcasts", "Mflop")
    rows, memory, lists = [], [], []
    for k in (16, 64):
        for title, case in solvers(k).items():
            print(k, title, file=sys.stderr, flush=True)
            runs = {p: counted(bench, p, case) for p in PROCESSES}
            model = runs[1][1]["model"]
            expected = predicted(model)
            row = [f"{title}, k = {k}"]
            for name in names:
                all_counted = [found[name] for found, _ in runs.values() if name in found]
                close = [bench.isClose(expected[name], number) for number in all_counted]
                row.append(f"{expected[name]:.4g} \\| {span(all_counted)}"
                           + ("" if all(close) else " **differs**"))
            rows.append(row)
            memory.append([f"{title}, k = {k}"] +
                          [f"{run['megabytesForecast']:.2f} \\| {run['megabytesPeak']:.2f}"
                           for _, run in runs.values()])
            if k == 64 and "batch" not in title:
                lists.append(collectives(title, model))
    return "\n".join([
        f"Laplacian of {POINTS}³ points with T, one orthogonalization pass, an iteration before "
        f"any pair has converged; on {', '.join(map(str, PROCESSES))} processes, most of which "
        "share a core: counts, not times. Predicted | counted, where the second is the same on all "
        "of them or a range.\n",
        table(["solver", *names], rows),
        "\nMemory of process 0 in MB beside the vectors, predicted | most that was held at once:\n",
        table(["solver", *(f"{p}" for p in PROCESSES)], memory),
        "\nWhat the collectives are, k = 64:\n", *lists])


def collectives(title, model):
    rows = [[what, kind[:-1], f"{count:g}", f"{size:g}"]
            for kind in ("reductions", "broadcasts") for what, count, size in model[kind]]
    return f"{title}:\n\n" + table(["what", "kind", "an iteration", "bytes"], rows) + "\n"


def delays(bench, _):
    """The delays are known, so that runs without them predict those with them."""
    iterations, rounds, microseconds = 60, 5, (0, 10, 100)
    rows = []
    for title, case in solvers(16).items():
        seconds = {delay: [] for delay in microseconds}
        for _ in range(rounds):
            for delay in microseconds:
                run = bench.iterations(2, case, iterations, delay)
                seconds[delay].append(run["seconds"])
        of_iteration = predicted(run["model"])
        calls = run["iterations"] * (of_iteration["reductions"] + of_iteration["broadcasts"])
        plain = min(seconds[0])  # others can only make a run longer
        rows.append([title, f"{calls:.0f}", f"{plain:.3f}"] +
                    [f"{plain + 1e-6 * delay * calls:.3f} \\| "
                     f"{min(seconds[delay]):.3f}"
                     for delay in microseconds[1:]])
    return (f"The same problem on 2 processes, k = 16, {iterations} iterations; each collective "
            "takes the delay longer (`VES_BENCH_DELAY_US`). Seconds, predicted by the run without "
            "delays and the collectives of the model | measured, the least of "
            f"{rounds} runs.\n\n" +
            table(["solver", "collectives", "no delay", "10 us", "100 us"], rows))


def forecast_of(bench, machine, k):
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "forecast.json"
        command = [str(bench.ves), "bench", "--forecast", "--machine", machine, "--order", "1e6",
                   "--model", "laplace3d:20x20x20", "-k", str(k), "--tol", "1e-5", "--seed", "1",
                   "--json", str(path)]
        subprocess.run(command, check=True, capture_output=True, timeout=900)
        return json.loads(path.read_text())


def picture(path, k, forecasts):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "ves"
    from matplotlib import pyplot, ticker
    figure, axes = pyplot.subplots(figsize=(6, 4.2), layout="constrained")
    for machine, line in zip(MACHINES, ("-", "--")):
        found = forecasts[machine, k]
        for solver, its in found["solvers"].items():
            if k <= 64 and solver == "lobpcg-batch":
                continue  # one batch is LOBPCG
            axes.loglog(found["processes"], [1e3 * cost["total"] for cost in its["costs"]], line,
                        color=COLOURS[solver], label=f"{solver}, {machine}")
    axes.set_xlabel(f"processes (n = 1,000,000, {k} pairs)")
    axes.set_ylabel("ms an iteration")
    axes.xaxis.set_major_formatter("{x:.0f}")
    axes.yaxis.set_major_formatter("{x:g}")
    axes.yaxis.set_minor_formatter(ticker.NullFormatter())
    axes.grid(True, which="both", alpha=0.3)
    axes.legend(loc="lower left")
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)


def ranges(processes, chosen):
    """"lobpcg to 256, ppcg beyond" of the solver chosen for each number of processes."""
    parts = []
    for i, name in enumerate(chosen):
        if i + 1 == len(chosen) or chosen[i + 1] != name:
            parts.append(f"{name} to {processes[i]}")
    return ", ".join(parts)


def halves(found, solver):
    """The most processes on which half of the processors' time is shared work."""
    costs, processes = found["solvers"][solver]["costs"], found["processes"]
    good = [p for p, cost in zip(processes, costs)
            if p == 1 or cost["operators"] + cost["products"] >= 0.5 * cost["total"]]
    return max(good)


def forecast(bench, docs):
    forecasts = {(machine, k): forecast_of(bench, machine, k)
                 for machine in MACHINES for k in (16, 128)}
    text = ["Laplacian in three dimensions with the inverse of its diagonal as T, n = 1,000,000, "
            "two orthogonalization passes; iterations, and the widths of their blocks, are those "
            "of runs with n = 8,000: a larger n takes more of them. The machines are assumptions, "
            "round figures of data sheets:\n"]
    constants = list(next(iter(forecasts.values()))["machine"])
    text.append(table(["machine", *constants],
                      [[f"`{machine}`, {what}", *(f"{forecasts[machine, 16]['machine'][c]:g}"
                                                  for c in constants)]
                       for machine, what in MACHINES.items()]))
    text.append("\nSeconds of a message, bytes a second of one and of memory, operations a second "
                "of products and of dense problems, seconds of A and T on a row of a column: each "
                "of one core.\n")
    for k in (16, 128):
        picture(docs / "pictures" / f"scaling_{k}.svg", k, forecasts)
        text.append(f"![ms an iteration against processes, {k} pairs](pictures/scaling_{k}.svg)\n")
    rows = []
    for (machine, k), found in forecasts.items():
        for solver, its in found["solvers"].items():
            at = found["processes"].index(1024)
            cost = its["costs"][at]
            rows.append([f"{machine}, k = {k}, {solver}", halves(found, solver), its["fastestOn"],
                         *(f"{100 * cost[part] / cost['total']:.0f}"
                           for part in ("operators", "products", "dense", "collectives"))])
    text.append("Where a solver stops: the most processes on which half of the time is work that "
                "they share, and those behind which an iteration takes longer; and its parts on "
                "1024 in %.\n")
    text.append(table(["machine, pairs, solver", "half is shared to", "fastest on", "A, T",
                       "products", "dense", "collectives"], rows))
    text.append("\nThe solver whose run is the shortest:\n")
    text.append(table(["machine, pairs", "take"],
                      [[f"{machine}, k = {k}", ranges(found["processes"], found["choose"])]
                       for (machine, k), found in forecasts.items()]))
    text.append("\nThe more processes, the less products count and the more what does not shrink: "
                "the dense problem of order 3 k of LOBPCG, which a batch makes one of order 3 b "
                "and PPCG many of order 3 b; and collectives, of which an iteration of PPCG "
                "has more. Past the numbers of the table give further processes other work, such "
                "as [k-points](mpi.md).")
    return "\n".join(text)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("docs", type=pathlib.Path)
    parser.add_argument("--parts", nargs="+", default=list(TITLES), choices=list(TITLES))
    asked = parser.parse_args()
    bench = Bench(asked.build)
    page = asked.docs / "scaling.md"
    before = page.read_text().split("\n## ")[1:] if page.exists() else []
    sections = dict(section.split("\n\n", 1) for section in before)
    for part in asked.parts:
        print("==", part, file=sys.stderr, flush=True)
        sections[TITLES[part]] = globals()[part](bench, asked.docs) + "\n"
    text = [HEAD]
    for title in TITLES.values():
        text += [f"## {title}\n", sections.get(title, "Not measured yet.\n").rstrip("\n") + "\n"]
    page.write_text("\n".join(text))
    return 0 if bench.isGood else 1


if __name__ == "__main__":
    sys.exit(main())
