#!/usr/bin/env python3
"""Draws the soak's and the growth's figures.

  draw.py soak CSV SVG       memory, descriptors and threads over time
  draw.py growth CSV SVG     microseconds of an operation over the count of what grows
"""
import csv
import math
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent.parent.parent / "scripts"))
from measured_at import measured_at  # noqa: E402

WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 760, 260, 70, 250, 30, 40
COLOURS = ["#1f77b4", "#d62728", "#2ca02c", "#9467bd", "#ff7f0e", "#17becf", "#8c564b"]


def text(x, y, words, anchor="start", size=12):
    return f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}">{words}</text>'


def ticks(low, high, logarithmic):
    if logarithmic:
        return [10.0 ** e for e in range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
                if low <= 10.0 ** e <= high]
    step = 10.0 ** math.floor(math.log10(max(high - low, 1e-9)))
    while (high - low) / step < 4:
        step /= 2
    first = math.ceil(low / step)
    return [i * step for i in range(first, int(high / step) + 1)]


def chart(top, title, series, across, logarithmic=False, zero=False):
    """One chart of {name: [(x, y)]} as SVG elements, its upper edge at top."""
    xs = [x for points in series.values() for x, _ in points]
    ys = [y for points in series.values() for _, y in points]
    low_x, high_x = min(xs), max(xs)
    low_y, high_y = (0 if zero else min(ys)), max(ys)
    if high_y == low_y:
        high_y += 1
    if high_x == low_x:
        high_x += 1

    def place(value, low, high):
        if logarithmic:
            return (math.log10(value) - math.log10(low)) / (math.log10(high) - math.log10(low))
        return (value - low) / (high - low)

    def point(x, y):
        return (LEFT + place(x, low_x, high_x) * (WIDTH - LEFT - RIGHT),
                top + HEIGHT - BOTTOM - place(y, low_y, high_y) * (HEIGHT - TOP - BOTTOM))

    out = [text(LEFT, top + 18, title, size=14)]
    for value in ticks(low_y, high_y, logarithmic):
        x, y = point(low_x, value)
        out.append(f'<path d="M{x:.1f} {y:.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>')
        out.append(text(x - 6, y + 4, f"{value:g}", "end"))
    for value in ticks(low_x, high_x, logarithmic):
        x, y = point(value, low_y)
        out.append(f'<path d="M{x:.1f} {y:.1f}v5" stroke="#000"/>')
        out.append(text(x, y + 18, f"{value:g}", "middle"))
    out.append(text(WIDTH - RIGHT, top + HEIGHT - 4, across, "end"))
    for i, (name, points) in enumerate(series.items()):
        colour = COLOURS[i % len(COLOURS)]
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in (point(*each) for each in points))
        out.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="1.5"/>')
        out.append(f'<text x="{WIDTH - RIGHT + 10}" y="{top + TOP + 18 * i + 10}" font-size="11" '
                   f'fill="{colour}">{name}</text>')
    return out


def soak(rows):
    rows = [row for row in rows if row["quiet"] == "0"]
    x = [float(row["seconds"]) for row in rows]
    memory = [(a, int(row["memory"]) / 1048576) for a, row in zip(x, rows)]
    counts = {name: [(a, int(row[name])) for a, row in zip(x, rows)]
              for name in ("descriptors", "threads")}
    return [("Resident memory, MiB", {"memory": memory}, "seconds", False, True),
            ("Descriptors and threads", counts, "seconds", False, True)]


def growth(rows):
    charts = {}
    for row in rows:
        series = charts.setdefault(row["variable"], {}).setdefault(row["operation"], [])
        series.append((float(row["count"]), max(float(row["microseconds"]), 0.01)))
    return [("Microseconds over " + variable, series, variable, True, False)
            for variable, series in charts.items()]


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in ("soak", "growth"):
        sys.exit(__doc__)
    with open(sys.argv[2], newline="", encoding="utf-8") as source:
        rows = list(csv.DictReader(source))
    charts = soak(rows) if sys.argv[1] == "soak" else growth(rows)
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{HEIGHT * len(charts)}" '
           'font-family="sans-serif">', '<rect width="100%" height="100%" fill="#fff"/>']
    for i, (title, series, across, logarithmic, zero) in enumerate(charts):
        out += chart(i * HEIGHT, title, series, across, logarithmic, zero)
    out.append(text(WIDTH - 10, HEIGHT * len(charts) - 6, measured_at(), "end", 10))
    out.append("</svg>")
    with open(sys.argv[3], "w", encoding="utf-8") as target:
        target.write("\n".join(out) + "\n")


if __name__ == "__main__":
    main()
