"""Warns of a public name of the C header that no page describes."""
import os
import re

from sphinx.util import logging

COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)


def public_names(header):
    """Functions and types of the header, but for the structures behind its opaque handles."""
    with open(header, encoding="utf-8") as file:
        return set(re.findall(r"\bVes(?!\w+Base\b)\w+", COMMENT.sub("", file.read())))


def check(app, env):
    described = {entry[0] for entry in env.get_domain("c").get_objects()}
    names = public_names(os.path.join(app.srcdir, app.config.ves_header))
    for name in sorted(names - described):
        logging.getLogger(__name__).warning("no page describes %s", name)


def setup(app):
    app.add_config_value("ves_header", None, "env")
    app.connect("env-check-consistency", check)
    return {"parallel_read_safe": True}
