"""The picture of a run, which looks as that of the program."""

import math
from collections import namedtuple
from html import escape

import numpy as np

_STYLE = """<style>
  text { font-family: "Helvetica Neue", Helvetica, Arial, sans-serif; font-size: 13px; fill: #222; }
  .title { font-size: 16px; font-weight: 600; }   .panel { font-size: 14px; font-weight: 600; }
  .grid { stroke: #e4e4e4; }   .frame { fill: none; stroke: #222; }   .cost { fill: #7d8ba1; }
  .threshold { stroke: #c2472b; stroke-dasharray: 6 4; }
  text.threshold { fill: #c2472b; stroke: none; }
  .pair { fill: none; stroke-linejoin: round; stroke-linecap: round; }
</style>
<rect width="100%" height="100%" fill="#fff"/>"""


class _Frame(namedtuple("_Frame", "left right top bottom")):
    def x(self, part):
        return self.left + part * (self.right - self.left)

    def y(self, part):
        return self.bottom - part * (self.bottom - self.top)

    def line(self, part, kind):
        return f'<path class="{kind}" d="M{self.left} {self.y(part):.1f}H{self.right}"/>'

    def tick(self, part, text):
        return self.line(part, "grid") + _text("end", self.left - 8, self.y(part) + 4, text)

    def box(self, attributes):
        return (f'<rect {attributes} x="{self.left:.1f}" y="{self.top:.1f}"'
                f' width="{self.right - self.left:.1f}" height="{self.bottom - self.top:.1f}"/>')


_RESIDUALS = _Frame(100, 716, 84, 420)  # the margin beside it names the threshold
_VALUES, _COSTS = _Frame(100, 400, 506, 684), _Frame(570, 740, 506, 684)


def draw(result):
    """Text of an SVG file."""
    pairs = len(result.values)
    title = result.summary().partition(" (")[0]  # how the run ended
    return "\n".join([
        '<svg xmlns="http://www.w3.org/2000/svg" width="820" height="740" viewBox="0 0 820 740">',
        _STYLE, _text("start", _RESIDUALS.left, 36, title, "title"), *_residuals(result),
        *(_legend(pairs) if pairs > 1 else ()), *_values(result), *_costs(result.statistics),
        "</svg>\n"])


def _text(anchor, x, y, text, kind="tick"):
    return f'<text class="{kind}" text-anchor="{anchor}" x="{x:g}" y="{y:g}">{escape(text)}</text>'


def _panel(frame, title, x, y):
    """Border, title and the names of the axes."""
    at = f"translate({frame.left - 82} {frame.y(0.5)})"
    return [frame.box('class="frame"'), _text("start", frame.left, frame.top - 10, title, "panel"),
            _text("middle", frame.x(0.5), frame.bottom + 38, x),
            f'<text text-anchor="middle" transform="{at} rotate(-90)">{y}</text>']


def _colour(pair, pairs):
    part = pair / (pairs - 1) if pairs > 1 else 0.0
    return f"rgb({31 + int(part * 189)} {90 + int(part * 30)} {148 - int(part * 118)})"


def _step(extent, most=10):
    """The smallest step of 1, 2 or 5 times a power of ten that gives no more ticks."""
    power = 10.0 ** math.floor(math.log10(extent / most))
    return power * next((factor for factor in (1, 2, 5) if extent <= most * factor * power), 10)


