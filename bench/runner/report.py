"""Tables, ratios and plots of what bench/run measured."""
import os
from statistics import median

import plot
from workloads import GOALS, LIMITS, PLAY_RATES

COLUMNS = (("wall s", "wall", 1, "{:.3f}"), ("CPU s", "cpu", 1, "{:.3f}"),
           ("peak MiB", "peak_kib", 1 / 1024, "{:.1f}"), ("requests", "requests", 1, "{:.0f}"),
           ("sent MiB", "sent", 1 / (1 << 20), "{:.1f}"), ("p50 µs", "p50_us", 1, "{:.1f}"),
           ("p99 µs", "p99_us", 1, "{:.1f}"), ("switches", "switches", 1, "{:.0f}"),
           ("resumed", "resumed", 1, "{:.0f}"))


PLAY_COLUMNS = (("CPU s a minute", "minute", 1, "{:.3f}"),
                ("switches a s beside its own", "woken", 1, "{:.1f}"),
                ("late reads", "late", 1, "{:.0f}"), ("least held KiB", "least_held", 1 / 1024, "{:.0f}"),
                ("mean held KiB", "mean_held", 1 / 1024, "{:.0f}"),
                ("longest silence ms", "silence_ms", 1, "{:.0f}"),
                ("requests", "requests", 1, "{:.0f}"), ("p99 µs", "p99_us", 1, "{:.1f}"),
                ("longest µs", "longest_us", 1, "{:.0f}"))


def subtract_idle(peers):
    """Of `play`: what each peer used a minute beyond a driver that only sleeps."""
    idle = peers.pop("idle", None)
    for figures in peers.values():
        if figures is not None and idle is not None:
            figures["minute"] -= idle["minute"]


def worst(name, values):
    """Returns the worst turn of figures of which a single one is audible, else the median."""
    if name in ("late", "silence_ms", "longest_us"):
        return max(values)
    return min(values) if name == "least_held" else median(values)


def medians(measured):
    """{workload: {peer: {figure: median of the turns}}}, None for a peer that failed once."""
    turns = {}
    for run in measured["runs"]:
        turns.setdefault(run["workload"], {}).setdefault(run["peer"], []).append(run)
    table = {}
    for workload, peers in turns.items():
        table[workload] = {}
        for peer, runs in peers.items():
            if any("failed" in run for run in runs):
                table[workload][peer] = None
                continue
            for run in runs:
                run["switches"] = run["voluntary"] + run["involuntary"]
                if "sleeps" in run:
                    run["minute"] = run["cpu"] * 60 / run["wall"]
                    run["woken"] = (run["voluntary"] - run["sleeps"]) / run["wall"]
            columns = PLAY_COLUMNS if "sleeps" in runs[0] else COLUMNS
            figures = [name for name in (*(column[1] for column in columns), "resource")
                       if name in runs[0]]
            table[workload][peer] = {name: worst(name, [run[name] for run in runs])
                                     for name in figures}
        if workload.startswith("play "):
            subtract_idle(table[workload])
    return table


def failures(measured):
    told = sorted({(run["workload"], run["peer"], run["failed"]) for run in measured["runs"]
                   if "failed" in run})
    if told:
        yield from ("", "## Failed", "")
        yield from (f"- {workload}, {peer}: {why}" for workload, peer, why in told)


def rows(peers):
    shown = [column for column in (*COLUMNS, *PLAY_COLUMNS[:-3], PLAY_COLUMNS[-1])
             if any(figures and column[1] in figures for figures in peers.values())]
    yield "| peer | " + " | ".join(title for title, *_ in shown) + " |"
    yield "|---|" + "---:|" * len(shown)
    for peer, figures in peers.items():
        cells = ["failed" if figures is None
                 else pattern.format(figures[name] * factor) if name in figures else ""
                 for _, name, factor, pattern in shown]
        yield f"| {peer} | " + " | ".join(cells) + " |"


def figure(table, workload, peer, name):
    figures = table.get(workload, {}).get(peer)
    return None if figures is None else figures.get(name)


def goals(table):
    yield "| goal | ours | peer's | ratio | at most | |"
    yield "|---|---:|---:|---:|---:|---|"
    for text, name, workload, peer, other, most in GOALS:
        ours = figure(table, workload, "ours", name)
        theirs = figure(table, other or workload, peer, name)
        if ours is None or not theirs:
            continue
        ratio = ours / theirs
        word = "met" if ratio <= most else "missed"
        yield f"| {text} | {ours:.3f} | {theirs:.3f} | {ratio:.2f} | {most:.2f} | {word} |"
    yield from play_goals(table)


def play_goals(table):
    """Ratios of the cost of playing beyond sleeping."""
    shares = {1316: {rate: (1.0, None) for rate in PLAY_RATES},
              32768: {6: (0.7, 1.0), 25: (0.55, 0.55), 80: (0.7, 1.0)}}
    for read, rates in shares.items():
        for rate, (ffmpegs, others) in rates.items():
            workload = f"play http {rate} Mbit/s {read}"
            mosts = {"ffmpeg-plain": ffmpegs, "ring": others}
            if rate == 25:
                mosts.update({"ffmpeg-async": others, "gstreamer-pull": others})
            for peer, most in mosts.items():
                ours = figure(table, workload, "ours", "minute")
                theirs = figure(table, workload, peer, "minute")
                if most is None or ours is None or not theirs:
                    continue
                word = "met" if ours / theirs <= most else "missed"
                yield (f"| {workload}, CPU of {peer} | {ours:.3f} | {theirs:.3f} | "
                       f"{ours / theirs:.2f} | {most:.2f} | {word} |")


