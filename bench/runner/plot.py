"""Bars as SVG, without a library."""
from html import escape

BAR, GAP, LEFT, WIDTH = 16, 6, 130, 260
COLOURS = ("#1f5fa8", "#9aa5b1")


def panel(title, values, left):
    """One figure's bars: [(peer, value)], the library's in its own colour."""
    longest = max((value for _, value in values), default=0) or 1
    yield f'<text x="{left + LEFT}" y="44" class="head">{escape(title)}</text>'
    for index, (peer, value) in enumerate(values):
        y = 54 + index * (BAR + GAP)
        width = max(1.0, value / longest * (WIDTH - 70))
        colour = COLOURS[0] if peer == "ours" else COLOURS[1]
        yield f'<text x="{left + LEFT - 8}" y="{y + 12}" text-anchor="end">{escape(peer)}</text>'
        yield f'<rect x="{left + LEFT}" y="{y}" width="{width:.1f}" height="{BAR}" fill="{colour}"/>'
        yield f'<text x="{left + LEFT + width + 6:.1f}" y="{y + 12}">{value:.4g}</text>'


def bars(peers, figures):
    """A workload's panels, one for each (title, name, factor) of figures."""
    good = {peer: row for peer, row in peers.items() if row is not None}
    return [(title, [(peer, row[name] * factor) for peer, row in good.items() if name in row])
            for title, name, factor in figures]


def height_of(panels):
    return 64 + max([1, *(len(values) for _, values in panels)]) * (BAR + GAP)


def sheet(rows):
    """A picture of [(heading, [(title, [(peer, value)])])]: a row each, of a panel each."""
    width = (LEFT + WIDTH) * max([1, *(len(panels) for _, panels in rows)])
    height = sum(height_of(panels) for _, panels in rows)
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
             f'viewBox="0 0 {width} {height}">',
             '<style>text{font:12px sans-serif;fill:#222}.head{font-weight:bold}</style>',
             f'<rect width="{width}" height="{height}" fill="#fff"/>']
    top = 0
    for heading, panels in rows:
        lines += [f'<g transform="translate(0 {top})">',
                  f'<text x="12" y="20" class="head">{escape(heading)}</text>']
        for index, (title, values) in enumerate(panels):
            lines += panel(title, values, index * (LEFT + WIDTH))
        lines.append("</g>")
        top += height_of(panels)
    return "\n".join([*lines, "</svg>"]) + "\n"
