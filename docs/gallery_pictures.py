#!/usr/bin/env python3
"""Draws into docs/pictures what the examples of the gallery without a picture of their own print:
gallery_pictures.py, after scripts/gallery has written docs/gallery/output."""
import math
import pathlib
import re

DOCS = pathlib.Path(__file__).resolve().parent
WIDTH, HEIGHT, LEFT, BELOW, MARGIN = 440, 300, 58, 44, 18
COLOURS = ["#2166ac", "#b2182b", "#1b7837", "#762a83"]


def numbers(line):
    return [float(n) for n in re.findall(r"-?\d+(?:\.\d+)?(?:e[-+]\d+)?", line)]


def lines_of(name, start=""):
    text = (DOCS / "gallery/output" / f"{name}.txt").read_text().splitlines()
    return [line for line in text if re.match(start, line)]


def ticks(low, high):
    """Some five round numbers from low to high."""
    step = 10 ** math.floor(math.log10((high - low) / 2))
    step *= next(m for m in (0.5, 1, 2, 5) if (high - low) / (m * step) <= 5.5)
    return [step * n for n in range(math.ceil(low / step), math.floor(high / step) + 1)]


def text(x, y, words, anchor="middle", more=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"{more}>{words}</text>'


def write(name, parts):
    body = "\n".join(['<rect width="100%" height="100%" fill="#fff"/>', *parts])
    (DOCS / "pictures" / f"{name}.svg").write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT}" '
        f'viewBox="0 0 {WIDTH} {HEIGHT}" font-family="Helvetica, Arial, sans-serif" '
        f'font-size="14" fill="#222">\n{body}\n</svg>\n')


def plot(name, x, series, across, up):
    """Series of y over x: lines through points."""
    low, high = min(map(min, series)), max(map(max, series))
    rise = 0.05 * (high - low)
    low, high = low - rise, high + rise
    at = lambda v: LEFT + (v - x[0]) / (x[-1] - x[0]) * (WIDTH - LEFT - MARGIN)
    to = lambda v: HEIGHT - BELOW - (v - low) / (high - low) * (HEIGHT - BELOW - MARGIN)
    parts = []
    for v in ticks(low, high):
        parts += [f'<path d="M{LEFT} {to(v):.1f}H{WIDTH - MARGIN}" stroke="#e4e4e4"/>',
                  text(LEFT - 6, to(v) + 5, f"{v:g}", "end")]
    parts += [text(at(v), HEIGHT - BELOW + 18, f"{v:g}") for v in ticks(x[0], x[-1])]
    for values, colour in zip(series, COLOURS):
        points = [f"{at(a):.1f} {to(b):.1f}" for a, b in zip(x, values)]
        parts.append(f'<path d="M{"L".join(points)}" fill="none" stroke="{colour}"/>')
        parts += [f'<circle cx="{p.split()[0]}" cy="{p.split()[1]}" r="3" fill="{colour}"/>'
                  for p in points]
    middle = (HEIGHT - BELOW + MARGIN) / 2
    parts += [text((LEFT + WIDTH - MARGIN) / 2, HEIGHT - 6, across),
              text(14, middle, up, more=f' transform="rotate(-90 14 {middle})"')]
    write(name, parts)


def bars(name, title, counts):
    """Counts by name, which the programs round."""
    parts = [text(MARGIN, 34, title, "start")]
    for j, (label, count) in enumerate(counts.items()):
        y = 76 + 96 * j
        length = max(2, count / max(counts.values()) * (WIDTH - 2 * MARGIN))
        parts += [text(MARGIN, y, f"{label}: ~{count:g}", "start"),
                  f'<rect x="{MARGIN}" y="{y + 10}" width="{length:.1f}" height="40" '
                  f'fill="{COLOURS[j]}"/>']
    write(name, parts)


def main():
    values = [numbers(line)[0] for line in lines_of("02_laplacian_mpi")]
    plot("laplacian", range(1, len(values) + 1), [[1000 * v for v in values]], "pair",
         "value x 1000")
    steps = [numbers(line) for line in lines_of("03_self_consistency", r" +\d")]
    plot("self_consistency", [s[0] for s in steps], list(zip(*(s[3:] for s in steps))), "step",
         "energies")
    bands = [numbers(line) for line in lines_of("04_k_points", "k = ")]
    plot("k_points", [b[0] for b in bands], list(zip(*(b[1:] for b in bands))), "k", "energies")
    without, with_it = numbers(lines_of("06_hanging_chain", "K applied")[0])
    bars("hanging_chain", "Columns that K is applied to", {"without T": without, "with T": with_it})
    bars("plane_waves", "Bands that H is applied to",
         {line.split(":")[0].strip(): numbers(line)[0]
          for line in lines_of("plane_waves", ".*H applied")})


if __name__ == "__main__":
    main()
