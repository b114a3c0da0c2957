#!/usr/bin/env python3
"""Measures HLS over a long, slow link: what a viewer feels, and what it costs.

    measure_hls.py run BUILD HTTP_PORT HTTPS_PORT ACCESS_LOG NAME CA [ROUNDS]  measures; CSV, a line a case
    measure_hls.py table CSV                                        the same as a Markdown table
    measure_hls.py page CSV PAGE                                    puts it between the marks of a page

NAME is the playlist that the servers at both ports serve, and whose requests they write into
ACCESS_LOG; CA is the authority of the one at HTTPS_PORT. A case is played three times in each round
(by GStreamer twice: it does not tell how long it waits): to the first frame and through the seeks, as
fast as it goes, and in the time of the medium.
"""
import contextlib
import csv
import io
import itertools
import re
import statistics
import subprocess
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parent))
from measure import Link, RATE, SEED, SEEKS, origin_of, rows_of  # noqa: E402
from measured_at import measured_at  # noqa: E402

ROUND_TRIPS = (0, 20, 100)


def ways(build, authority):
    """The players, each with its source and the prefix of its address."""
    frames = [build + "/examples/ffmpeg/frames"]
    # A check of the certificate costs little; souphttpsrc cannot be given an authority for the pieces.
    gst = [build + "/tests/products/players/gst-frames", "--ca", authority]
    plugin = ["--plugin", build + "/plugins/gstreamer/libgstfluvia.so"]
    return (("FFmpeg, libfluviafs", frames, ""), ("FFmpeg, its own http", frames + ["--plain"], ""),
            ("GStreamer, fluviasrc", gst + plugin, "fluvia+"), ("GStreamer, souphttpsrc", gst, ""))


FIELDS = ["scheme", "round_trip_ms", "way", "first_ms", "seek_ms", "seek_worst_ms", "gap_ms",
          "stalled_ms", "stalls", "requests", "connections", "kb"]


class Case:
    """A scheme, a round trip and a way, with the results of its runs."""

    def __init__(self, scheme, port, round_trip, way):
        self.scheme, self.port, self.round_trip = scheme, port, round_trip
        self.name, self.command, self.prefix = way
        self.seen = {field: [] for field in FIELDS}

    def play(self, build, log, name, options):
        """Returns the player's figures, its requests, connections and bytes."""
        link = Link(build, self.port, self.round_trip, log)
        url = f"{self.prefix}{self.scheme}://127.0.0.1:{link.port}/{name}"
        command = [*self.command, *options, url]
        result = subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                text=True, errors="replace", timeout=300, check=False)
        requests, sent, connections = link.end_with_connections()
        if result.returncode != 0:
            sys.exit(f"{command} failed:\n{result.stderr[-2000:]}")
        return result.stderr, requests, sent, connections

    def measure(self, build, log, name):
        seeks = ["--timing", "--seeks", str(SEEKS), "--seed", SEED]
        said = self.play(build, log, name, seeks)[0]
        self.seen["first_ms"].append(number(said, "first frame"))
        self.seen["seek_ms"] += [float(ms) for ms in re.findall(r"^seek ([0-9.]+) ms$", said, re.M)]
        if "GStreamer" in self.name:
            said, requests, sent, connections = self.play(build, log, name, ["--paced"])
            self.seen["stalled_ms"].append(number(said, "latest frame"))
        else:
            said, requests, sent, connections = self.play(build, log, name, ["--waits"])
            self.seen["gap_ms"].append(number(said, "longest wait"))
            said = self.play(build, log, name, ["--paced"])[0]
            self.seen["stalled_ms"].append(number(said, "stalled"))
            self.seen["stalls"].append(int(re.search(r" in (\d+) places", said).group(1)))
        self.seen["requests"].append(requests)
        self.seen["connections"].append(connections)
        self.seen["kb"].append(sent / 1000)

    def row(self):
        row = {"scheme": self.scheme, "round_trip_ms": self.round_trip, "way": self.name}
        for field in FIELDS[3:]:  # the worst seek has no list of its own
            row[field] = round(statistics.median(self.seen[field])) if self.seen[field] else ""
        row["seek_worst_ms"] = round(max(self.seen["seek_ms"]))
        return row


def number(said, what):
    return float(re.search(rf"^{what} ([0-9.]+) ms", said, re.M).group(1))


def run(build, ports, log, name, authority, rounds):
    times = "one round" if rounds == 1 else f"{rounds} rounds"
    print(f"# {measured_at()}; {times}, {RATE * 8 // 1_000_000} Mbit/s")
    out = csv.DictWriter(sys.stdout, FIELDS)
    out.writeheader()
    for (scheme, port), round_trip in itertools.product(ports.items(), ROUND_TRIPS):
        cases = [Case(scheme, port, round_trip, way) for way in ways(build, authority)]
        # The ways take turns, so that other load of the machine affects both.
        for case in cases * rounds:
            case.measure(build, log, name)
        for case in cases:
            out.writerow(case.row())
        sys.stdout.flush()


def table(path):
    origin = origin_of(path)
    print(f"{origin[0].upper()}{origin[1:]}.\n")
    print("| Link | Player | First frame | Seek, median (worst) | Longest gap, at full speed | "
          "Stood still, in real time | Requests, connections, kB |")
    print("|---|---|---|---|---|---|---|")
    for row in rows_of(path):
        print(f"| {row['scheme']}, {row['round_trip_ms']} ms | {row['way']} | {row['first_ms']} ms | "
              f"{row['seek_ms']} ms ({row['seek_worst_ms']} ms) | "
              f"{row['gap_ms'] + ' ms' if row['gap_ms'] else ''} | {row['stalled_ms']} ms"
              f"{', ' + row['stalls'] + ' times' if row['stalls'] else ' at most'} | "
              f"{row['requests']}, {row['connections']}, {row['kb']} |")


def page(path, name):
    text = Path(name).read_text(encoding="utf-8")
    begin, end = "<!-- hls figures -->\n", "<!-- /hls figures -->"
    before, after = text.split(begin)[0], text.split(end)[1]
    made = io.StringIO()
    with contextlib.redirect_stdout(made):
        table(path)
    Path(name).write_text(before + begin + "\n" + made.getvalue() + "\n" + end + after,
                          encoding="utf-8")


def main():
    what = sys.argv[1:2]
    if what == ["run"] and len(sys.argv) in (8, 9):
        build, plain, tls, log, name, authority = sys.argv[2:8]
        rounds = int(sys.argv[8]) if len(sys.argv) == 9 else 3
        run(build, {"http": plain, "https": tls}, log, name, authority, rounds)
    elif what == ["table"] and len(sys.argv) == 3:
        table(sys.argv[2])
    elif what == ["page"] and len(sys.argv) == 4:
        page(sys.argv[2], sys.argv[3])
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main()
