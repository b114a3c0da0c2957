#!/usr/bin/env python3
"""Makes a live HLS stream of a whole one, in real time.

    live_hls.py PLAYLIST FOLDER [--window PIECES] [--first PIECE] [--rounds N]

Writes the pieces of PLAYLIST (HLS of MPEG-TS, with relative names) to FOLDER one by one, each after the
duration of the previous one. live.m3u8 there lists the last ones, three by default. A piece that leaves the
playlist is deleted. It begins with a full window from piece number --first on, prints the line "live" then,
and ends after the last piece of the last round with #EXT-X-ENDLIST. Later rounds begin with a discontinuity,
as after an advertisement.
"""
import argparse
import os
import shutil
import sys
import time
from pathlib import Path


def pieces_of(playlist):
    """The pieces of a playlist in order, each as seconds and file."""
    pieces, seconds = [], 0.0
    for line in playlist.read_text(encoding="utf-8").splitlines():
        if line.startswith("#EXTINF:"):
            seconds = float(line[len("#EXTINF:"):].split(",")[0])
        elif line and not line.startswith("#"):
            pieces.append((seconds, playlist.parent / line))
    return pieces


class Live:
    """The current contents of the folder."""

    def __init__(self, folder, window):
        self.folder = folder
        self.window = window
        self.first = 0  # number of the first piece in the playlist
        self.shown = []  # seconds, name, whether it begins a round
        self.longest = 1

    def add(self, number, seconds, source, begins):
        name = f"live{number:04d}.ts"
        shutil.copyfile(source, self.folder / name)
        self.shown.append((seconds, name, begins))
        self.longest = max(self.longest, round(seconds))
        gone = self.shown[:-self.window]
        self.shown = self.shown[-self.window:]
        self.first += len(gone)
        return [name for _, name, _ in gone]

    def write(self, over):
        lines = ["#EXTM3U", "#EXT-X-VERSION:3", f"#EXT-X-TARGETDURATION:{self.longest}",
                 f"#EXT-X-MEDIA-SEQUENCE:{self.first}"]
        for seconds, name, begins in self.shown:
            if begins:
                lines.append("#EXT-X-DISCONTINUITY")
            lines += [f"#EXTINF:{seconds:.6f},", name]
        if over:
            lines.append("#EXT-X-ENDLIST")
        new = self.folder / "live.m3u8.new"
        new.write_text("\n".join(lines) + "\n", encoding="utf-8")
        os.replace(new, self.folder / "live.m3u8")


def run(options):
    round_of = pieces_of(options.playlist)
    pieces = round_of[options.first:] + round_of * (options.rounds - 1)
    begins = len(round_of) - options.first
    live = Live(options.folder, options.window)
    live.first = options.first
    due = time.monotonic()
    for at, (seconds, source) in enumerate(pieces):
        gone = live.add(options.first + at, seconds, source,
                        at >= begins and (at - begins) % len(round_of) == 0)
        if at + 1 < options.window:
            continue
        live.write(over=at + 1 == len(pieces))
        for name in gone:
            (options.folder / name).unlink()
        if at + 1 == options.window:
            print("live", flush=True)
        # A stream's own time, not a synchronisation.
        due += seconds
        time.sleep(max(0.0, due - time.monotonic()))


def main():
    parser = argparse.ArgumentParser(description="Makes a live HLS stream of a whole one.")
    parser.add_argument("playlist", type=Path)
    parser.add_argument("folder", type=Path)
    parser.add_argument("--window", type=int, default=3)
    parser.add_argument("--first", type=int, default=0)
    parser.add_argument("--rounds", type=int, default=1)
    run(parser.parse_args())


if __name__ == "__main__":
    sys.exit(main())
