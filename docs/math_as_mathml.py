"""Formulas as MathML, which browsers show without scripts or a network."""
import re
import unicodedata

from docutils.nodes import SkipNode
from docutils.utils.math.latex2mathml import tex2mathml
from sphinx.util import logging

# What the converter knows otherwise: it aligns the rows of a displayed formula by itself.
OTHER_NAMES = [(r"\\(begin|end)\{aligned\}", ""), (r"\\dots\b", r"\\ldots"),
               (":=", r"\\coloneq ")]
# Bars stay small and close, and primes are raised.
OTHER_FORMS = [(r"<mo[^>]*>([|‖])</mo>", r'<mo stretchy="false" lspace="0" rspace="0">\1</mo>'),
               ("<mo>'</mo>", "<mo>′</mo>")]
VARIANT = re.compile(r'<mi mathvariant="(double-struck|bold|script|sans-serif)">([A-Za-z])</mi>')


def variant_letter(match):
    """A letter of its own, since browsers ignore the attribute."""
    name = f"{match[1]} {'capital' if match[2].isupper() else 'small'} {match[2]}".upper()
    try:
        letter = unicodedata.lookup("MATHEMATICAL " + name)
    except KeyError:
        letter = unicodedata.lookup(name)
    return f"<mi>{letter}</mi>"


def mathml(node, inline):
    text = node.astext()
    for pattern, known in OTHER_NAMES:
        text = re.sub(pattern, known, text)
    try:
        formula = tex2mathml(text, inline=inline)
    except SyntaxError as error:
        logging.getLogger(__name__).warning("formula %r: %s", text, error, location=node)
        return ""
    for pattern, form in OTHER_FORMS:
        formula = re.sub(pattern, form, formula)
    return VARIANT.sub(variant_letter, formula)


def visitor(inline):
    def visit(translator, node):
        translator.body.append(mathml(node, inline))
        raise SkipNode
    return visit


def setup(app):
    app.add_html_math_renderer("mathml", (visitor(True), None), (visitor(False), None))
    return {"parallel_read_safe": True}
