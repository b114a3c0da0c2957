"""Checks the pictures of a trace: are the reader, the connections and the waits where the log says?

look.py FOLDER has scene.log, scene.txt, scene.html, light.html and dark.html (the page after its scripts
ran), light.png and dark.png. The expected values do not come from the tools that drew the page: the waits
come from the reader's own clock in scene.txt, the rest from the log, without interleaved lines.
"""

import html
import json
import re
import struct
import sys
import zlib

HEAD = re.compile(r'^\[FluviaFS\]\[00:(\d+):(\d+)\]\[(\d+)\]\[(\w+)\]\[\d+\]-------(.*)$')
# The shortest wait to find in the picture, in ms: the scene's server makes its reader wait for 1500 and 400.
LONG = 200
problems = []


def expect(good, what):
    if not good:
        problems.append(what)


class Picture:
    """An 8-bit PNG of colours."""

    def __init__(self, path):
        data = open(path, 'rb').read()
        assert data[:8] == b'\x89PNG\r\n\x1a\n', path
        at, packed = 8, b''
        while at < len(data):
            length, kind = struct.unpack('>I4s', data[at:at + 8])
            body = data[at + 8:at + 8 + length]
            if kind == b'IHDR':
                self.width, self.height, depth, colour, _, _, lace = struct.unpack('>IIBBBBB', body)
                assert depth == 8 and colour in (2, 6) and lace == 0, path
                self.step = 3 if colour == 2 else 4
            if kind == b'IDAT':
                packed += body
            at += 12 + length
        self.rows = self.unfilter(zlib.decompress(packed))

    def unfilter(self, raw):
        rows, size, step = [], self.width * self.step, self.step
        above = bytearray(size)
        for y in range(self.height):
            kind, row = raw[y * (size + 1)], bytearray(raw[y * (size + 1) + 1:(y + 1) * (size + 1)])
            for i in range(size if kind else 0):
                left = row[i - step] if i >= step else 0
                corner = above[i - step] if i >= step else 0
                row[i] = (row[i] + (0, left, above[i], (left + above[i]) // 2,
                                    self.paeth(left, above[i], corner))[kind]) & 255
            rows.append(row)
            above = row
        return rows

    @staticmethod
    def paeth(a, b, c):
        p = a + b - c
        return min((abs(p - a), 0, a), (abs(p - b), 1, b), (abs(p - c), 2, c))[2]

    def near(self, x, y, colour, reach):
        """True if a pixel at most reach away has that colour."""
        for row in range(max(0, y - reach), min(self.height, y + reach + 1)):
            for column in range(max(0, x - reach), min(self.width, x + reach + 1)):
                pixel = self.rows[row][column * self.step:column * self.step + 3]
                if all(abs(p - c) <= 12 for p, c in zip(pixel, colour)):
                    return True
        return False


def read_log(path, reader):
    """Of the film: the time of the first line, the reader's positions over time, and the connections, in
    ms."""
    first, positions, connections, running = None, [], [], None
    for line in open(path, encoding='latin-1'):
        match = HEAD.match(line.rstrip('\n'))
        if not match:
            continue
        ms = int(match[1]) * 1000 + int(match[2])
        thread, function, text = match[3], match[4], match[5]
        first = ms if first is None else first
        t = ms - first
        if function == 'sendRequest' and re.match(r'http begin to get from:.*/film\.mp4, ', text):
            running = thread
        if function == 'executeGet' and 'PFFFF' in text and '/film.mp4' in text:
            start = int(re.search(r'start: (\d+)', text)[1])
            connections.append({'a': t, 'start': start})
        if function == 'executeGet' and 'curl_easy_perform ret:' in text and thread == running:
            ret, status = re.search(r'ret:(\d+), respond code:(\d+)', text).groups()
            if connections and 'b' not in connections[-1]:
                connections[-1].update(b=t, ret=int(ret), status=int(status))
        if thread == reader and function == 'read' and text.startswith('FluviaFile read: '):
            positions.append((t, int(re.search(r'position=(\d+)', text)[1])))
    return first, positions, [connection for connection in connections if 'b' in connection]


def read_scene(path):
    """The scene's own records: the film's reader, its reads in the log's ms, the film's requests."""
    text = open(path, encoding='utf-8').read()
    reads = [(int(a), int(b)) for a, b in re.findall(r'^read (\d+) (\d+)$', text, re.M)]
    return re.search(r'^reader (\d+)$', text, re.M)[1], reads, int(re.search(r'requests (\d+)', text)[1])


def palette(page, dark):
    block = re.search(r':root\.dark \{(.*?)\}' if dark else r':root \{(.*?)\}', page, re.S)[1]
    return {name: tuple(int(code[i:i + 2], 16) for i in (0, 2, 4))
            for name, code in re.findall(r'--(\w+): #([0-9a-f]{6});', block)}


def plots(dom):
    return [json.loads(html.unescape(text)) for text in re.findall(r'data-plot="([^"]*)"', dom)]


def outcome(connection):
    if connection['ret'] == 0:
        return 'complete'
    return 'ours' if connection['ret'] in (23, 42) else 'failed'