def play_limits(table):
    """Of the library's `play`: wake-ups, late reads, bytes ahead, silence."""
    def row(text, value, bound, good):
        return f"| {text} | {value:.1f} | {bound} | {'met' if good else 'missed'} |"

    for workload, peers in table.items():
        ours = peers.get("ours")
        if not workload.startswith("play ") or ours is None:
            continue
        if "25 Mbit/s" in workload:
            yield row(f"{workload}, switches a second", ours["woken"], "10", ours["woken"] <= 10)
        yield row(f"{workload}, late reads", ours["late"], "0", ours["late"] == 0)
        held = ours.get("least_held", 0) / 1024
        yield row(f"{workload}, least held KiB", held, "at least 1024", held >= 1024)
        if "silence_ms" in ours:
            yield row(f"{workload}, silence ms", ours["silence_ms"], "1000",
                      ours["silence_ms"] <= 1000)


def limits(table):
    """Goals that are not ratios to a peer."""
    yield from ("", "| goal | figure | at most | |", "|---|---:|---:|---|")
    yield from play_limits(table)
    for text, name, workload, unit, most in LIMITS:
        value = figure(table, workload, "ours", name)
        if value is None:
            continue
        value /= unit or figure(table, workload, "ours", "resource")
        word = "met" if value <= most else "missed"
        yield f"| {text} | {value:.3f} | {most:.3f} | {word} |"
    yield from own_limits(table)


def own_limits(table):
    """Goals that are differences, or ratios of more than two figures."""
    def row(text, value, most):
        word = "met" if value <= most else "missed"
        return f"| {text} | {value:.3f} | {most:.3f} | {word} |"

    seeks = table.get("random https", {}).get("ours")
    if seeks:
        yield row("https seeks, connections that took no session up",
                  seeks["requests"] - seeks["resumed"], 1)
    few, many = (figure(table, f"{count} handles", "ours", "peak_kib") for count in (64, 255))
    if few and many:
        yield row("memory of 255 handles, each, of that of 64 handles, each",
                  many / 255 / (few / 64), 1)
    peak = {peer: figure(table, "sequential http 32768", peer, "peak_kib")
            for peer in ("ours", "ring")}
    if None not in peak.values():
        yield row("peak memory above the ring's, MiB", (peak["ours"] - peak["ring"]) / 1024, 1.5)


BENCH = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def link(name, folder):
    """A link to a file of the tree, from a page in that folder; from a folder outside of the tree as from
    bench/."""
    root = os.path.dirname(BENCH)
    inside = os.path.abspath(folder).startswith(root + os.sep)
    return os.path.relpath(os.path.join(root, name), os.path.abspath(folder) if inside else BENCH)


def heading(measured, folder):
    machine = measured["machine"]
    yield "# Results"
    yield ""
    yield (f"Written by `bench/run`; [README.md]({link('bench/README.md', folder)}) tells what is "
           "measured and how.")
    yield ""
    yield f"- Commit: {machine['commit']}"
    yield (f"- Machine: {machine['processors']} × {machine['processor']}, {machine['memory']}, "
           f"Linux {machine['kernel']}; load when it began: {machine['load']}")
    yield f"- Packages: {', '.join(machine['packages'])}"
    commits = sorted({run["commit"] for run in measured["runs"]} - {machine["commit"]})
    if commits:
        yield f"- Some workloads were measured with {', '.join(commits)}"
    loads = [run["load"] for run in measured["runs"]]
    yield f"- Load while it ran: median {median(loads):.2f}, at most {max(loads):.2f}"
    yield (f"- Resource: {measured['size'] >> 20} MiB; medians of {measured['rounds']} "
           f"{'turn' if measured['rounds'] == 1 else 'turns'}, the peers taking turns; of fewer "
           "where a workload waits for minutes")
    if measured["quick"]:
        yield "- A quick run, of few operations: it shows that everything works, not how fast."


def play_panels(table):
    """CPU seconds a minute by reads of 32 KiB over http, one panel for each rate."""
    panels = []
    for rate in PLAY_RATES:
        peers = table.get(f"play http {rate} Mbit/s 32768", {})
        values = [(peer, figures["minute"]) for peer, figures in peers.items() if figures is not None]
        if values:
            panels.append((f"{rate} Mbit/s", values))
    return panels


def pictures(table, folder):
    """One sheet of bars for all workloads, and a picture for `play`."""
    bars = [(title, key, factor) for title, key, factor, _ in COLUMNS
            if key in ("wall", "cpu", "p50_us")]
    rows = [(workload, plot.panels(peers, bars)) for workload, peers in table.items()
            if not workload.startswith("play ")]
    playing = play_panels(table)
    os.makedirs(os.path.join(folder, "plots"), exist_ok=True)
    if rows:
        with open(os.path.join(folder, "plots", "workloads.svg"), "w", encoding="utf-8") as file:
            file.write(plot.sheet(rows))
        yield from ("", "[All workloads as bars](plots/workloads.svg)")
    if playing:
        with open(os.path.join(folder, "plots", "play.svg"), "w", encoding="utf-8") as file:
            file.write(plot.sheet([("CPU seconds a minute of playing, http, reads of 32 KiB", playing)]))
        yield from ("", "![CPU seconds a minute of playing](plots/play.svg)")


def write(measured, folder):
    table = medians(measured)
    lines = [*heading(measured, folder), *pictures(table, folder), "", "## Goals", "",
             "The library's figure divided by the peer's, of the same run.", "", *goals(table),
             *limits(table), "", f"What holds those that are missed: [reasons]({link('bench/reasons.md', folder)}).",
             *failures(measured)]
    for workload, peers in table.items():
        lines += ["", f"## {workload}", "", *rows(peers)]
    with open(os.path.join(folder, "RESULTS.md"), "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")
