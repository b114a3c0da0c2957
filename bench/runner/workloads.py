"""The workloads, their peers, and the goals that are ratios of them."""
import re

OURS = ("ours",)
FLOOR = ("floor",)
RING = ("ring",)
GET = ("get",)
FILE = ("file",)
IDLE = ("idle",)
KERNEL = ("kernel",)
FFMPEG = ("ffmpeg", "--mode", "plain")
ASYNC = ("ffmpeg", "--mode", "async")
PUSH = ("gstreamer", "--mode", "push")
PULL = ("gstreamer", "--mode", "pull")

MIB = 1 << 20
PLAYED = 1024 * MIB  # bytes of the played resource
READS = (188, 4096, 32768, MIB)
STREAM = (OURS, RING, FFMPEG, ASYNC, PUSH, PULL)
SEEK = (OURS, RING, GET, FFMPEG, ASYNC, PULL)


class Workload:
    """One row of figures a peer. way: how the resource is reached. rounds: the limit for workloads that
    take minutes because they wait."""

    def __init__(self, name, way, peers, arguments, count=None, quick=20, size=None, limit=900,
                 rounds=9, plays=False):
        self.name, self.way, self.peers, self.limit = name, way, peers, limit
        self.fixed, self.count, self.quick = [str(word) for word in arguments], count, quick
        self.size, self.rounds, self.plays = size, rounds, plays

    def resource(self, options):
        """Bytes of the resource."""
        if self.plays:  # a small one would end too early
            return PLAYED
        return min(self.size or options.size, options.size)

    def arguments(self, servers, options):
        given = [*self.fixed, "--size", str(self.resource(options))]
        if self.count is not None:
            given += ["--count", str(min(self.count, self.quick) if options.quick else self.count)]
        if self.plays:
            seconds = 2 if options.quick else options.seconds
            given += ["--seconds", str(seconds), "--begin", str(min(5, seconds))]
        if self.way == "https":
            given += ["--ca", servers.ca]
        return given


def sequential():
    for read in READS:
        for way in ("http", "https", "local"):
            peers = [*STREAM, FILE if way == "local" else FLOOR]
            if read >= 32768 and way != "local":
                peers.append(GET)
            yield Workload(f"sequential {way} {read}", way, peers,
                           ["--workload", "sequential", "--read", read])


def seeks():
    few = (OURS, RING, FFMPEG, ASYNC)
    for way in ("http", "https", "link"):
        yield Workload(f"random {way}", way, SEEK if way == "http" else few,
                       ["--workload", "random", "--read", 65536], 1000,
                       rounds=9 if way == "http" else 3)
    for way in ("http", "link"):
        yield Workload(f"trace {way}", way, SEEK if way == "http" else few,
                       ["--workload", "trace"])
    for pause in (0, 300):
        yield Workload(f"backward after {pause} ms", "http", (OURS, RING, ASYNC),
                       ["--workload", "backward", "--read", 4096, "--pause", pause], 1000,
                       rounds=9 if pause == 0 else 1)
    yield Workload("skip http", "http", SEEK, ["--workload", "skip"], 1000)


def several():
    peers = (OURS, RING, FFMPEG)
    eight = ["--workload", "readers", "--readers", 8]
    many = ["--workload", "readers", "--distinct", "--readers"]
    yield Workload("8 readers free", "http", peers, eight, size=256 * MIB)
    yield Workload("8 readers in step 32 KiB", "http", peers, [*eight, "--step", 32768],
                   size=256 * MIB)
    yield Workload("8 readers in step 1 MiB", "http", peers, [*eight, "--step", MIB],
                   size=256 * MIB)
    yield Workload("8 readers in step 1 MiB link", "link", peers, [*eight, "--step", MIB],
                   size=8 * MIB)
    yield Workload("32 readers of 32 URLs", "http", peers, [*many, 32], size=64 * MIB)
    for count in (64, 255):
        yield Workload(f"{count} handles", "http", (OURS, RING),
                       [*many, count, "--buffer", 65536], size=4 * MIB)


def calls():
    for way in ("http", "https"):
        yield Workload(f"first byte {way}", way, (OURS, RING, FFMPEG), ["--workload", "first"], 200)
    for call in ("close", "abort", "seek"):
        yield Workload(f"silent server, {call}", "silent", (OURS, RING, FFMPEG),
                       ["--workload", "silent", "--call", call], 20, quick=3)


PLAY_RATES = (6, 25, 80)  # Mbit/s
PLAY_READS = (1316, 32768, 262144)


def play():
    for read in PLAY_READS:
        for rate in PLAY_RATES:
            for way in ("http", "https", "local"):
                peers = [IDLE, OURS, RING, FFMPEG, ASYNC, PULL]
                peers += {"local": [FILE], "http": [KERNEL]}.get(way, [])
                yield Workload(f"play {way} {rate} Mbit/s {read}", way, peers,
                               ["--workload", "play", "--read", read, "--rate", rate * 1000000],
                               rounds=3, plays=True)


