#!/usr/bin/env python3
"""Draws the soak's and the growth's figures.

  draw.py soak CSV SVG       memory, descriptors and threads over time
  draw.py growth CSV SVG     microseconds of an operation over the count of what grows
"""
import csv
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent.parent.parent / "scripts"))
from chart import LINES_HEIGHT, LINES_WIDTH, Sheet, lines  # noqa: E402
from measured_at import measured_at  # noqa: E402


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
    sheet = Sheet(LINES_WIDTH, LINES_HEIGHT * len(charts))
    for i, chart in enumerate(charts):
        lines(sheet, i * LINES_HEIGHT, *chart)
    sheet.text(LINES_WIDTH - 10, LINES_HEIGHT * len(charts) - 6, measured_at(), text_anchor="end",
               font_size=10)
    with open(sys.argv[3], "w", encoding="utf-8") as target:
        target.write(str(sheet))


if __name__ == "__main__":
    main()