def _residuals(result):
    frame, pairs = _RESIDUALS, len(result.values)
    at = [state.iteration for state in result.history]
    curves = np.array([state.residuals for state in result.history])
    curves = curves[:, ::-1] if result.settings.is_highest else curves  # there the highest is first
    known, last, width = np.isfinite(curves) & (curves > 0), max(*at, 1), 1.3 if len(at) > 1 else 7
    threshold = [result.threshold] if result.settings.detector == "residuals" else []
    logs = np.log10([*curves[known], *threshold] or [1.0])
    low, high = math.floor(logs.min()), max(math.ceil(logs.max()), math.floor(logs.min()) + 1)
    drawn = [_text("middle", frame.x(tick / last), frame.bottom + 18, str(tick))
             for tick in range(0, last + 1, max(1, int(_step(last))))]
    drawn += [frame.tick((decade - low) / (high - low), f"1e{decade}")
              for decade in range(low, high + 1, max(1, int(_step(high - low))))]
    drawn += _panel(frame, "Residuals", "iteration", "residual")
    for j in range(pairs):
        path = ""  # a line breaks where a residual is not known; one that stands alone is a dot
        for i in np.flatnonzero(known[:, j]):
            y = frame.y((math.log10(curves[i, j]) - low) / (high - low))
            place = f"{frame.x(at[i] / last):.1f} {y:.1f}"
            path += f"L{place}" if i > 0 and known[i - 1, j] else f"M{place}h0"
        stroke = f'stroke="{_colour(j, pairs)}" stroke-width="{width}"'
        drawn.append(f'<path class="pair" {stroke} d="{path}"/>')
    for bound in threshold:
        part = (math.log10(bound) - low) / (high - low)
        drawn += [frame.line(part, "threshold"), *(
            _text("start", frame.right + 8, frame.y(part) + shift, text, "threshold")
            for shift, text in ((-3, "threshold"), (13, f"{bound:.2g}")))]
    return drawn


def _legend(pairs):
    last, y, steps = f"pair {pairs}", _RESIDUALS.top - 10, min(pairs, 12)
    bar, each = _RESIDUALS.right - 108 - 8 * len(last), 96 / steps
    boxes = [_Frame(bar + each * i, bar + each * (i + 1), y - 9, y) for i in range(steps)]
    return [_text("end", bar - 8, y, "pair 1"), _text("start", bar + 104, y, last),
            *(box.box(f'fill="{_colour(i, steps)}"') for i, box in enumerate(boxes))]


def _values(result):
    frame, pairs = _VALUES, len(result.values)
    known = np.flatnonzero(np.isfinite(result.values))
    low, high = (end(result.values[known], default=0.0) for end in (min, max))
    size, extent = max(-low, high), high - low
    # Values closer than labels can tell are no range.
    margin = 0.05 * extent if extent > 1e-4 * size else 0.1 * size or 1.0
    low, high = low - margin, high + margin
    digits = int(np.clip(math.log10(max(-low, high) / (high - low)) + 3, 3, 15))
    step, each = _step(high - low, 6), max(1, int(_step(pairs)))
    drawn = [_text("middle", frame.x((pair - 0.5) / pairs), frame.bottom + 18, str(pair))
             for pair in range(each, pairs + 1, each)]
    drawn += [frame.tick((tick - low) / (high - low), f"{tick:.{digits}g}")
              for tick in np.arange(math.ceil(low / step), math.floor(high / step) + 1) * step]
    hint = "" if result.converged else " (hollow: not converged)"
    drawn += _panel(frame, "Eigenvalues" + hint, "pair", "eigenvalue")
    first = pairs - result.n_converged if result.settings.is_highest else 0
    for j in known:
        x, y = frame.x((j + 0.5) / pairs), frame.y((result.values[j] - low) / (high - low))
        edge = _colour(j, pairs)
        fill = edge if first <= j < first + result.n_converged else "#fff"
        drawn.append(f'<circle cx="{x:g}" cy="{y:g}" r="3.5" stroke="{edge}" fill="{fill}"/>')
    return drawn


def _costs(statistics):
    total, frame = statistics.seconds_total, _COSTS
    parts = {"operators": statistics.seconds_operators, "small problems": statistics.seconds_dense}
    parts["rest of the time"] = max(total - sum(parts.values()), 0.0)
    drawn = [_text("start", 446, frame.top - 10, f"Time, {total:.3g} s in all", "panel")]
    for i, (name, seconds) in enumerate(parts.items()):
        right, top = frame.x(seconds / max(*parts.values(), 1e-300)), frame.top + 36 * i
        drawn += [_text("end", frame.left - 8, top + 22, name),
                  _Frame(frame.left, right, top + 8, top + 28).box('class="cost"'),
                  _text("start", right + 6, top + 22, f"{seconds:.2g} s")]
    return drawn
