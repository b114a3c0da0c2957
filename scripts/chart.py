"""Pictures of figures as SVG: bars beside each other, and lines over an axis."""

import math
from html import escape
from typing import NamedTuple


class Sheet:
    """One picture. Positions are pixels from its upper left corner; those of texts are their base line."""

    def __init__(self, width, height):
        self.width, self.height, self.lines = width, height, []
        self.add("rect", width="100%", height="100%", fill="#fff")

    def add(self, name, words=None, **attributes):
        """Adds an element; an underscore in an attribute's name becomes a hyphen."""
        given = "".join(f' {key.replace("_", "-")}="{number(value)}"'
                        for key, value in attributes.items())
        self.lines.append(f"<{name}{given}/>" if words is None
                          else f"<{name}{given}>{escape(words)}</{name}>")

    def text(self, x, y, words, **attributes):
        self.add("text", words, x=x, y=y, **attributes)

    def __str__(self):
        head = (f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.width}" height="{self.height}" '
                f'viewBox="0 0 {self.width} {self.height}" font-family="sans-serif" font-size="12">')
        return "\n".join([head, *self.lines, "</svg>"]) + "\n"


def number(value):
    """A position, to a tenth of a pixel."""
    return f"{value:.1f}".removesuffix(".0") if isinstance(value, float) else str(value)


class Bar(NamedTuple):
    value: float  # None: no bar, only its words
    words: str    # behind the bar
    colour: str
    name: str = ""  # before the bar


def bars(sheet, left, top, width, title, rows, thick=16, gap=6):
    """A panel of bars, the longest of this width. A row is a Bar or the heading of the next ones.

    Names are left of left, words right of the bars. Returns the lower edge.
    """
    longest = max((row.value or 0 for row in rows if isinstance(row, Bar)), default=0) or 1
    sheet.text(left, top, title, font_weight="bold")
    y = top + 10
    for row in rows:
        if isinstance(row, str):
            sheet.text(left, y + 20, row, fill="#555")
            y += 26
            continue
        length = 0
        if row.value is not None:
            length = max(1.0, row.value / longest * width)
            sheet.add("rect", x=left, y=y, width=length, height=thick, fill=row.colour)
        middle = y + thick / 2 + 4
        if row.name:
            sheet.text(left - 8, middle, row.name, text_anchor="end")
        sheet.text(left + length + 6, middle, row.words, font_size=min(12, thick))
        y += thick + gap
    return y


def legend(sheet, left, top, step, colours):
    """The key of {name: colour}, in one row."""
    for index, (name, colour) in enumerate(colours.items()):
        sheet.add("rect", x=left + index * step, y=top, width=12, height=12, fill=colour)
        sheet.text(left + index * step + 18, top + 10, name)


COLOURS = ["#1f77b4", "#d62728", "#2ca02c", "#9467bd", "#ff7f0e", "#17becf", "#8c564b"]


def ticks(low, high, logarithmic):
    if logarithmic:
        return [10.0 ** e for e in range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
                if low <= 10.0 ** e <= high]
    step = 10.0 ** math.floor(math.log10(max(high - low, 1e-9)))
    while (high - low) / step < 4:
        step /= 2
    first = math.ceil(low / step)
    return [i * step for i in range(first, int(high / step) + 1)]


class Axis:
    """Maps values to pixels between two positions."""

    def __init__(self, values, begin, end, logarithmic=False, zero=False):
        self.low, self.high = (0 if zero else min(values)), max(values)
        if self.high == self.low:
            self.high += 1
        self.begin, self.end = begin, end
        self.scale = math.log10 if logarithmic else float
        self.ticks = ticks(self.low, self.high, logarithmic)

    def __call__(self, value):
        low, high = self.scale(self.low), self.scale(self.high)
        return self.begin + (self.scale(value) - low) / (high - low) * (self.end - self.begin)


LINES_WIDTH, LINES_HEIGHT = 760, 260


def lines(sheet, top, title, series, across, logarithmic=False, zero=False):
    """A chart of {name: [(x, y)]} below top; across names the x axis. zero: y begins at 0."""
    left, right, bottom = 70, LINES_WIDTH - 250, top + LINES_HEIGHT - 40
    points = [point for each in series.values() for point in each]
    x_axis = Axis([x for x, _ in points], left, right, logarithmic)
    y_axis = Axis([y for _, y in points], bottom, top + 30, logarithmic, zero)
    sheet.text(left, top + 18, title, font_size=14)
    for value in y_axis.ticks:
        y = y_axis(value)
        sheet.add("path", d=f"M{left} {y:.1f}H{right}", stroke="#ddd")
        sheet.text(left - 6, y + 4, f"{value:g}", text_anchor="end")
    for value in x_axis.ticks:
        x = x_axis(value)
        sheet.add("path", d=f"M{x:.1f} {bottom}v5", stroke="#000")
        sheet.text(x, bottom + 18, f"{value:g}", text_anchor="middle")
    sheet.text(right, top + LINES_HEIGHT - 4, across, text_anchor="end")
    for i, (name, each) in enumerate(series.items()):
        colour = COLOURS[i % len(COLOURS)]
        sheet.add("polyline", points=" ".join(f"{x_axis(x):.1f},{y_axis(y):.1f}" for x, y in each),
                  fill="none", stroke=colour, stroke_width=1.5)
        sheet.text(right + 10, top + 40 + 18 * i, name, font_size=11, fill=colour)
