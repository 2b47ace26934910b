#!/usr/bin/env python3
"""Times whole runs in interleaved rounds and writes docs/performance_figures.md and its pictures.

  benchmarks.py BUILD DOCS [--parts split guide many ...] [--rounds N]

BUILD holds solve from a build with VES_PROFILE_STEPS; raw results stay in BUILD/benchmarks.jsonl.
Parts that are not measured stay in the page as they are.
Called by scripts/benchmarks, which says more.
"""
import argparse
import json
import math
import os
import pathlib
import statistics
import subprocess
import sys

TITLES = {
    "split": "Where the time goes",
    "guide": "Solver, block and lock factor",
    "many": "Hundreds of pairs",
    "additions": "Guards, precision and inner steps",
    "dense": "Dense eigensolvers",
    "kernels": "Kernels of BLAS",
    "growth": "Growth",
}
LOBPCG = ("solver=lobpcg", "lock=1")
BATCH = ("solver=lobpcg-batch", "block=64", "lock=1")
PPCG = ("solver=ppcg",)
OWN_CHOICE = "own choice"  # of kernels, by OpenBLAS


def environment(coretype, threads=1):
    """Threads, and the kernels of BLAS: those named, its own choice, or by default what is set."""
    env = dict(os.environ, OPENBLAS_NUM_THREADS=str(threads), OMP_NUM_THREADS=str(threads),
               OMPI_MCA_mpi_yield_when_idle="1")
    if coretype == OWN_CHOICE:
        env.pop("OPENBLAS_CORETYPE", None)
    elif coretype:
        env["OPENBLAS_CORETYPE"] = coretype
    return env