def all_workloads():
    for group in (sequential, seeks, several, calls, play):
        yield from group()


def chosen(options):
    return [work for work in all_workloads() if re.search(options.only, work.name)]


# (text, figure, our workload, peer, the peer's workload if another, at most): ours divided by the peer's,
# medians.
GOALS = [
    ("http 32 KiB, wall of FFmpeg", "wall", "sequential http 32768", "ffmpeg-plain", None, 1.0),
    ("http 1 MiB, wall of FFmpeg", "wall", "sequential http 1048576", "ffmpeg-plain", None, 1.0),
    ("http 32 KiB, CPU of the floor", "cpu", "sequential http 32768", "floor", None, 1.25),
    ("http 1 MiB, CPU of the floor", "cpu", "sequential http 1048576", "floor", None, 1.25),
    ("http 32 KiB, CPU of the ring", "cpu", "sequential http 32768", "ring", None, 0.5),
    ("http 32 KiB, CPU of async", "cpu", "sequential http 32768", "ffmpeg-async", None, 0.5),
    ("http 32 KiB, CPU of queue2, pushed", "cpu", "sequential http 32768", "gstreamer-push", None, 1.0),
    ("http 32 KiB, CPU of queue2, pulled", "cpu", "sequential http 32768", "gstreamer-pull", None, 1.0),
    ("http 4 KiB, wall of ours at 32 KiB", "wall", "sequential http 4096", "ours",
     "sequential http 32768", 1.3),
    ("http 188 B, wall of ours at 32 KiB", "wall", "sequential http 188", "ours",
     "sequential http 32768", 2.5),
    ("http 188 B, wall of the ring", "wall", "sequential http 188", "ring", None, 1.0),
    ("http 188 B, wall of async", "wall", "sequential http 188", "ffmpeg-async", None, 1.0),
    ("local 32 KiB, CPU of read()", "cpu", "sequential local 32768", "file", None, 2.0),
    ("local 32 KiB, CPU of async", "cpu", "sequential local 32768", "ffmpeg-async", None, 1.0),
    ("local 32 KiB, CPU of queue2, pushed", "cpu", "sequential local 32768", "gstreamer-push", None, 1.0),
    ("local 32 KiB, CPU of queue2, pulled", "cpu", "sequential local 32768", "gstreamer-pull", None, 1.0),
    ("random seeks, p50 of the ring", "p50_us", "random http", "ring", None, 1.2),
    ("random seeks, slow link, p50 of the ring", "p50_us", "random link", "ring", None, 1.0),
    ("random seeks, slow link, p50 of FFmpeg", "p50_us", "random link", "ffmpeg-plain", None, 0.6),
    ("trace, wall of FFmpeg", "wall", "trace http", "ffmpeg-plain", None, 1.0),
    ("trace, wall of the ring", "wall", "trace http", "ring", None, 1.0),
    ("trace, slow link, wall of FFmpeg", "wall", "trace link", "ffmpeg-plain", None, 1.0),
    ("trace, slow link, wall of the ring", "wall", "trace link", "ring", None, 1.0),
    ("trace, requests of FFmpeg", "requests", "trace http", "ffmpeg-plain", None, 1.0),
    ("trace, requests of the ring", "requests", "trace http", "ring", None, 1.0),
    ("trace, slow link, requests of FFmpeg", "requests", "trace link", "ffmpeg-plain", None, 1.0),
    ("trace, slow link, requests of the ring", "requests", "trace link", "ring", None, 1.0),
    ("backward, p50 of the ring", "p50_us", "backward after 0 ms", "ring", None, 3.0),
    ("backward, p99 of the ring", "p99_us", "backward after 0 ms", "ring", None, 3.0),
    ("8 readers free, wall of the ring", "wall", "8 readers free", "ring", None, 1.0),
    ("first byte http, p50 of FFmpeg", "p50_us", "first byte http", "ffmpeg-plain", None, 1.0),
    ("first byte https, p50 of FFmpeg", "p50_us", "first byte https", "ffmpeg-plain", None, 1 / 3),
]

# (text, figure, workload, unit, at most): ours alone. Unit 0: the resource's size.
LIMITS = [
    ("8 readers free, resources sent", "sent", "8 readers free", 0, 8.0),
    ("8 readers in step 32 KiB, resources sent", "sent", "8 readers in step 32 KiB", 0, 1.01),
    ("8 readers in step 1 MiB, resources sent", "sent", "8 readers in step 1 MiB", 0, 2.0),
    ("the same over the slow link, resources sent", "sent", "8 readers in step 1 MiB link", 0, 1.1),
    ("close on a silent server, p99 ms", "p99_us", "silent server, close", 1000, 50.0),
    ("abort on a silent server, p99 ms", "p99_us", "silent server, abort", 1000, 50.0),
    ("seek on a silent server, p99 ms", "p99_us", "silent server, seek", 1000, 50.0),
]
