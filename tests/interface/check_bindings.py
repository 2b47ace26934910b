"""check_bindings.py SOURCE_DIR: what Fortran, Python and tools/ name is what ves.h has."""
import ctypes
import re
import sys
from pathlib import Path

from ves import _handles, _library

# What a door does without or has in a form of its own: a new function is declared or stands here.
NOT_IN_FORTRAN = {"VesVectorSetComm", "VesMatrixSetRows", "VesMatrixGetShellUserData"}
NOT_IN_PYTHON = set("""VesMatrixSetDim VesMatrixSetRows VesMatrixGetShellUserData VesVectorSetComm
    VesVectorReplicate VesVectorDenseGetValues VesSetOrthogonalizerType VesSetOrthoProjectorType VesSolverSetSelfCheck
    VesSolverSetPPCGSoftLocking VesSolverSetPPCGRRPeriod VesSolverSetPPCGLockFactor
    VesSolverSetLockDetectorType VesSolverSetRankRevealerType""".split())
# A signature has a letter for the result and each argument.
POINTER = r"\*|Ves(Matrix|Vector|Solver|ShellMatVec|ShellPair|Monitor)\b|c_ptr|c_funptr|intent"
CTYPES = {None: "v", ctypes.c_int: "i", ctypes.c_double: "d", ctypes.c_bool: "b"}
faults = []


def read(path, ignored):
    return re.sub(ignored, "", (Path(sys.argv[1]) / path).read_text())


def letter(declaration):
    kind = re.search("void|double|bool|$", declaration)[0] or "int"
    return "p" if re.search(POINTER, declaration) else kind[0]


def values(text):  # fails for one without a number
    return {name: int(value) for name, value in re.findall(r"(VES_\w+)(?: = (-?\d+))?", text)}


def compare(door, wanted, found, left_out=()):
    faults.extend(f"{door}: {name}: {found.get(name)}, in ves.h {wanted.get(name)}"
                  for name in sorted({*wanted, *found} - {*left_out})
                  if wanted.get(name) != found.get(name))


def fortran_signatures(text):
    found = {}
    for name, arguments, bound, result, body in re.findall(
            r"^ *(?:function|subroutine) (\w+)\((.*?)\) +bind\(c(?:, name='(\w+)')?\)"
            r"(?: +result\((\w+)\))?\n(.*?)^ *end ", text, re.M | re.S):
        kinds = {word: letter(line) for line in body.splitlines()
                 for word in re.findall(r"\w+", line.partition("::")[2])}
        words = re.findall(r"\w+", f"{result} {arguments}")
        found[bound or name] = "v" * (not result) + "".join(kinds[word] for word in words)
    for interface, bound in re.findall(r"procedure\((\w+)\), bind\(c, name='(\w+)'\)", text):
        found[bound] = found[interface]
    return {name: found[name] for name in found if name.startswith("Ves")}


header = read("include/ves.h", r"//.*|/\*.*?\*/")
enums = {name: values(body) for name, body in re.findall(r"typedef enum (\w+).*{([^}]*)", header)}
functions = {name: "".join(map(letter, [result, *re.findall("[^,]+", arguments)]))
             for result, name, arguments in
             re.findall(r"^VES_EXPORT (.*?)(Ves\w+)\((?:void)?([^)]*)", header, re.M)}
types, c, module = (read(f"bindings/fortran/{name}.f90", r" *!.*|&\s*\n")
                    for name in ("ves_types", "ves_c", "ves"))
compare("Fortran", {name: enum[name] for enum in enums.values() for name in enum},
        values(" ".join(re.findall("enumerator ::(.*)", types))))
compare("Fortran", functions, fortran_signatures(c), NOT_IN_FORTRAN)
public = re.findall(r"^ *(?:interface|module subroutine|module function) (Ves\w+)", module, re.M)
compare("Fortran", dict.fromkeys(functions, 1), dict.fromkeys(public, 1),
        ["VesVectorSetComm_f", "VesMatrixSetRows_f"])

compare("Python", functions, {
    name: "".join(CTYPES.get(kind, "p") for kind in (each.restype, *(each.argtypes or ())))
    for name, each in vars(_library.lib).items() if name.startswith("Ves")}, NOT_IN_PYTHON)
for enum, table in (
        ("VesSolverType", _library.SOLVERS),
        ("VesConvergeDetectorType", {name: each.kind for name, each in _library.DETECTORS.items()}),
        ("VesSolverReason", {f"reason_{name}": i for i, name in enumerate(_library.REASONS)}),
        ("VesScalarType", {name[4:]: value for name, value in zip(
            enums["VesScalarType"], _handles.SCALAR_TYPES.values())})):
    compare("Python", enums[enum], {f"VES_{name.upper()}": table[name] for name in table})
# An enumeration of which the program names one kind is named by it whole.
tables = read("tools/names.cpp", "$^") + read("tools/detectors.cpp", "$^")
named = re.findall(r'{"[\w-]+", (VES_\w+)', tables)
wanted = [name for enum in enums.values() if {*enum} & {*named} for name in enum]
compare("Tools", dict.fromkeys(wanted, 1), dict.fromkeys(named, 1))
sys.exit("\n".join(faults) or None)