def look_at_picture(name, picture, plot, colours, log):
    positions, connections, waits = log

    def x(t):
        return round(plot['x'] + plot['left'] + (t - plot['a']) / (plot['b'] - plot['a']) * plot['wide'])

    def y(v):
        return round(plot['y'] + plot['top'] +
                     (plot['high'] - v) / (plot['high'] - plot['low']) * plot['tall'])

    seen = [(t, v) for (t, v), (t2, _) in zip(positions, positions[1:]) if t2 - t >= 20]
    expect(len(seen) >= 50, f'{name}: only {len(seen)} positions of the reader in the log')
    missing = [(t, v) for t, v in seen
               if not picture.near(x(t), y(v), colours['reader0'], 3)]
    expect(not missing, f'{name}: the reader is not at {missing[:5]} ({len(missing)} of {len(seen)})')
    # Far from the curve its colour must not appear.
    for t, v in seen[::5]:
        far = plot['low'] + (plot['high'] - plot['low']) * (0.95 if v < plot['high'] / 2 else 0.04)
        around = [w for s, w in positions if abs(x(s) - x(t)) < 12]
        if all(abs(y(far) - y(w)) > 15 for w in around) and y(min(around)) - y(max(around)) < 60:
            expect(not picture.near(x(t), y(far), colours['reader0'], 3),
                   f'{name}: the reader\'s colour at {t} ms, {far:.0f}')
    bar = plot['y'] + plot['barTop']
    for connection in connections:
        # To the right of the words, which begin at the left, and above the hatching.
        at = x(connection['b']) - 4
        expect(picture.near(at, round(bar + 1), colours[outcome(connection)], 1),
               f'{name}: no bar in the colour of {outcome(connection)} for {connection}')
    for begin, end in (wait for wait in waits if wait[1] - wait[0] >= LONG):
        at = round(plot['y'] + plot['top'] - 2)
        middle = x((begin + end) / 2)
        expect(picture.near(middle, at, colours['wait'], 1), f'{name}: no wait at {begin}..{end} ms')
        if not any(a < begin and x(b) >= x(begin) - 15 for a, b in waits):
            expect(not picture.near(x(begin) - 12, at, colours['wait'], 1),
                   f'{name}: the wait at {begin} ms begins too early')


def look_at_words(dom, log, lane, requests):
    _, connections, _ = log
    text = html.unescape(re.sub(r'<[^>]*>', '\t', dom))
    rows = re.findall(r'<tr class="(\w+)">(.*?)</tr>', dom, re.S)
    cells = [[html.unescape(re.sub(r'<[^>]*>', '', cell)) for cell in re.findall(r'<td.*?</td>', row[1])]
             for row in rows]
    film = [cell for cell in cells if cell[0] == str(lane + 1)]
    expect(len(film) == requests, f'{len(film)} connections of the film, the server saw {requests}')
    for connection in connections:
        begin = connection['a'] / 1000
        cell = next((cell for cell in film if abs(float(cell[2]) - begin) < 0.0025), None)
        expect(cell is not None, f'no connection of the film begins at {begin}')
        if cell is None:
            continue
        expect(cell[4] == str(connection['status']), f'status {cell[4]}, not {connection["status"]}')
        asked = 'all (no Range)' if connection['start'] == 0 else f'{connection["start"]}-'
        expect(cell[3].startswith(asked), f'bytes {cell[3]}, not {asked}')
    expect('cut before the end of the body, libcurl 18' in film[0][9], film[0][9])
    expect('the connection was silent' in text, 'nobody says that the server was silent')
    expect('the server had not answered yet' in text, 'nobody says that the server was late')
    expect(any(cell[4] == '404' for cell in cells), 'no connection was answered with 404')
    expect('?token=<b>&x="1"' in text, 'a name with markup is not shown as it is')


def main(folder):
    reader, reads, requests = read_scene(folder + '/scene.txt')
    first, positions, connections = read_log(folder + '/scene.log', reader)
    waits = [(begin - first, end - first) for begin, end in reads if end - begin >= 2]
    log = positions, connections, waits
    page = open(folder + '/scene.html', encoding='utf-8').read()
    data = json.loads(re.search(r'id="data">(.*?)</script>', page, re.S)[1])
    lane = next(i for i, each in enumerate(data['lanes']) if each['name'].endswith('/film.mp4'))
    expect(len(connections) >= 2, f'the log has {len(connections)} connections of the film')
    expect(sum(end - begin >= LONG for begin, end in waits) >= 2, 'the reader waited for less than two answers')
    for theme in ('light', 'dark'):
        dom = open(f'{folder}/{theme}.html', encoding='utf-8').read()
        places = plots(dom)
        expect(len(places) == 3, f'{theme}: {len(places)} plots, not 3')
        if problems:
            break
        look_at_words(dom, log, lane, requests)
        picture = Picture(f'{folder}/{theme}.png')
        look_at_picture(theme, picture, places[lane], palette(page, theme == 'dark'), log)
    for problem in problems:
        print(problem, file=sys.stderr)
    return 1 if problems else 0


sys.exit(main(sys.argv[1]))
