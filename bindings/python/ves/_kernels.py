"""The kernels that OpenBLAS computes with.

It takes them when it is loaded: those named in OPENBLAS_CORETYPE, else by the processor, for one
that it does not know those of 2004. Run as a program with names of libraries, prints what the
first OpenBLAS among them takes, but nothing if kernels that were asked for multiply wrongly.
"""

import contextlib
import ctypes
import os
import random
import subprocess
import sys
import warnings

VARIABLE = "OPENBLAS_CORETYPE"

# Flags of the processor that newer kernels need, the newest ones first.
NEEDS = {
    "SkylakeX": {"avx2", "fma", "avx512f", "avx512dq", "avx512bw", "avx512vl", "avx512cd"},
    "Haswell": {"avx2", "fma"},
}
# Under other names OpenBLAS has what is as new, or for processors that do not run these.
OLDEST = set("""Katmai Coppermine Northwood Prescott Banias Atom Core2 Penryn Dunnington Nehalem
    Athlon Opteron Opteron_SSE3 Barcelona Bobcat Nano Sandybridge""".split())
OLDER_THAN = {"SkylakeX": OLDEST | {"Haswell", "Zen"}, "Haswell": OLDEST}


class KernelWarning(UserWarning):
    """OpenBLAS computes with kernels that are older than the processor."""


def newer_kernels(in_use):
    """Names of the kernels that the processor runs, newer than these, the newest ones first."""
    flags = set()
    if sys.maxsize > 2**32:  # the 32-bit library has none
        with contextlib.suppress(OSError), open("/proc/cpuinfo", encoding="ascii",
                                                errors="replace") as file:
            flags.update(next((line for line in file if line.startswith("flags")), "").split())
    return [name for name in NEEDS if in_use in OLDER_THAN[name] and NEEDS[name] <= flags]


def kernels_in_use():
    """What a loaded OpenBLAS says, or None with another BLAS."""
    try:
        function = ctypes.CDLL(None).openblas_get_corename
    except AttributeError:
        return None
    function.restype = ctypes.c_char_p
    return function().decode()


@contextlib.contextmanager
def newest_while_loading(names):
    """Within it OpenBLAS, as one of these libraries, is loaded with the newest kernels that pass
    the check, where nobody has chosen any."""
    choice = None
    if VARIABLE not in os.environ and newer_kernels("Prescott") and not _is_loaded(names):
        for name in newer_kernels(_ask(names)):
            if _ask(names, name) == name:
                choice = name
                break
            _State.refused.append(name)
    if choice is None:
        yield
        return
    # Only then: programs that are started, and OpenBLAS libraries of others, choose for themselves.
    os.environ[VARIABLE] = choice
    try:
        yield
    finally:
        del os.environ[VARIABLE]


class _State:
    refused = []  # kernels that failed the check
    is_told = False


def warn_once(stacklevel):
    """Warns, once in a process, of kernels that are older than the processor."""
    in_use = kernels_in_use()
    better = [name for name in newer_kernels(in_use) if name not in _State.refused]
    if better and not _State.is_told:
        _State.is_told = True
        advice = f"set {VARIABLE}={better[0]} before Python is started"
        if VARIABLE not in os.environ:
            advice += ", or import ves before numpy"
        warnings.warn(KernelWarning(f"OpenBLAS uses its kernels for {in_use}, older than this"
                                    f" processor: {advice}"), stacklevel=stacklevel + 1)


def _is_loaded(names):
    """Whether one of these libraries is loaded, as numpy may have done: its kernels are taken."""
    for name in (*names, "libopenblas.so.0"):
        with contextlib.suppress(OSError):
            ctypes.CDLL(name, os.RTLD_NOLOAD)
            return True
    return False


def _ask(names, kernels=None):
    """The kernels that OpenBLAS takes in a process of its own, for they may crash; nothing where it
    is another BLAS, or where the kernels that were asked for are wrong."""
    # A program that Python is embedded in need not understand its arguments.
    if not os.path.basename(sys.executable or "").startswith(("python", "pypy")):
        return None
    asked = {} if kernels is None else {VARIABLE: kernels}
    try:
        done = subprocess.run([sys.executable, "-I", "-S", __file__, *names], timeout=20, text=True,
                              env={**os.environ, **asked}, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    except (OSError, ValueError, subprocess.SubprocessError):
        return None
    return done.stdout.strip()


def are_products_right():
    """Whether gemm gives what plain loops do, in all four types and for sizes that no tile of a
    kernel divides; OpenBLAS has kernels of their own up to m n k = 1e6."""
    blas = ctypes.CDLL(None)
    return all(_is_right(getattr(blas, letter + "gemm_"), real, parts, transposed, *sizes)
               for letter, real, parts in (("s", ctypes.c_float, 1), ("d", ctypes.c_double, 1),
                                           ("c", ctypes.c_float, 2), ("z", ctypes.c_double, 2))
               for transposed in (False, True) for sizes in ((13, 11, 17), (71, 53, 290)))


def _is_right(gemm, real, parts, transposed, m, n, k):
    """C = A B against C v = A (B v). Whole numbers, of whose products all sums are exact."""
    draw = random.Random(m).randint
    A = [[complex(draw(-8, 8), parts > 1 and draw(-8, 8)) for _ in range(k)] for _ in range(m)]
    B = [[complex(draw(-8, 8), parts > 1 and draw(-8, 8)) for _ in range(n)] for _ in range(k)]
    v = [draw(1, 99) for _ in range(n)]

    def stored(columns):  # the blocks of numbers that BLAS takes
        numbers = [part for column in columns for x in column for part in (x.real, x.imag)[:parts]]
        return (real * len(numbers))(*numbers)

    def times(rows, x):
        return [sum(a * b for a, b in zip(row, x)) for row in rows]

    columns_A = [[x.conjugate() for x in row] for row in A] if transposed else zip(*A)
    C = stored([[float("nan")] * m] * n)
    m_, n_, k_ = (ctypes.byref(ctypes.c_int(size)) for size in (m, n, k))
    one, zero = (real * 2)(1, 0), (real * 2)(0, 0)
    gemm(b"C" if transposed else b"N", b"N", m_, n_, k_, one, stored(columns_A),
         k_ if transposed else m_, stored(zip(*B)), k_, zero, C, m_)
    entries = [complex(*C[i:i + parts]) for i in range(0, len(C), parts)]
    return times([entries[i::m] for i in range(m)], v) == times(A, times(B, v))


def _main(names):
    for name in names:
        with contextlib.suppress(OSError):
            ctypes.CDLL(name, ctypes.RTLD_GLOBAL)
            if kernels_in_use():
                break
    in_use = kernels_in_use()
    if in_use and (VARIABLE not in os.environ or are_products_right()):
        print(in_use)


if __name__ == "__main__":
    _main(sys.argv[1:])
