#!/usr/bin/env python3
"""Measures what a player feels over a long, slow link, and draws it.

    measure.py run BUILD PORT ACCESS_LOG FILE...    measures; prints one line of CSV a case
    measure.py table CSV                            the same as a Markdown table
    measure.py picture CSV                          the same as an SVG
    measure.py page CSV PAGE                        puts the table between the marks of a page

FILE is a name that the server at PORT serves and whose requests it writes into ACCESS_LOG.
"""
import collections
import contextlib
import csv
import io
import itertools
import os
import re
import statistics
import subprocess
import sys
import time
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[3] / "scripts"))
from chart import Bar, Sheet, bars, legend  # noqa: E402
from measured_at import measured_at  # noqa: E402

RATE = 2_500_000  # bytes a second: 20 Mbit/s
ROUND_TRIPS = (0, 20, 100)
ROUNDS = int(os.environ.get("FLUVIA_ROUNDS", "3"))
SEEKS = 12
SEED = "7"
FIELDS = ["file", "round_trip_ms", "way", "first_ms", "seek_ms", "seek_worst_ms",
          "start_requests", "start_kb", "requests_a_seek", "kb_a_seek"]


def ways(build, file):
    """The players of a file, with their commands. HLS through FFmpeg is measured elsewhere, and mpv
    lets FFmpeg open it."""
    frames = [build + "/examples/ffmpeg/frames"]
    gst = [build + "/tests/products/players/gst-frames"]
    plugin = ["--plugin", build + "/plugins/gstreamer/libgstfluvia.so"]
    ffmpeg = [("FFmpeg, libfluviafs", frames, ""),
              ("FFmpeg, its own http", frames + ["--plain"], "")]
    mpv = [build + "/tests/products/players/mpv-times"]
    single = ffmpeg + [("mpv, libfluviafs", mpv, "fluvia+"), ("mpv, its own http", mpv, "")]
    return (single if not file.endswith(".m3u8") else []) + [
        ("GStreamer, fluviasrc", gst + plugin, "fluvia+"),
        ("GStreamer, souphttpsrc", gst, "")]


