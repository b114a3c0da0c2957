#!/usr/bin/env python3
"""In the box: measures what playing costs, for tests/products/box/playing.

Prints tables; leaves playing.json, every turn's figures, and playing.csv, processor time and memory of
the library's player over time. Fails when a player fails.
"""

import argparse
import csv
import ctypes
import json
import os
import subprocess
import sys
import time
from pathlib import Path
from statistics import median

PROGRAMS = Path("/root/bin")
PEERS = {"idle": [], "ours": [], "ring": [], "ffmpeg": ["--mode", "plain"], "kernel": []}
RATES = (6, 25)  # Mbit/s
READ = 32768
BUFFER = 0x200000
GOAL = 0.6


def command(peer, given, rate, seconds, begin):
    return [str(PROGRAMS / f"bench-{peer}"), *PEERS[peer], "--workload", "play", "--url", given.http,
            "--size", str(given.size), "--read", str(READ), "--rate", str(rate * 1000000),
            "--seconds", str(seconds), "--begin", str(begin)]


def turn(peer, given, rate):
    """Returns the driver's figures, and "minute": its CPU seconds a minute."""
    done = subprocess.run(command(peer, given, rate, given.seconds, 5), capture_output=True, text=True,
                          check=False)
    if done.returncode != 0:
        sys.exit(f"bench-{peer} ended with {done.returncode}: {done.stderr[-2000:]}")
    figures = json.loads(done.stdout)
    figures.update(peer=peer, rate=rate, minute=figures["cpu"] * 60 / figures["wall"])
    print(f"{peer} {rate} Mbit/s: {figures['minute']:.3f} CPU s a minute", flush=True)
    return figures


def turns(given):
    runs = []
    for rate in RATES:
        for _ in range(given.turns):
            runs += [turn(peer, given, rate) for peer in PEERS]
    return runs


def minutes(runs, rate, peer):
    """CPU seconds a minute, of each turn, less the cost of sleeping."""
    idle = median(run["minute"] for run in runs if run["rate"] == rate and run["peer"] == "idle")
    return [run["minute"] - idle for run in runs if run["rate"] == rate and run["peer"] == peer]


def show_cost(runs):
    print("| CPU seconds a minute | library | FFmpeg `http:` | ring | kernel alone | of FFmpeg | of the ring |")
    print("|---|---:|---:|---:|---:|---:|---:|")
    for rate in RATES:
        all_of = {peer: minutes(runs, rate, peer) for peer in ("ours", "ffmpeg", "ring", "kernel")}
        middle = {peer: median(values) for peer, values in all_of.items()}
        cells = [f"{middle[peer]:.3f} ({min(values):.3f} to {max(values):.3f})"
                 for peer, values in all_of.items()]
        ratios = [middle["ours"] / middle[peer] for peer in ("ffmpeg", "ring")]
        cells += [f"{ratio:.2f}{'' if ratio <= GOAL else ' (missed)'}" for ratio in ratios]
        print(f"| {rate} Mbit/s | " + " | ".join(cells) + " |")
    late = {peer: sum(run["late"] for run in runs if run["peer"] == peer) for peer in PEERS}
    print(f"late reads: {late}")


def memory(pid="self"):
    """KiB that are resident, and those of them that belong to no file."""
    kib = {}
    for line in Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="utf-8").splitlines()[1:]:
        name, value = line.split()[:2]
        kib[name] = int(value)
    return kib["Rss:"], kib["Anonymous:"]


class Processor:
    """Seconds of processor time of all threads of a process, including ended ones."""

    def __init__(self, pid):
        self.folder, self.threads = Path(f"/proc/{pid}/task"), {}

    def seconds(self):
        for thread in self.folder.iterdir():
            try:
                spent = (thread / "schedstat").read_text(encoding="utf-8").split()[0]
            except (FileNotFoundError, ProcessLookupError):
                continue
            self.threads[thread.name] = int(spent)
        return sum(self.threads.values()) / 1e9


def samples(given, rate, seconds):
    """A player of the library from its start on: lines of rate, second, % of a processor, KiB."""
    lines = []
    with subprocess.Popen(command("ours", given, rate, seconds, 0), stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL) as player:
        processor = Processor(player.pid)
        begin = time.monotonic()
        before, since = 0.0, begin
        for second in range(1, seconds + 1):
            time.sleep(max(0.0, begin + second - time.monotonic()))
            now, spent = time.monotonic(), processor.seconds()
            lines.append([rate, round(now - begin, 1), round(100 * (spent - before) / (now - since), 2),
                          *memory(player.pid)])
            before, since = spent, now
        if player.wait() != 0:
            sys.exit(f"the player that was watched ended with {player.returncode}")
    return lines


CURLOPT_URL, CURLOPT_WRITEDATA, CURLOPT_CAINFO, CURLOPT_RANGE = 10002, 10001, 10065, 10007
CURLOPT_BUFFERSIZE = 98


