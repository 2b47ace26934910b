"""Formulas as MathML, which browsers show without scripts, fonts or a network."""
import re

from docutils.nodes import SkipNode
from docutils.utils.math.latex2mathml import tex2mathml
from sphinx.util import logging

# What the converter knows by another name: it aligns the rows of a displayed formula by itself.
OTHER_NAMES = [(r"\\(begin|end)\{aligned\}", ""), (r"\\dots\b", r"\\ldots")]


def mathml(node, inline):
    text = node.astext()
    for pattern, known in OTHER_NAMES:
        text = re.sub(pattern, known, text)
    try:
        return tex2mathml(text, inline=inline)
    except SyntaxError as error:
        logging.getLogger(__name__).warning("formula %r: %s", text, error, location=node)
        return ""


def visitor(inline):
    def visit(translator, node):
        translator.body.append(mathml(node, inline))
        raise SkipNode
    return visit


def setup(app):
    app.add_html_math_renderer("mathml", (visitor(True), None), (visitor(False), None))
    return {"parallel_read_safe": True}