class Link:
    """A slow link for one run of a player; counts requests and bytes."""

    def __init__(self, build, port, round_trip, log):
        self.log = log
        self.before = self.lines()
        self.process = subprocess.Popen(
            [build + "/tests/products/players/slow-link", port, str(round_trip), str(RATE)],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.port = self.process.stdout.readline().strip()

    def lines(self):
        with open(self.log, encoding="utf-8", errors="replace") as file:
            return sum(1 for _ in file)

    def end(self):
        """Returns requests made and bytes sent. The server logs a request when it has ended."""
        return self.end_with_connections()[:2]

    def end_with_connections(self):
        """The same, and the connections."""
        out, _ = self.process.communicate("")
        quiet_since, seen = time.monotonic(), self.lines()
        while time.monotonic() - quiet_since < 0.3:
            time.sleep(0.02)
            if self.lines() != seen:
                quiet_since, seen = time.monotonic(), self.lines()
        connections, sent = out.split()
        return seen - self.before, int(sent), int(connections)


def play(build, port, log, round_trip, command, prefix, file, seeks):
    """Returns None for a player that does not play it to the end: some refuse to seek in some media."""
    link = Link(build, port, round_trip, log)
    url = f"{prefix}http://127.0.0.1:{link.port}/{file}"
    options = ["--timing", "--seeks", str(seeks), "--seed", SEED]
    result = subprocess.run(command + options + [url], stdout=subprocess.DEVNULL,
                            stderr=subprocess.PIPE, text=True, errors="replace", timeout=300)
    requests, sent = link.end()
    if result.returncode != 0:
        print(f"{command} {url} failed:\n{result.stderr[-500:]}", file=sys.stderr)
        return None
    times = {what: [float(ms) for ms in re.findall(rf"^{what} ([0-9.]+) ms$", result.stderr, re.M)]
             for what in ("first frame", "seek")}
    return times["first frame"][0], times["seek"], requests, sent


def middle(runs, field):
    return statistics.median(each[field] for each in runs)


def summary(file, round_trip, name, starts, seeks):
    requests, sent = middle(starts, 2), middle(starts, 3)
    row = {"file": file, "round_trip_ms": round_trip, "way": name,
           "first_ms": round(middle(starts + seeks, 0)),
           "start_requests": requests, "start_kb": round(sent / 1000)}
    times = [ms for each in seeks for ms in each[1]]
    if times:
        row.update({"seek_ms": round(statistics.median(times)), "seek_worst_ms": round(max(times)),
                    "requests_a_seek": round((middle(seeks, 2) - requests) / SEEKS, 1),
                    "kb_a_seek": round((middle(seeks, 3) - sent) / SEEKS / 1000)})
    return row


def run(build, port, log, files):
    """The ways take turns, so that other load of the machine affects all of them."""
    print(f"# {measured_at()}")
    out = csv.DictWriter(sys.stdout, FIELDS)
    out.writeheader()
    for file, round_trip in itertools.product(files, ROUND_TRIPS):
        starts, seeks = collections.defaultdict(list), collections.defaultdict(list)
        for name, command, prefix in ways(build, file) * ROUNDS:
            case = (build, port, log, round_trip, command, prefix, file)
            for runs, count in ((starts[name], 0), (seeks[name], SEEKS)):
                played = play(*case, count)
                runs += [played] if played else []
        for name, _, _ in ways(build, file):
            out.writerow(summary(file, round_trip, name, starts[name], seeks[name]))
        sys.stdout.flush()


def rows_of(path):
    with open(path, encoding="utf-8", newline="") as file:
        return list(csv.DictReader(line for line in file if not line.startswith("#")))


def origin_of(path):
    """Returns the commit of the figures, from its first line."""
    with open(path, encoding="utf-8") as file:
        return file.readline().lstrip("# ").strip()


def page(path, name):
    with open(name, encoding="utf-8") as file:
        text = file.read()
    begin, end = "<!-- figures -->\n", "<!-- /figures -->"
    before, after = text.split(begin)[0], text.split(end)[1]
    made = io.StringIO()
    with contextlib.redirect_stdout(made):
        table(path)
    with open(name, "w", encoding="utf-8") as file:
        file.write(before + begin + "\n" + made.getvalue() + "\n" + end + after)


def table(path):
    origin = origin_of(path)
    print(f"{origin[0].upper()}{origin[1:]}.\n")
    print("| File | Round trip | Read by | First frame | Seek, median (worst) | "
          "Start: requests, kB | A seek: requests, kB |")
    print("|---|---|---|---|---|---|---|")
    for row in rows_of(path):
        seek, cost = "refused", ""
        if row["seek_ms"]:
            seek = f"{row['seek_ms']} ms ({row['seek_worst_ms']} ms)"
            cost = f"{float(row['requests_a_seek']):g}, {row['kb_a_seek']}"
        print(f"| {row['file']} | {row['round_trip_ms']} ms | {row['way']} | {row['first_ms']} ms | "
              f"{seek} | {float(row['start_requests']):g}, {row['start_kb']} | {cost} |")


COLOURS = {"FFmpeg, libfluviafs": "#1f6f8b", "FFmpeg, its own http": "#9fc5d1",
           "mpv, libfluviafs": "#4f7d3a", "mpv, its own http": "#b9d1ac",
           "GStreamer, fluviasrc": "#a8552e", "GStreamer, souphttpsrc": "#e0b79f"}


def panel(rows, field):
    """The bars of one figure, under a heading for each file and round trip."""
    before = None
    for row in rows:
        case = f"{row['file']}, {row['round_trip_ms']} ms"
        if case != before:
            yield case
        before = case
        value = float(row[field]) if row[field] else None
        yield Bar(value, row[field] or "refused", COLOURS[row["way"]])


def picture(path):
    rows = rows_of(path)
    sheet, bottom = Sheet(870, 0), 0
    for left, field, title in ((20, "first_ms", "Open to first frame, ms"),
                               (450, "seek_ms", "Seek to frame, median ms")):
        bottom = bars(sheet, left, 28, 330, title, list(panel(rows, field)), thick=11, gap=2)
    sheet.height = bottom + 50
    legend(sheet, 20, bottom + 16, 140, COLOURS)
    sheet.text(20, bottom + 42, origin_of(path), font_size=10, fill="#555")
    print(sheet, end="")


def main():
    what = sys.argv[1:2]
    if what == ["run"] and len(sys.argv) > 5:
        run(sys.argv[2], sys.argv[3], sys.argv[4], sys.argv[5:])
    elif what == ["table"] and len(sys.argv) == 3:
        table(sys.argv[2])
    elif what == ["page"] and len(sys.argv) == 4:
        page(sys.argv[2], sys.argv[3])
    elif what == ["picture"] and len(sys.argv) == 3:
        picture(sys.argv[2])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
