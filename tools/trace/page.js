'use strict';
(() => {
  const data = JSON.parse(document.getElementById('data').textContent);
  const tip = document.getElementById('tip');
  const whole = {a: 0, b: Math.max(1, data.duration)};
  let view = {a: whole.a, b: whole.b};
  const LEFT = 72, RIGHT = 12, MARKS = 16, GAP = 5, BAR = 17, AXIS = 30;
  const LETTERS = {seek: 'S', restart: 'R', problem: '!', end: 'E', abort: 'A', open: 'O', close: 'C', note: 'N'};
  let colours = {};

  const byte = n => n.toLocaleString('en-US');
  const seconds = ms => ms < 1000 ? Math.round(ms) + ' ms' : (ms / 1000).toFixed(2) + ' s';

  function readColours() {
    const style = getComputedStyle(document.documentElement);
    for (const name of ['back', 'text', 'faint', 'line', 'held', 'head', 'ahead', 'reader0', 'reader1', 'reader2',
                        'reader3', 'wait', 'waitback', 'complete', 'ours', 'failed', 'running', 'asked']) {
      colours[name] = style.getPropertyValue('--' + name).trim();
    }
  }

  // The last index whose time, get(i), is not after t; -1 before the first.
  function before(count, get, t) {
    let low = 0, high = count;
    while (low < high) {
      const middle = (low + high) >> 1;
      if (get(middle) <= t) low = middle + 1; else high = middle;
    }
    return low - 1;
  }
  // A curve holds its value until the next point; -1 where it is interrupted.
  function valueAt(points, t) {
    const i = before(points.length / 2, k => points[2 * k], t);
    return i < 0 ? -1 : points[2 * i + 1];
  }
  function heldAt(lane, t) {
    const i = before(lane.held.length, k => lane.held[k][0], t);
    return i < 0 ? [] : lane.held[i].slice(1);
  }
  function aheadAt(lane, t, position) {
    const spans = heldAt(lane, t);
    for (let i = 0; i < spans.length; i += 2) {
      if (spans[i] <= position && position < spans[i + 1]) return spans[i + 1] - position;
    }
    return 0;
  }

  // A round step that gives at most most ticks.
  function tickStep(range, most, base) {
    let step = 1;
    while (range / step > most) {
      if (base === 2) { step *= 2; continue; }
      const digits = Math.pow(10, Math.floor(Math.log10(step)));
      step = step / digits < 1.5 ? 2 * digits : step / digits < 3 ? 5 * digits : 10 * digits;
    }
    return step;
  }
  function unitOf(range) {
    return [['GiB', 1 << 30], ['MiB', 1 << 20], ['KiB', 1024], ['B', 1]].find(unit => range >= 1.5 * unit[1]) || ['B', 1];
  }

  // The offsets that the visible part of a lane touches.
  function extent(lane) {
    let low = Infinity, high = -Infinity;
    const see = v => { if (v >= 0) { low = Math.min(low, v); high = Math.max(high, v); } };
    const curve = points => {
      see(valueAt(points, view.a));
      for (let i = 0; i < points.length; i += 2) if (points[i] >= view.a && points[i] <= view.b) see(points[i + 1]);
    };
    curve(lane.head);
    lane.readers.forEach(reader => curve(reader.p));
    heldAt(lane, view.a).forEach(see);
    lane.held.forEach(column => { if (column[0] >= view.a && column[0] <= view.b) column.slice(1).forEach(see); });
    if (high < 0) return {low: 0, high: 1};
    const room = Math.max(1, (high - low) * 0.04);
    return {low: Math.max(0, low - room), high: high + room};
  }

  // height 0: of a resource that brought no byte, with no offsets to show.
  class Plot {
    constructor(lane, number, height) {
      this.lane = lane;
      this.empty = height === 0;
      this.ahead = this.empty ? 0 : 38;
      const section = document.createElement('section');
      section.className = 'lane';
      const title = document.createElement('h3');
      const waited = lane.waits.reduce((sum, wait) => sum + wait.waited, 0);
      title.append(number + '. ' + lane.name);
      const rest = document.createElement('span');
      rest.textContent = (lane.size > 0 ? ' \u00b7 ' + byte(lane.size) + ' bytes' : '') + ' \u00b7 ' + lane.connections.length +
        (lane.connections.length === 1 ? ' connection' : ' connections') + ' \u00b7 waited ' + seconds(waited);
      title.append(rest);
      this.canvas = document.createElement('canvas');
      this.canvas.tabIndex = 0;
      this.canvas.setAttribute('role', 'img');
      this.canvas.setAttribute('aria-label', 'Resource ' + number + ', ' + lane.name + rest.textContent +
        '. Offsets held, write head and readers over time; the tables below tell the same in words.');
      section.append(title, this.canvas);
      document.getElementById('lanes').append(section);
      this.rows = Plot.rowsOf(lane.connections);
      this.height = this.empty ? MARKS + 28 + this.rows * (BAR + 2) + AXIS : height;
      this.listen();
    }
    // Connections that overlap stand below each other.
    static rowsOf(connections) {
      const ends = [];
      for (const connection of connections) {
        let row = ends.findIndex(end => end <= connection.a);
        if (row < 0) row = Math.min(ends.length, 3);
        connection.row = row;
        ends[row] = connection.b < 0 ? Infinity : connection.b;
      }
      return Math.max(1, ends.length);
    }
    x(t) { return LEFT + (t - view.a) / (view.b - view.a) * this.wide; }
    y(v) { return this.top + (this.range.high - v) / (this.range.high - this.range.low) * this.tall; }
    time(x) { return view.a + (x - LEFT) / this.wide * (view.b - view.a); }

    layOut() {
      const ratio = window.devicePixelRatio || 1;
      const width = this.canvas.clientWidth;
      this.canvas.style.height = this.height + 'px';
      this.canvas.width = Math.round(width * ratio);
      this.canvas.height = Math.round(this.height * ratio);
      this.draw2d = this.canvas.getContext('2d');
      this.draw2d.setTransform(ratio, 0, 0, ratio, 0, 0);
      this.wide = Math.max(50, width - LEFT - RIGHT);
      this.top = MARKS + 18;
      this.aheadTop = this.height - AXIS - this.ahead;
      this.barTop = this.aheadTop - GAP - this.rows * (BAR + 2);
      this.tall = this.barTop - GAP - this.top;
      this.range = extent(this.lane);
    }
    // For whoever looks from outside where things must be.
    tellPlaces() {
      const box = this.canvas.getBoundingClientRect();
      this.canvas.dataset.plot = JSON.stringify({x: box.left + scrollX, y: box.top + scrollY, left: LEFT, wide: this.wide, top: this.top, tall: this.tall,
        barTop: this.barTop, bar: BAR, a: view.a, b: view.b, low: this.range.low, high: this.range.high});
    }

    draw() {
      this.layOut();
      const g = this.draw2d;
      g.clearRect(0, 0, this.canvas.clientWidth, this.height);
      g.font = '11px system-ui, "DejaVu Sans", sans-serif';
      g.textBaseline = 'middle';
      this.drawNames(g);
      if (!this.empty) this.drawGrid(g);
      this.drawTimes(g);
      g.save();
      g.beginPath();
      g.rect(LEFT, 0, this.wide, this.height - AXIS);
      g.clip();
      this.drawWaitBands(g);
      this.drawHeld(g);
      this.drawAhead(g);
      this.drawCurve(g, this.lane.head, colours.head, 1.5);
      this.lane.readers.forEach((reader, i) => this.drawCurve(g, reader.p, colours['reader' + i % 4], 2.5));
      this.drawConnections(g);
      this.drawWaitLabels(g);
      this.drawEvents(g);
      g.restore();
      this.drawAheadScale(g);
    }

    drawGrid(g) {
      const unit = unitOf(this.range.high - this.range.low);
      const step = tickStep((this.range.high - this.range.low) / unit[1], 7, unit[0] === 'B' ? 10 : 2);
      g.strokeStyle = colours.line;
      g.fillStyle = colours.faint;
      g.lineWidth = 1;
      g.textAlign = 'right';
      for (let v = Math.ceil(this.range.low / unit[1] / step) * step; v * unit[1] <= this.range.high; v += step) {
        const y = Math.round(this.y(v * unit[1])) + 0.5;
        g.beginPath(); g.moveTo(LEFT, y); g.lineTo(LEFT + this.wide, y); g.stroke();
        g.fillText(byte(v) + ' ' + unit[0], LEFT - 6, y);
      }
      g.save();
      g.translate(10, this.top + this.tall / 2);
      g.rotate(-Math.PI / 2);
      g.textAlign = 'center';
      g.fillText('offset', 0, 0);
      g.restore();
    }
    drawNames(g) {
      g.fillStyle = colours.faint;
      g.textAlign = 'right';
      g.fillText('events', LEFT - 6, MARKS / 2 + 1);
      g.fillText('connections', LEFT - 6, this.barTop + BAR / 2);
      if (!this.empty) g.fillText('ahead', LEFT - 6, this.aheadTop + this.ahead / 2 - 6);
    }
    drawTimes(g) {
      const bottom = this.height - AXIS;
      const span = view.b - view.a;
      const step = tickStep(span, Math.max(4, this.wide / 90), 10);
      const digits = step >= 1000 ? 0 : step >= 100 ? 1 : step >= 10 ? 2 : 3;
      g.textAlign = 'center';
      for (let t = Math.ceil(view.a / step) * step; t <= view.b; t += step) {
        const x = Math.round(this.x(t)) + 0.5;
        g.strokeStyle = colours.line;
        g.beginPath(); g.moveTo(x, this.top); g.lineTo(x, bottom + 4); g.stroke();
        g.fillText((t / 1000).toFixed(digits), x, bottom + 11);
      }
      g.fillText('seconds since the first line of the log', LEFT + this.wide / 2, bottom + 24);
    }

    drawHeld(g) {
      g.fillStyle = colours.held;
      const held = this.lane.held;
      for (let i = Math.max(0, before(held.length, k => held[k][0], view.a)); i < held.length && held[i][0] <= view.b; i++) {
        const x = this.x(held[i][0]);
        const end = i + 1 < held.length ? this.x(held[i + 1][0]) : x;
        for (let k = 1; k < held[i].length; k += 2) {
          const y = this.y(held[i][k + 1]);
          g.fillRect(x, y, Math.max(0.6, end - x + 0.3), Math.max(1, this.y(held[i][k]) - y));
        }
      }
    }
    drawCurve(g, points, colour, width) {
      g.strokeStyle = colour;
      g.lineWidth = width;
      g.lineJoin = 'round';
      g.beginPath();
      let last = -1;
      for (let i = 0; i < points.length; i += 2) {
        const x = this.x(points[i]), v = points[i + 1];
        if (last >= 0) g.lineTo(x, this.y(last));
        if (v >= 0) { if (last < 0) g.moveTo(x, this.y(v)); else g.lineTo(x, this.y(v)); }
        last = v;
      }
      g.stroke();
    }
    drawAhead(g) {
      const reader = this.lane.readers[0];
      this.aheadMost = 0;
      if (!reader || this.empty) return;
      const values = [];
      let most = 1;
      for (let x = 0; x <= this.wide; x++) {
        const t = this.time(LEFT + x);
        const position = valueAt(reader.p, t);
        const ahead = position < 0 ? 0 : aheadAt(this.lane, t, position);
        values.push(ahead);
        most = Math.max(most, ahead);
      }
      g.fillStyle = colours.ahead;
      const bottom = this.aheadTop + this.ahead;
      values.forEach((v, x) => { if (v > 0) g.fillRect(LEFT + x, bottom - v / most * this.ahead, 1, v / most * this.ahead); });
      this.aheadMost = most;
    }
    // How much the highest of the bars is.
    drawAheadScale(g) {
      if (this.aheadMost <= 1) return;
      const unit = unitOf(this.aheadMost * 1.6);
      g.fillStyle = colours.faint;
      g.textAlign = 'right';
      g.fillText('\u2264 ' + (this.aheadMost / unit[1]).toFixed(1) + ' ' + unit[0], LEFT - 6, this.aheadTop + this.ahead / 2 + 8);
    }
    drawWaitBands(g) {
      for (const wait of this.lane.waits) {
        if (wait.b < view.a || wait.a > view.b) continue;
        const x = this.x(wait.a), width = Math.max(1, this.x(wait.b) - x);
        g.fillStyle = colours.waitback;
        g.fillRect(x, this.top, width, this.height - AXIS - this.top);
        g.fillStyle = colours.wait;
        g.fillRect(x, this.top - 4, width, 4);
      }
    }
    // The longest ones say why, as far as there is room.
    drawWaitLabels(g) {
      const taken = [];
      g.textAlign = 'left';
      const visible = this.lane.waits.filter(wait => wait.b >= view.a && wait.a <= view.b && wait.waited >= 20);
      visible.sort((one, other) => other.waited - one.waited);
      for (const wait of visible) {
        const text = seconds(wait.waited) + ' \u00b7 ' + wait.brief;
        const width = g.measureText(text).width + 8;
        const middle = (this.x(Math.max(wait.a, view.a)) + this.x(Math.min(wait.b, view.b))) / 2;
        const x = Math.min(Math.max(LEFT, middle - width / 2), LEFT + this.wide - width);
        if (taken.some(other => x < other.end && x + width > other.begin)) continue;
        taken.push({begin: x, end: x + width});
        g.fillStyle = colours.wait;
        g.fillText(text, x + 4, this.top - 11);
      }
    }
    drawConnections(g) {
      this.lane.connections.forEach((connection, i) => {
        const end = connection.b < 0 ? data.duration : connection.b;
        if (end < view.a || connection.a > view.b) return;
        const x = this.x(connection.a), y = this.barTop + connection.row * (BAR + 2);
        const first = connection.f < 0 ? this.x(end) : this.x(connection.f);
        g.fillStyle = colours[connection.outcome];
        g.fillRect(x, y, Math.max(2, this.x(end) - x), BAR);
        g.fillStyle = colours.asked;
        g.fillRect(x, y + 2, Math.max(0, first - x), BAR - 4);
        this.drawBarText(g, connection, i, x, this.x(end), y);
      });
      this.drawPauses(g);
    }
    drawBarText(g, connection, i, x, end, y) {
      const from = Math.max(x, LEFT), room = Math.min(end, LEFT + this.wide) - from - 8;
      const number = '' + (i + 1);
      const brief = number + ' \u00b7 ' + connection.end.split(/ before |,|:| \(/)[0];
      const texts = [number + ' \u00b7 bytes ' + connection.range + ' \u00b7 ' + (connection.status > 0 ? connection.status + ' \u00b7 ' : '') + connection.end,
                     number + ' \u00b7 ' + connection.end, brief + ' \u00b7 ' + connection.range,
                     connection.outcome === 'failed' ? brief : number + ' \u00b7 ' + connection.range, number];
      const text = texts.find(candidate => g.measureText(candidate).width <= room);
      if (!text) return;
      g.fillStyle = '#ffffff';
      g.textAlign = 'left';
      const width = g.measureText(text).width;
      g.save();
      g.globalAlpha = 0.45;
      g.fillStyle = '#000000';
      g.fillRect(from + 2, y + 2, width + 5, BAR - 4);
      g.restore();
      g.fillStyle = '#ffffff';
      g.fillText(text, from + 4, y + BAR / 2 + 0.5);
    }
    drawPauses(g) {
      g.strokeStyle = colours.back;
      g.lineWidth = 1;
      const pauses = this.lane.pauses;
      for (let i = 0; i < pauses.length; i += 2) {
        const a = this.x(pauses[i]), b = this.x(pauses[i + 1]);
        if (b < LEFT || a > LEFT + this.wide || b - a < 2) continue;
        g.save();
        g.beginPath(); g.rect(a, this.barTop + BAR - 5, b - a, 5); g.clip();
        g.beginPath();
        for (let x = Math.max(a, LEFT) - 8; x < Math.min(b, LEFT + this.wide); x += 4) {
          g.moveTo(x, this.barTop + BAR); g.lineTo(x + 5, this.barTop + BAR - 5);
        }
        g.stroke();
        g.restore();
      }
    }
    drawEvents(g) {
      g.textAlign = 'center';
      let edge = -Infinity;
      for (const event of this.lane.events) {
        const x = this.x(event.t);
        if (x < LEFT - 1 || x > LEFT + this.wide + 1) continue;
        // Beside the one before, as long as that is near its place; the rest is in the words.
        const at = Math.min(Math.max(x, edge + 13, LEFT + 7), LEFT + this.wide - 7);
        if (at - x > 45 || at < edge + 13) continue;
        edge = at;
        g.fillStyle = event.kind === 'problem' ? colours.failed : event.kind === 'seek' ? colours.reader1 : colours.faint;
        g.fillRect(at - 6, 1, 12, 13);
        g.fillStyle = colours.back;
        g.font = 'bold 10px system-ui, "DejaVu Sans", sans-serif';
        g.fillText(LETTERS[event.kind], at, 8);
        if (event.kind === 'seek' || event.kind === 'problem') {
          g.strokeStyle = event.kind === 'problem' ? colours.failed : colours.reader1;
          g.lineWidth = 1;
          g.setLineDash([2, 3]);
          g.beginPath(); g.moveTo(x, this.top); g.lineTo(x, this.barTop); g.stroke();
          g.setLineDash([]);
        }
      }
    }

    // What is at a moment, in words.
    describe(t) {
      const lane = this.lane, lines = [(t / 1000).toFixed(3) + ' s'];
      lane.readers.forEach(reader => {
        const position = valueAt(reader.p, t);
        if (position < 0) return;
        const ahead = aheadAt(lane, t, position);
        lines.push('handle ' + reader.handle + ' at ' + byte(position) + ', ' + byte(ahead) + ' bytes ahead held');
      });
      const head = valueAt(lane.head, t);
      if (head >= 0) lines.push('write head at ' + byte(head));
      lane.connections.forEach((c, i) => {
        const end = c.b < 0 ? data.duration : c.b;
        if (c.a <= t && t <= end) lines.push('connection ' + (i + 1) + ': bytes ' + c.range + (c.status > 0 ? ', ' + c.status : '') + ', ' + c.end);
      });
      lane.waits.forEach(w => { if (w.a <= t && t <= w.b) lines.push('handle ' + w.handle + ' waits ' + seconds(w.waited) + ': ' + w.why); });
      const near = (view.b - view.a) / this.wide * 6;
      lane.events.filter(e => Math.abs(e.t - t) <= near).slice(0, 6).forEach(e => lines.push(LETTERS[e.kind] + ' ' + e.text));
      return lines;
    }

    listen() {
      const canvas = this.canvas;
      let from = null;
      const at = event => this.time(event.clientX - canvas.getBoundingClientRect().left);
      canvas.addEventListener('wheel', event => {
        event.preventDefault();
        zoom(event.deltaY < 0 ? 0.7 : 1 / 0.7, at(event));
      }, {passive: false});
      canvas.addEventListener('pointerdown', event => { from = at(event); });
      canvas.addEventListener('pointerup', event => {
        const to = at(event);
        if (from !== null && Math.abs(this.x(to) - this.x(from)) > 5) show(Math.min(from, to), Math.max(from, to));
        from = null;
      });
      canvas.addEventListener('pointermove', event => {
        const t = at(event);
        if (t < view.a || t > view.b) { tip.hidden = true; return; }
        tip.textContent = this.describe(t).join('\n');
        tip.hidden = false;
        const right = event.clientX + 440 > window.innerWidth;
        tip.style.left = right ? 'auto' : event.clientX + 14 + 'px';
        tip.style.right = right ? window.innerWidth - event.clientX + 14 + 'px' : 'auto';
        tip.style.top = Math.min(event.clientY + 14, window.innerHeight - tip.offsetHeight - 4) + 'px';
      });
      canvas.addEventListener('pointerleave', () => { tip.hidden = true; from = null; });
      canvas.addEventListener('keydown', event => { if (key(event.key)) event.preventDefault(); });
    }
  }

  const height = data.lanes.length < 2 ? 440 : data.lanes.length < 3 ? 320 : 270;
  const plots = data.lanes.map((lane, i) => {
    return new Plot(lane, i + 1, lane.head.some((v, k) => k % 2 === 1 && v > 0) ? height : 0);
  });
  const drawAll = () => {
    readColours();
    plots.forEach(plot => plot.draw());
    plots.forEach(plot => plot.tellPlaces());
  };

  function show(a, b) {
    const least = 5, span = Math.min(Math.max(b - a, least), whole.b);
    const middle = (a + b) / 2;
    view.a = Math.min(Math.max(middle - span / 2, 0), whole.b - Math.min(span, whole.b));
    view.b = view.a + span;
    drawAll();
  }
  function zoom(factor, around) {
    show(around - (around - view.a) * factor, around + (view.b - around) * factor);
  }
  const move = part => show(view.a + part * (view.b - view.a), view.b + part * (view.b - view.a));
  const middle = () => (view.a + view.b) / 2;
  function key(name) {
    const actions = {'+': () => zoom(0.6, middle()), '=': () => zoom(0.6, middle()), '-': () => zoom(1 / 0.6, middle()),
      ArrowLeft: () => move(-0.2), ArrowRight: () => move(0.2), '0': () => show(0, whole.b),
      Home: () => show(0, view.b - view.a), End: () => show(whole.b - (view.b - view.a), whole.b)};
    if (!actions[name]) return false;
    actions[name]();
    return true;
  }
  const buttons = {in: '+', out: '-', left: 'ArrowLeft', right: 'ArrowRight', all: '0'};
  for (const id of Object.keys(buttons)) document.getElementById(id).addEventListener('click', () => key(buttons[id]));
  document.querySelectorAll('#waits button').forEach(button => button.addEventListener('click', () => {
    const a = +button.dataset.a, b = +button.dataset.b, room = Math.max(100, b - a);
    show(a - room, b + room);
    plots[button.dataset.lane - 1].canvas.scrollIntoView({block: 'center'});
  }));

  // "#dark" or "#light" behind the page's name choose; otherwise the reader's system does.
  const dark = matchMedia('(prefers-color-scheme: dark)');
  function theme() {
    const wanted = location.hash === '#dark' || (location.hash !== '#light' && dark.matches);
    document.documentElement.classList.toggle('dark', wanted);
    document.documentElement.style.colorScheme = wanted ? 'dark' : 'light';
    drawAll();
  }
  dark.addEventListener('change', theme);
  window.addEventListener('hashchange', theme);
  window.addEventListener('resize', drawAll);
  theme();
})();
