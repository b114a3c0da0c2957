#!/usr/bin/env python3
"""Draws the soak's, the players' and the growth's figures.

  draw.py soak CSV SVG       processor, memory, descriptors and threads over time
  draw.py playing CSV SVG    processor and memory of a player over time, a line a rate
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
    charts = [("Resident memory, MiB", {"memory": memory}, "seconds", False, True),
              ("Descriptors and threads", counts, "seconds", False, True)]
    if "processor" in rows[0]:
        spent = [float(row["processor"]) for row in rows]
        # Ten seconds a point: players pause and scrub.
        used = [(x[i], 100 * (spent[i] - spent[i - 10]) / (x[i] - x[i - 10]))
                for i in range(10, len(rows), 10)]
        charts.insert(0, ("Processor, % of one", {"processor": used}, "seconds", False, True))
    return charts


def playing(rows):
    processor, whole, own = {}, {}, {}
    for row in rows:
        name, at = row["rate"] + " Mbit/s", float(row["seconds"])
        if at < 2:  # the program's start would dwarf the rest
            continue
        processor.setdefault(name, []).append((at, float(row["processor"])))
        whole.setdefault(name, []).append((at, int(row["memory"]) / 1024))
        own.setdefault(name + ", not of files", []).append((at, int(row["own"]) / 1024))
    return [("Processor, %", processor, "seconds", False, True),
            ("Resident memory, MiB", whole | own, "seconds", False, True)]


def growth(rows):
    charts = {}
    for row in rows:
        series = charts.setdefault(row["variable"], {}).setdefault(row["operation"], [])
        series.append((float(row["count"]), max(float(row["microseconds"]), 0.01)))
    return [("Microseconds over " + variable, series, variable, True, False)
            for variable, series in charts.items()]


def main():
    drawn = {"soak": soak, "playing": playing, "growth": growth}
    if len(sys.argv) != 4 or sys.argv[1] not in drawn:
        sys.exit(__doc__)
    with open(sys.argv[2], newline="", encoding="utf-8") as source:
        rows = list(csv.DictReader(source))
    charts = drawn[sys.argv[1]](rows)
    sheet = Sheet(LINES_WIDTH, LINES_HEIGHT * len(charts))
    for i, chart in enumerate(charts):
        lines(sheet, i * LINES_HEIGHT, *chart)
    sheet.text(LINES_WIDTH - 10, LINES_HEIGHT * len(charts) - 6, measured_at(), text_anchor="end",
               font_size=10)
    with open(sys.argv[3], "w", encoding="utf-8") as target:
        target.write(str(sheet))


if __name__ == "__main__":
    main()
