"""Reference pages from the headers: return codes as lists of names, and no public name without a
page."""
import os
import re

from docutils import nodes
from sphinx import addnodes
from sphinx.util import logging

COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)
CPP_NAME = re.compile(r"^(?:(?:class|struct|using) (\w+)|[\w:<>]+(?: [\w:<>]+)* (\w+)\()",
                      re.MULTILINE)
ENUMERATOR = re.compile(r"\b(VES_GOOD|VES_ERR_\w+) = (-?\d)")
CODE = re.compile(r"(-\d(?:, -\d)*|0)\b *(.*)", re.DOTALL)


def public_names(header):
    """Functions and types of the header, but for the structures behind its opaque handles."""
    with open(header, encoding="utf-8") as file:
        return set(re.findall(r"\bVes(?!\w+Base\b)\w+", COMMENT.sub("", file.read())))


def public_cpp_names(header):
    """Types and functions of the namespace, whose members are indented."""
    with open(header, encoding="utf-8") as file:
        return {"ves::" + (kind or function) for kind, function in CPP_NAME.findall(file.read())}


def require_all(app, env):
    described = {entry[0] for domain in ("c", "cpp")
                 for entry in env.get_domain(domain).get_objects()}
    names = public_names(os.path.join(app.srcdir, app.config.ves_header))
    for header in app.config.ves_cpp_headers:
        names |= public_cpp_names(os.path.join(app.srcdir, header))
    for name in sorted(names - described):
        logging.getLogger(__name__).warning("no page describes %s", name)


def code_names(header):
    """{number: name} of the return codes."""
    with open(header, encoding="utf-8") as file:
        return {number: name for name, number in ENUMERATOR.findall(file.read())}


def reference(name):
    """A link to where the code is described."""
    return addnodes.pending_xref("", nodes.literal("", name), refdomain="c", reftype="enumerator",
                                 reftarget=name, refexplicit=True, refwarn=True)


def list_codes(app, doctree):
    """Turns "-7 solver is null; -1 value not positive; 0" into a line for each code, by name."""
    names = code_names(os.path.join(app.srcdir, app.config.ves_header))
    for field in doctree.findall(nodes.field):
        entries = re.split(r"; (?=-\d|0$)", field[1].astext().strip())
        found = [CODE.fullmatch(entry) for entry in entries]
        if field[0].astext() != "Returns" or not all(found):
            continue
        lines = nodes.line_block()
        for codes, meaning in (match.groups() for match in found):
            line = nodes.line()
            for code in codes.split(", "):
                line += [reference(names[code]), nodes.Text(f" ({code}) ")]
            line += nodes.Text(meaning)
            lines += line
        field[1].children = [lines]


def setup(app):
    app.add_config_value("ves_header", None, "env")
    app.add_config_value("ves_cpp_headers", [], "env")
    app.connect("doctree-read", list_codes)
    app.connect("env-check-consistency", require_all)
    return {"parallel_read_safe": True}
