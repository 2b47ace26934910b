"""A plugin of pytest that lets scipy's own tests of eigsh and lobpcg call libves.

    python3 drop_in.py     what passes, and what does not and why
"""

import contextlib
import io
import itertools
import sys
import warnings

import pytest

import ves.scipy

# Tests of other things than values and vectors.
EXPECTED = {
    "test_symmetric_no_convergence": "asks for ARPACK's exception after 5 iterations",
    "test_symmetric_starting_vector": "wants 2e-13 with a start; residuals are 1e-10 here",
    "test_reentering": "an operator without dtype returns complex numbers",
    "test_eigsh_for_k_greater": "its matrix is not symmetric, which is refused here",
    "test_nonhermitian_warning": "a warning there, refused here",
    "test_failure_to_run_iterations_nonsymmetric": "the same",
    "test_Small": "wants the warning that small problems are solved densely",
    "test_fiedler_small_8": "the same",
    "test_ElasticRod": "wants the warning of a run that does not converge, which it does here",
    "test_failure_to_run_iterations": "the same, of one that breaks down",
    "test_maxit": "counts the iterations that scipy's function makes",
    "test_diagonal_data_types[3-20]": "wants 1e-5 of values of 6 in single precision",
}
NOT_OF_EIGSH = ("not nonsymmetric and not eigs_for and not real_eigs and not bad"
                " and not deallocation and not modes")


def pytest_collection_modifyitems(items):
    for module in {item.module for item in items}:
        for name in ves.scipy.__all__:
            if hasattr(module, name):
                setattr(module, name, getattr(ves.scipy, name))


class Outcomes:
    """Names of tests that passed and of those that did not."""

    def __init__(self):
        self.passed, self.failed = set(), set()

    def pytest_runtest_logreport(self, report):
        if report.when == "call":
            (self.passed if report.passed else self.failed).add(report.nodeid.split("::")[-1])


def modes():
    """Problems of scipy's tests of its symmetric modes: how many agree, of how many."""
    from scipy.sparse.linalg._eigen.arpack.tests import test_arpack
    problems, agreed, made = test_arpack.SymmetricParams(), 0, 0
    test_arpack.eigsh = ves.scipy.eigsh
    for is_complex in False, True:
        cases = problems.complex_test_cases if is_complex else problems.real_test_cases
        for case, kind, which, form, (sigma, names) in itertools.product(
                cases, "FD" if is_complex else "fd", problems.which, problems.mattypes,
                problems.sigmas_modes.items()):
            if is_complex and which == "BE":
                continue  # which scipy does not know
            for mode in names[:1] if is_complex else names:
                made += 1
                try:
                    test_arpack.eval_evec(True, case, kind, 2, which, None, sigma, form, None, mode)
                    agreed += 1
                except AssertionError as error:
                    print(f"{case!r} {kind} {which} {sigma} {mode}: {str(error).strip()[:200]}")
    return agreed, made


def main():
    warnings.simplefilter("ignore")
    agreed, made = modes()
    print(f"{agreed} of {made} symmetric and Hermitian problems of scipy's tests of eigsh agree")
    faults = made - agreed
    for part in "arpack", "lobpcg":
        outcomes = Outcomes()
        with contextlib.redirect_stdout(io.StringIO()):
            pytest.main(["-q", "-p", "no:cacheprovider",
                         "-k", NOT_OF_EIGSH if part == "arpack" else "", "--pyargs",
                         f"scipy.sparse.linalg._eigen.{part}.tests.test_{part}"],
                        plugins=[sys.modules[__name__], outcomes])
        print(f"test_{part}: {len(outcomes.passed)} pass, {len(outcomes.failed)} do not")
        for name in sorted(outcomes.failed):
            print(f"  {name}: {EXPECTED.get(name, 'UNEXPECTED')}")
            faults += name not in EXPECTED
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