class Bench:
    def __init__(self, build, rounds):
        self.programs, self.rounds = build / "bench", rounds
        self.log = build / "benchmarks.jsonl"

    def once(self, case, processes=1, threads=1, coretype=None):
        """One run as a dictionary; case: problem, size, k and options."""
        command = [str(self.programs / "solve"), *map(str, case)]
        if processes > 1:
            command = ["mpirun", "--oversubscribe", "--allow-run-as-root", "-np", str(processes),
                       *command]
        done = subprocess.run(command, env=environment(coretype, threads), capture_output=True,
                              text=True, timeout=900)
        lines = [line for line in done.stdout.splitlines() if line.startswith("{")]
        if not lines:
            sys.exit(f"{' '.join(command)}: {done.stderr}")
        result = json.loads(lines[-1].replace(": nan", ": NaN").replace(": -nan", ": NaN"))
        if result["converged"] < result["k"]:
            sys.exit(f"{' '.join(command)}: {result['converged']} pairs, {result['reason']}")
        with open(self.log, "a") as log:
            log.write(json.dumps(dict(result, case=list(case), threads=threads,
                                      coretype=coretype)) + "\n")
        return result

    def kernels(self, coretype):
        """{(kernel, type, n, k): (rate in 1e9 a second, its unit)}"""
        command = [str(self.programs / "kernels"), "--benchmark_format=json"]
        done = subprocess.run(command, env=environment(coretype), capture_output=True, text=True,
                              check=True, timeout=900)
        rates = {}
        for run in json.loads(done.stdout)["benchmarks"]:
            kernel, rows, cols = run["name"].split("/")
            name, kind = kernel.rstrip(">").split("<", 1)
            unit = "Gflop/s" if "flops" in run else "GB/s" if "bytes" in run else "a second"
            rate = run.get("flops", run.get("bytes", 1e12 / run["real_time"])) / 1e9
            kind = kind.replace("std::complex<double", "complex")
            rates[name, kind, int(rows), int(cols)] = rate, unit
        return rates

    def dense(self, order, processes, rounds):
        """{kind: times with all vectors and with the lowest third}"""
        command = ["mpirun", "--oversubscribe", "--allow-run-as-root", "-np", str(processes),
                   str(self.programs / "dense"), str(order), str(rounds)]
        done = subprocess.run(command, env=environment(None), capture_output=True, text=True,
                              check=True, timeout=900)
        lines = [line for line in done.stdout.splitlines() if line.startswith("{")]
        return {line["kind"]: line for line in map(json.loads, lines)}

    def medians(self, runs, rounds=None):
        """Interleaved rounds over runs = {key: arguments of once}; per key that of median time."""
        results = {key: [] for key in runs}
        for _ in range(rounds or self.rounds):
            for key, arguments in runs.items():
                results[key].append(self.once(**arguments))
        return {key: sorted(found, key=lambda r: r["seconds"])[len(found) // 2]
                for key, found in results.items()}


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|---" + "|--:" * (len(head) - 1) + "|"]
    return "\n".join(lines + ["| " + " | ".join(map(str, row)) + " |" for row in rows])


def name_of(result):
    block = f" {result['block']:g}" if result["block"] else ""
    lock = f", lock factor {result['lock']:g}" if result["lock"] else ""
    return result["solver"].replace("-", " ") + block + lock


def split(bench, _):
    runs = {}
    for cutoff in (12, 20):
        for k in (32, 128, 256):
            for options in (LOBPCG, BATCH, PPCG):
                if k > 64 or options != BATCH:  # one batch of 64 is LOBPCG
                    runs[cutoff, k, options] = {"case": ("plane-waves", cutoff, k, *options)}
    found = bench.medians(runs, rounds=1)
    share = lambda r, key: f"{100 * r[key] / r['seconds']:.0f}"
    text = ["Plane waves, complex, one process and thread. Overhead: the time of the run over the "
            "sum of the time in call-backs, in small dense problems and in products on tall blocks "
            "when the same shapes are called by themselves.\n",
            table(["n, k, solver", "s", "A %", "products %", "dense %", "overhead", "Gflop",
                   "columns of A"],
                  [[f"{r['n']}, {r['k']}, {name_of(r)}", f"{r['seconds']:.2f}",
                    share(r, "secondsA"), share(r, "secondsProducts"), share(r, "secondsDense"),
                    f"{r['overhead']:.3f}", f"{r['gflop']:.0f}", r["columnsA"]]
                   for r in found.values()])]
    for solver in ("lobpcg", "lobpcg-batch", "ppcg"):
        chosen = [r for r in found.values() if r["solver"] == solver]
        notable = {s for r in chosen for s, t in r["steps"].items() if t > 0.01 * r["seconds"]}
        steps = sorted(notable,
                       key=lambda s: -max(r["steps"].get(s, 0) / r["seconds"] for r in chosen))
        rows = [[step] + [f"{100 * r['steps'].get(step, 0) / r['seconds']:.1f}" for r in chosen]
                for step in steps]
        text.append(f"\n{name_of(chosen[0])}, share of each step in %, of those above 1 %:\n")
        text.append(table(["step"] + [f"{r['n']}, {r['k']}" for r in chosen], rows))
    return "\n".join(text)


def guide(bench, _):
    problems = {"Plane waves, n = 6060, k = 128": ("plane-waves", 12, 128),
                "Plane waves, n = 6060, k = 32": ("plane-waves", 12, 32),
                "Laplacian, n = 64000, k = 20": ("laplacian", 40, 20),
                "Elements, n = 20449, k = 20": ("elements", 143, 20)}
    text = []
    for title, problem in problems.items():
        k = problem[2]
        options = [("solver=lobpcg",), ("solver=lobpcg", "lock=0.1"), LOBPCG]
        for block in (8, 16, 32, 64):
            if block < k:
                options.append(("solver=lobpcg-batch", f"block={block}", "lock=1"))
        options.append(("solver=lobpcg-batch", f"block={min(64, k // 2)}"))
        options += [("solver=ppcg", f"block={block}") for block in (8, 32, 64) if block < 2 * k]
        found = bench.medians({o: {"case": (*problem, *o)} for o in options})
        best = min(r["seconds"] for r in found.values())
        text.append(f"\n{title}:\n")
        text.append(table(["solver", "time, of the best", "s", "columns of A", "iterations", "MB"],
                          [[name_of(r), f"{r['seconds'] / best:.2f}", f"{r['seconds']:.2f}",
                            r["columnsA"], r["iterations"], f"{r['megabytesForecast']:.0f}"]
                           for r in found.values()]))
    return "\n".join(text)


def many(bench, _):
    """Where A costs next to nothing, and all the rest much."""
    rows = []
    for k in (200, 400):
        problem = ("laplacian", 17, k, "precond=0")
        found = bench.medians({options: {"case": (*problem, *options)} for options in (
            LOBPCG, BATCH, PPCG, (*PPCG, "block=16", "guard=20"))}, rounds=1)
        plain = found[LOBPCG]["seconds"]
        for options, r in found.items():
            guards = ", 20 guards" if "guard=20" in options else ""
            rows.append([f"{k}, {name_of(r)}{guards}", f"{r['seconds'] / plain:.2f}",
                         f"{r['seconds']:.1f}", r["columnsA"], r["iterations"],
                         f"{r['megabytesForecast']:.0f}"])
    return ("Laplacian, n = 4913, without a preconditioner, one process and thread.\n\n"
            + table(["pairs, solver", "time, of LOBPCG", "s", "columns of A", "iterations", "MB"],
                    rows))


def additions(bench, _):
    problems = {"plane waves, n = 6060, k = 32": ("plane-waves", 12, 32),
                "plane waves, n = 6060, k = 128": ("plane-waves", 12, 128),
                "Laplacian, n = 64000, k = 20": ("laplacian", 40, 20),
                "the same without T": ("laplacian", 40, 20, "precond=0"),
                "Laplacian, n = 64000, k = 64": ("laplacian", 40, 64),
                "elements, n = 20449, k = 20": ("elements", 143, 20)}
    added = {"none": (), "guards": ("guard",), "mixed": ("mixed=1",),
             "guards, mixed": ("guard", "mixed=1"), "all three": ("guard", "mixed=1", "inner=-1")}

    def case(problem, names):
        guards = f"guard={min(max(problem[2] // 4, 2), 8)}"
        return (*problem, *LOBPCG, *(guards if name == "guard" else name for name in names))

    found = bench.medians({(title, name): {"case": case(problem, names)}
                           for title, problem in problems.items() for name, names in added.items()})
    rows = []
    for title in problems:
        plain = found[title, "none"]
        rows.append([title, f"{plain['seconds']:.2f}"] +
                    [f"{found[title, name]['seconds'] / plain['seconds']:.2f}, "
                     f"{found[title, name]['columnsA']}" for name in added if name != "none"])
    return ("LOBPCG with lock factor 1: seconds without an addition, and with some the time over "
            "that and the columns of A in both precisions. A quarter as many guards as pairs, 2 to "
            "8; inner steps as chosen by times; A, B and T have routines in single precision.\n\n"
            + table(["problem", "s", *(name for name in added if name != "none")], rows))


def dense(bench, _):
    kinds = {"lapack": "LAPACK", "lapack-lowest": "LAPACK, lowest", "scalapack": "ScaLAPACK",
             "elpa": "ELPA", "elpa-two-stage": "ELPA, two-stage"}
    rows = []
    for order in (96, 192, 384, 768, 1536, 3000):
        for processes in (1, 2) if order in (768, 3000) else (1,):
            found = bench.dense(order, processes, rounds=1 if order == 3000 else 5)
            best = min(time["third"] for time in found.values())
            rows.append([f"{order}, {processes}", f"{best:.4g}"] + [
                f"{found[kind]['third'] / best:.2f}, {found[kind]['whole'] / best:.2f}"
                if kind in found else "" for kind in kinds])
    return ("Real symmetric matrices as LOBPCG makes them, one thread for each process. Seconds "
            "with the lowest third of the vectors, as LOBPCG asks for, of the fastest; of each the "
            "times over that with this third and with all. Those that cannot leave vectors out "
            "compute all in both. Below order 300 all but LAPACK for the lowest are LAPACK. A "
            "column is empty where the library was built without ELPA.\n\n"
            + table(["order, processes", "s", *kinds.values()], rows))


def has(flag):
    return flag in pathlib.Path("/proc/cpuinfo").read_text().split()


def kernels(bench, _):
    names = {"Haswell": "avx2", "SkylakeX": "avx512vl"}
    names = [OWN_CHOICE, *(name for name, flag in names.items() if has(flag))]
    rates = [bench.kernels(name) for name in names]
    cases = {"plane waves 6060, k = 128": ("plane-waves", 12, 128),
             "Laplacian 64000, k = 20": ("laplacian", 40, 20)}
    rows = []
    for title, problem in cases.items():
        for options in (LOBPCG, BATCH if problem[2] > 64 else PPCG):
            case = (*problem, *options)
            found = list(bench.medians({name: {"case": case, "coretype": name}
                                        for name in names}).values())
            row = [f"{title}, {name_of(found[0])}"]
            for r in found:
                row += [f"{r['seconds']:.2f}", f"{r['gflop'] / r['secondsProducts']:.0f}"]
            rows.append(row)
    text = ("OpenBLAS chooses its kernels by the processor, and old releases do not know every new "
            "one. The environment variable `OPENBLAS_CORETYPE` names them; the library leaves that "
            "to its user, the program `ves`, Python and the scripts choose.\n\n")
    if "SkylakeX" not in names:
        text += ("The processor of this run has no AVX-512: its kernels could not be measured"
                 " here.\n\n")
    text += table(["operation, type, n, k", "unit", *names],
                  [[", ".join(map(str, key)), unit, *(f"{found[key][0]:.1f}" for found in rates)]
                   for key, (_, unit) in rates[0].items()])
    head = ["run"]
    for name in names:
        head += [f"{name}, s", "Gflop/s of products"]
    return text + "\n\nWhole runs:\n\n" + table(head, rows)


def exponent(points):
    xs, ys = ([math.log(p[i]) for p in points] for i in (0, 1))
    mx, my = statistics.mean(xs), statistics.mean(ys)
    return sum((x - mx) * (y - my) for x, y in zip(xs, ys)) / sum((x - mx) ** 2 for x in xs)


def picture(path, label, series):
    """Log-log lines of {name: [(x, seconds)]}, with the fitted exponents."""
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "ves"
    from matplotlib import pyplot, ticker
    figure, axes = pyplot.subplots(figsize=(6, 4.2), layout="constrained")
    for name, points in series.items():
        axes.loglog(*zip(*points), marker="o", label=f"{name}: {exponent(points):.2f}")
    axes.set_xlabel(label)
    axes.set_ylabel("seconds")
    axes.set_xticks(sorted({x for points in series.values() for x, _ in points}))
    axes.xaxis.set_minor_locator(ticker.NullLocator())
    axes.xaxis.set_major_formatter("{x:.0f}")
    axes.yaxis.set_major_locator(ticker.LogLocator(subs=(1, 2, 5)))
    axes.yaxis.set_major_formatter("{x:g}")
    axes.yaxis.set_minor_formatter(ticker.NullFormatter())
    axes.grid(True, which="both", alpha=0.3)
    axes.legend(title="exponent", loc="lower left", bbox_to_anchor=(0, 1))
    figure.savefig(path, metadata={"Date": None})
    pyplot.close(figure)


def growth(bench, docs):
    solvers = {"LOBPCG, lock factor 1": LOBPCG, "LOBPCG batch 64, lock factor 1": BATCH,
               "PPCG": PPCG}
    series = {
        "n": ("unknowns (Laplacian, 16 pairs)",
              [("laplacian", size, 16) for size in (20, 28, 40, 56)], "n"),
        "k": ("pairs (plane waves, n = 6060)",
              [("plane-waves", 12, k) for k in (16, 32, 64, 128, 256)], "k"),
    }
    (docs / "pictures").mkdir(parents=True, exist_ok=True)
    text = []
    for key, (label, problems, axis) in series.items():
        found = bench.medians({(name, p): {"case": (*p, *options)}
                               for name, options in solvers.items() for p in problems}, rounds=1)
        lines = {name: [(found[name, p][axis], found[name, p]["seconds"]) for p in problems]
                 for name in solvers}
        cost = lambda run: (run[axis], run["seconds"] / run["iterations"])
        per = {name: [cost(found[name, p]) for p in problems] for name in solvers}
        picture(docs / "pictures" / f"growth_{key}.svg", label, lines)
        text.append(f"![time against {label}](pictures/growth_{key}.svg)\n")
        text.append(table(["exponent", "of the run", "of an iteration"],
                          [[name, f"{exponent(lines[name]):.2f}", f"{exponent(per[name]):.2f}"]
                           for name in solvers]) + "\n")
    return "\n".join(text + parallel(bench, docs))


def parallel(bench, docs):
    """Two processes, and two threads, against one."""
    problems = {"plane waves, n = 6060, k = 128": ("plane-waves", 12, 128),
                "Laplacian, n = 64000, k = 20": ("laplacian", 40, 20),
                "Laplacian, n = 262144, k = 20": ("laplacian", 64, 20)}
    own = lambda r: r["seconds"] - r["secondsA"] - r["secondsT"]  # outside the operators
    rows, lines = [], {}
    for title, problem in problems.items():
        for name, options in (("LOBPCG, lock factor 1", LOBPCG), ("batch 64", BATCH), ("PPCG", PPCG)):
            if options == BATCH and problem[2] <= 64:  # one batch of 64 is LOBPCG
                continue
            case = (*problem, *options)
            found = bench.medians({"one": {"case": case},
                                   "processes": {"case": case, "processes": 2},
                                   "blas": {"case": case, "threads": 2},
                                   "threads": {"case": (*case, "threads=2"), "threads": 2}})
            one, two, blas, threads = (found[of] for of in ("one", "processes", "blas", "threads"))
            rows.append([f"{title}, {name}", f"{one['seconds']:.2f}",
                         *(f"{one['seconds'] / r['seconds']:.2f}" for r in (two, threads, blas)),
                         f"{own(one) / own(two):.2f}", f"{own(one) / own(threads):.2f}",
                         f"{two['reductions'] / max(1, two['iterations']):.1f}"])
            lines[f"{title}, {name}"] = [(r["processes"], r["seconds"]) for r in (one, two)]
    picture(docs / "pictures" / "growth_processes.svg", "processes", lines)
    return ["![time against processes](pictures/growth_processes.svg)\n",
            "Two processes, and two threads, against one: times as fast. Threads share the solver's "
            "work (`VesSolverSetThreads`) or are of BLAS alone; the operators share theirs with "
            "OpenMP in both cases.\n",
            table(["run", "1 process, s", "2 processes", "2 threads", "2 threads of BLAS",
                   "2 processes, outside the operators", "2 threads, outside the operators",
                   "reductions an iteration"], rows)]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("docs", type=pathlib.Path)
    parser.add_argument("--parts", nargs="+", default=list(TITLES), choices=list(TITLES))
    parser.add_argument("--rounds", type=int, default=3)
    asked = parser.parse_args()
    bench = Bench(asked.build, asked.rounds)
    page = asked.docs / "performance_figures.md"
    before = page.read_text().split("\n## ")[1:] if page.exists() else []
    sections = dict(section.split("\n\n", 1) for section in before)
    for part in asked.parts:
        print("==", part, file=sys.stderr, flush=True)
        sections[TITLES[part]] = globals()[part](bench, asked.docs) + "\n"
    text = ["# Performance figures\n",
            "<!-- Written by a script: do not edit. -->\n",
            "Made by `scripts/benchmarks`. Times are medians of interleaved runs on one machine: take "
            "them as ratios.\n"]
    for title in TITLES.values():
        text += [f"## {title}\n", sections.get(title, "Not measured yet.\n").rstrip("\n") + "\n"]
    page.write_text("\n".join(text))


if __name__ == "__main__":
    main()
