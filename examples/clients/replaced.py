"""A program's solver exchanged for another one, and what runs with both cost."""

import contextlib
import statistics
import time


@contextlib.contextmanager
def replaced(module, **by):
    """Names of a module stand for other functions within the with statement."""
    before = {name: getattr(module, name) for name in by}
    vars(module).update(by)
    try:
        yield
    finally:
        vars(module).update(before)


def seconds_of(runs, rounds=3):
    """Medians of interleaved rounds, and the last result, for each of {name: function}."""
    times, results = {name: [] for name in runs}, {}
    for _ in range(rounds):
        for name, run in runs.items():
            start = time.perf_counter()
            results[name] = run()
            times[name].append(time.perf_counter() - start)
    return {name: statistics.median(each) for name, each in times.items()}, results
