"""Draws the results of bench/run as bars."""
from chart import Bar, Sheet, bars

LEFT, WIDTH = 130, 390  # where the bars of a panel begin, and the next panel
OURS, PEERS = "#1f5fa8", "#9aa5b1"


def panels(peers, figures):
    """A workload's panels, one for each (title, name, factor) of figures."""
    good = {peer: row for peer, row in peers.items() if row is not None}
    return [(title, [(peer, row[name] * factor) for peer, row in good.items() if name in row])
            for title, name, factor in figures]


def sheet(rows):
    """A picture of [(heading, [(title, [(peer, value)])])]: a row each, of a panel each."""
    drawn = Sheet(WIDTH * max([1, *(len(panels) for _, panels in rows)]), 0)
    for heading, shown in rows:
        drawn.text(12, drawn.height + 20, heading, font_weight="bold")
        lowest = drawn.height
        for index, (title, values) in enumerate(shown):
            lowest = max(lowest, bars(
                drawn, index * WIDTH + LEFT, drawn.height + 44, 190, title,
                [Bar(value, f"{value:.4g}", OURS if peer == "ours" else PEERS, peer)
                 for peer, value in values]))
        drawn.height = lowest + 10
    return str(drawn)