def use_libcurl(url, certificate):
    """Reads four MiB with libcurl, with the library's receive buffer. The handle stays."""
    curl, libc = ctypes.CDLL("libcurl.so.4"), ctypes.CDLL("libc.so.6")
    for function in (curl.curl_easy_init, libc.fopen):
        function.restype = ctypes.c_void_p
    easy = ctypes.c_void_p(curl.curl_easy_init())
    nowhere = ctypes.c_void_p(libc.fopen(b"/dev/null", b"w"))
    for option, value in ((CURLOPT_URL, url.encode()), (CURLOPT_CAINFO, certificate.encode()),
                          (CURLOPT_RANGE, b"0-4194303"), (CURLOPT_WRITEDATA, nowhere),
                          (CURLOPT_BUFFERSIZE, 524288)):
        if curl.curl_easy_setopt(easy, option, value) != 0:
            sys.exit(f"libcurl does not take option {option}")
    code = curl.curl_easy_perform(easy)
    if code != 0:
        sys.exit(f"libcurl cannot read {url}: {code}")


class Library:
    """The library in this process."""

    def __init__(self):
        self.calls = ctypes.CDLL("libfluviafs.so.0")
        self.handle, self.place = ctypes.c_int(), ctypes.create_string_buffer(READ)

    def expect_ok(self, what, result):
        if result != 0:
            sys.exit(f"{what} gave {result}")

    def open(self, url, certificate):
        self.expect_ok("open", self.calls.x_fluvia_file_open_x(url.encode(), ctypes.byref(self.handle),
                                                               BUFFER))
        self.expect_ok("set_CA", self.calls.x_fluvia_file_http_set_CA(self.handle, certificate.encode()))

    def read(self):
        got = ctypes.c_uint()
        self.expect_ok("read", self.calls.x_fluvia_file_read(self.handle, self.place, READ,
                                                             ctypes.byref(got)))

    def close(self):
        self.expect_ok("close", self.calls.x_fluvia_file_close(self.handle))


def resident(url, certificate):
    """[(state, KiB resident, KiB of them without a file)] of this process, which has already used libcurl."""
    use_libcurl(url, certificate)
    library_there = [("libcurl used", *memory())]
    library = Library()
    library_there.append(("library loaded", *memory()))
    library.open(url, certificate)
    time.sleep(1)
    library_there.append(("opened", *memory()))
    begin, most = time.monotonic(), (0, 0)
    for number in range(int(10 * 6e6 / 8 / READ)):  # ten seconds of 6 Mbit/s
        time.sleep(max(0.0, begin + number * READ * 8 / 6e6 - time.monotonic()))
        library.read()
        if number % 20 == 0:
            most = max(most, memory())
    library_there.append(("playing", *most))
    library.close()
    return library_there


def show_memory(states):
    print("\n| KiB resident beyond libcurl's own (not of a file) | loaded | opened, not read | playing |")
    print("|---|---:|---:|---:|")
    for way, rows in states.items():
        (_, whole, own), *later = rows
        cells = [f"{row[1] - whole} ({row[2] - own})" for row in later]
        print(f"| {way} (with libcurl used: {whole}) | " + " | ".join(cells) + " |")


def of_child(given, way):
    """resident() in a process of its own."""
    url = given.http if way == "http" else given.https
    done = subprocess.run([sys.executable, __file__, "--resident", url, "--ca", given.ca],
                          capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"memory of {way}: {done.returncode} {done.stderr[-2000:]}")
    return json.loads(done.stdout)


def main():
    options = argparse.ArgumentParser(description=__doc__)
    options.add_argument("--turns", type=int)
    options.add_argument("--seconds", type=int, help="of each turn")
    options.add_argument("--size", type=int, help="bytes of the film")
    options.add_argument("--http")
    options.add_argument("--https")
    options.add_argument("--ca")
    options.add_argument("--out", help="a folder")
    options.add_argument("--resident", metavar="URL", help="memory of this process, reading that")
    given = options.parse_args()
    if given.resident:
        json.dump(resident(given.resident, given.ca), sys.stdout)
        return
    states = {way: of_child(given, way) for way in ("http", "https")}
    show_memory(states)
    runs = turns(given)
    print()
    show_cost(runs)
    watched = [line for rate in RATES for line in samples(given, rate, 20)]
    with open(os.path.join(given.out, "playing.json"), "w", encoding="utf-8") as file:
        json.dump({"runs": runs, "resident": states}, file, indent=1)
    with open(os.path.join(given.out, "playing.csv"), "w", encoding="utf-8", newline="") as file:
        lines = csv.writer(file, lineterminator="\n")
        lines.writerow(["rate", "seconds", "processor", "memory", "own"])
        lines.writerows(watched)


main()
