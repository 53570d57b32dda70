// The drawing of a model's connectors, from the slots of its plan and their states.

import { box, disc, line, ring, round, sign, solid, stepSign, svg, token } from './signs.js';
import { groupsOf, statesOf } from './slots.js';

// ---- shapes ------------------------------------------------------------------------------------

const looks = {
  'not-yet': { fill: 'white', stroke: 'grey', width: 1.8 },
  running: { fill: 'blue', stroke: 'blue', width: 2 },
  pass: { fill: 'green-tint', stroke: 'green', width: 2.8 },
  'not-proven': { fill: 'amber', stroke: 'ink', width: 2.6 },
  incomplete: { fill: 'ink-2', stroke: 'ink-2', width: 2 },
};
const inkOf = {
  'not-yet': 'grey', running: 'white', pass: 'ink', fail: 'white', 'not-proven': 'ink',
  incomplete: 'white',
};
const textInkOf = (state) => (state === 'not-yet' ? 'ink-2' : inkOf[state]);

const bold = { 'font-weight': 700 };
const label = (x, y, text, size, more = {}) => svg('text',
  { x, y, 'font-size': size, 'text-anchor': 'middle', fill: token('ink'), ...more }, text);
const bar = (x, y, width) => svg('rect', { x, y, width, height: 8, fill: token('grey') });

// The small sign inside a slot, around (x, y).
const marks = {
  'not-yet': () => [],
  running: () => [solid('M-7 -9.5L10 0L-7 9.5Z', 'white')],
  pass: () => [line('M-10 1L-3.5 8L10 -8', 'green', 4.4, round)],
  fail: () => [line('M-7.5 -7.5L7.5 7.5M7.5 -7.5L-7.5 7.5', 'white', 4.4, round)],
  'not-proven': () => [
    line('M-5.5 -5a5.6 5.6 0 1 1 8.2 5c-2 1-2.7 2-2.7 4', 'ink', 3.6, round),
    disc(0, 9.6, 2.4, 'ink'),
  ],
  incomplete: () => [solid('M-10 -9H1L-4 9H-10ZM5 -9H10V9H0Z', 'white')],
};
const mark = (state, x, y, size) =>
  svg('g', { transform: `translate(${x} ${y}) scale(${size / 24})` }, marks[state]());

// What is drawn in 48x48, around (x, y).
const centred = (x, y, size, ...children) => svg('g',
  { transform: `translate(${x - size / 2} ${y - size / 2}) scale(${size / 48})` }, children);

// A slot's body, a path or a rounded box; the failed one has a rim so that it stands out among its
// neighbours.
function body(shape, state) {
  const drawn = (fill, stroke, width) => {
    const look = { fill: token(fill), stroke: token(stroke), 'stroke-width': width };
    return typeof shape === 'string' ? svg('path', { d: shape, ...look })
      : svg('rect', { ...shape, ...look });
  };
  if (state === 'fail') {
    return [drawn('red', 'red', 10), drawn('red', 'white', 4.6), drawn('red', 'red', 0)];
  }
  const { fill, stroke, width } = looks[state];
  return [drawn(fill, stroke, width)];
}

const place = (x, y, name, state, ...children) => svg('g',
  { transform: `translate(${x} ${y})`, 'data-slot': name, 'data-state': state },
  children);

// A connector: its body, with what it looks like (`idle`) until its state is known.
const connector = (shape, idle, markX, markY, size) => (x, y, name, state, ...more) =>
  place(x, y, name, state, body(shape, state),
    state === 'not-yet' ? idle(...more) : mark(state, markX, markY, size));

const screw = (x, y, r) => {
  const d = r * 0.62;
  return [ring(x, y, r, 'grey', 1.6),
    line(`M${x - d} ${y + d}L${x + d} ${y - d}`, 'grey', 1.6)];
};

const PINS = 'M8 46V38M12.2 46V38M16.4 46V38M20.6 46V38M24.8 46V38M29 46V38M33.2 46V38M37.4 46V38';
const latchOf = {
  'not-yet': 'grey', running: 'blue', pass: 'green', fail: 'red', 'not-proven': 'ink',
  incomplete: 'ink-2',
};
const draws = {
  rj45: connector('M0 46V13H7V6H14V0H31V6H38V13H45V46Z', () => line(PINS, 'grey', 1.5),
    22.5, 27, 26),
  sfp: (x, y, name, state) => place(x, y, name, state, body('M0 0H48V28H0Z', state),
    line('M9 31V36H40V31', latchOf[state], 2.4),
    state !== 'not-yet' ? mark(state, 24, 14, 21)
      : [7, 26].map((left) =>
        [box(left, 6, 15, 16, 'grey', 1.6), disc(left + 7.5, 14, 2.4, 'grey')])),
  usb: connector('M0 0H66V36H0Z', (generation) =>
    [bar(9, 21, 48), label(33, 17, generation, 15, { fill: token('ink-2') })], 33, 18, 22),
  front: connector('M0 0H64V36H0Z', () => bar(9, 21, 46), 32, 18, 22),
  sata: connector('M0 0H61V44H13V36H0Z', () => solid('M10 16H55V28H50.5V20.5H10Z', 'grey'),
    32, 21, 23),
  rs485: connector('M0 0H76V52H0Z', () => [['A', 20], ['B', 56]].map(([name, x]) =>
    [label(x, 18, name, 15, { ...bold, fill: token('ink-2') }), screw(x, 33, 9)]), 38, 26, 30),
};

// A terminal of a block. `edge`: where its number stands in a block of one state.
function terminal(x, y, name, state, id, edge) {
  const ink = { ...bold, fill: token(textInkOf(state)) };
  const content = edge ? label(20, edge === 'top' ? 16 : 35, id, 15.5, ink) : [
    label(5, 15.5, id, 15.5, { ...ink, 'text-anchor': 'start' }),
    state === 'not-yet' ? screw(25, 27, 7.5) : mark(state, 26, 26, state === 'fail' ? 20 : 17),
  ];
  return place(x, y, name, state, body('M0 0H39V40H0Z', state), content);
}

// One sign in the middle of a block that has one state.
const blockSigns = {
  running: () => [disc(24, 24, 27, 'white'), solid('M7 12H27L40 24L27 36H7Z', 'blue')],
  fail: () => [disc(24, 24, 27, 'white'), sign('fail', 48, 'red')],
  'not-proven': () => [solid('M24 -5L53 24L24 53L-5 24Z', 'amber'),
    sign('not-proven', 48, 'ink', 'amber')],
  incomplete: () => [sign('incomplete', 48)],
};

const PROCESSOR_PINS = 'M-5 -9V-13M0 -9V-13M5 -9V-13M-5 9V13M0 9V13M5 9V13'
  + 'M-9 -5H-13M-9 0H-13M-9 5H-13M9 -5H13M9 0H13M9 5H13';
const icons = {
  clock: (ink) => [ring(0, 0, 13, ink, 2.2), line('M0 -7.5V0.5H6.5', ink, 2.2)],
  buzzer: (ink) => [solid('M-14 -4.5H-8L0 -11V11L-8 4.5H-14Z', ink),
    line('M4 -5Q7 0 4 5M8 -9Q13.5 0 8 9', ink, 2.4)],
  info: (ink) => [box(-8.5, -8.5, 17, 17, ink, 2.2), box(-4, -4, 8, 8, ink, 1.8),
    line(PROCESSOR_PINS, ink, 2)],
};

function tile(x, y, { id }, state) {
  const middle = state === 'not-yet' ? 38 : 21;
  return place(x, y, id, state, body({ width: 76, height: 44, rx: 5 }, state),
    svg('g', { transform: `translate(${middle} 22)` }, icons[id](textInkOf(state))),
    mark(state, 57, 22, state === 'not-proven' ? 21 : 22));
}

function frameSign(state, x, y) {
  if (state === 'not-yet') return [];
  return centred(x, y, state === 'not-proven' ? 34 : 28, stepSign(state, 48));
}

function leds(x, y, state, { text, phone }) {
  const names = ['fail', 'running', 'incomplete'].includes(state) ? 'white' : 'ink';
  const led = (i, row) => {
    const cx = 52 + 12.5 * i, cy = 14.5 + 18 * row;
    return state === 'not-yet' ? ring(cx, cy, 4.4, 'grey', 1.4)
      : disc(cx, cy, 5.2, state === 'pass' ? 'green' : inkOf[state]);
  };
  const rows = [['record', 16], ['net', 16], ['function', 5]].map(([name, count], row) => [
    phone ? [] : label(11, 20 + 18 * row, text.led(name), 15,
      { 'text-anchor': 'start', fill: token(names) }),
    Array.from({ length: count }, (_, i) => led(i, row)),
  ]);
  return place(x, y, 'leds', state, body({ width: 296, height: 64, rx: 4 }, state), rows,
    frameSign(state, 274, 50));
}

const ARROWS = 'M34 7L41.5 19H26.5ZM34 57L41.5 45H26.5ZM9 32L21 24.5V39.5ZM59 32L47 24.5V39.5Z';
const keys = (x, y, state) =>
  place(x, y, 'keys', state, body({ width: 116, height: 64, rx: 4 }, state),
    line(ARROWS, inkOf[state], 1.8), ring(34, 32, 6, inkOf[state], 1.8),
    frameSign(state, 93, 32));

// ---- groups ------------------------------------------------------------------------------------
// Each gives its width and draws itself at (x, 0) of a band. `look`: text, waiting (captions say
// what to plug in), phone, size (of captions).

const PITCH = 42;

const caption = (x, y, words, look, size = look.size) =>
  label(x, y, words, size, look.waiting ? bold : {});
const rear = (x, words, look) => caption(x, look.phone ? 101 : 107.3, words, look);
const below = (x, words, look, size) => caption(x, 90.5, words, look, size);

// A group whose slots are alike, at a pitch.
const alike = (pitch, width, draw, y, name, words) => ({
  width: (group) => pitch * group.slots.length - (pitch - width),
  draw(group, x, state, look) {
    const { states } = statesOf(group, state);
    const slots = group.slots.map((slot, i) => draw(x + pitch * i, y, name(slot), states[i]));
    return [...slots, ...words(group, x, x + this.width(group) / 2, look)];
  },
});

const framed = (width, draw, words) => ({
  width: () => width,
  draw: (group, x, state, look) => [draw(x, 8, statesOf(group, state).states[0], look),
    below(x + width / 2, words(look), look)],
});

const terminalBlock = (words) => ({
  width: (group) => PITCH * group.columns - 2,
  draw(group, x, state, look) {
    const { block, states } = statesOf(group, state);
    const out = group.slots.map((slot, i) => {
      const row = Math.floor(i / group.columns), column = i % group.columns;
      return terminal(x + PITCH * column, 7 + PITCH * row, `${group.kind}.${slot.id}`, states[i],
        slot.id, block && (row ? 'bottom' : 'top'));
    });
    const middle = x + this.width(group) / 2;
    if (block) out.push(centred(middle, 48, 42, blockSigns[block]()));
    if (!look.phone) out.push(rear(middle, words(group, look), look));
    return out;
  },
});

// A port: its copper and, beside it, its fibre.
function port(slot, x, copper, fibre, { text, waiting, phone }) {
  const out = [draws.rj45(x, 20, `copper.${slot.id}`, copper)];
  if (slot.fibre) out.push(draws.sfp(x + 52, 28, `fibre.${slot.id}`, fibre));
  if (waiting) return out;
  if (!phone) out.push(label(x + 23, 87, text.copper(), 15));
  if (!phone && slot.fibre) out.push(label(x + 76, 87, text.fibre(), 15));
  out.push(label(x + 49, phone ? 90 : 107.5, text.port(slot.id), phone ? 17 : 15.5, bold));
  return out;
}

const network = {
  width: (group) => 112 * group.slots.length - 12,
  draw(group, x, state, look) {
    const { states, fibre } = statesOf(group, state), { text, waiting, phone } = look;
    const out = group.slots.flatMap((slot, i) => {
      const left = x + 112 * i, foot = waiting || phone ? 78 : 110;
      const parts = port(slot, left, states[i], fibre[i], look);
      return i ? [line(`M${left - 8} 16V${foot}`, 'line', 1.2), ...parts] : parts;
    });
    if (waiting) {
      const end = x + this.width(group) - 4;
      const fibres = group.slots.filter((slot) => slot.fibre).length;
      out.push(line(`M${x} 80V92M${x} 86H${end}M${end} 80V92`, 'ink', 2),
        caption((x + end) / 2, 106, text.plugNetwork(group.slots.length, fibres), look));
    }
    return out;
  },
};

const usbRear = {
  width: () => 86,
  draw(group, x, state, look) {
    const { states } = statesOf(group, state), { text, waiting } = look;
    const count = group.slots.length, top = count > 1 ? 10 : 31;
    const slots = group.slots.flatMap(({ id }, i) => [
      draws.usb(x + 20, top + 41 * i, `usb.rear.${id}`, states[i], text.usbGeneration(id)),
      ...(count > 1
        ? [label(x + 15, top + 24 + 41 * i, text.rearUsb(i), 15, { 'text-anchor': 'end' })] : []),
    ]);
    return [...slots, rear(x + 53, waiting ? text.plugUsb(count) : text.usbRear(), look)];
  },
};

const tiles = {
  width: (group) => 84 * group.slots.length - 8,
  draw(group, x, state, look) {
    const { states } = statesOf(group, state), plain = { ...look, waiting: false };
    return group.slots.flatMap((slot, i) => [tile(x + 84 * i, 20, slot, states[i]),
      below(x + 38 + 84 * i, look.text.tile(slot.id), plain)]);
  },
};

// What stands below the disks of the board: what to plug in, or each one's name.
function diskNames(group, x, middle, look) {
  if (look.waiting) return [below(middle, look.text.plugDisks(group.slots.length), look)];
  return group.slots.map((_, i) => below(x + 30 + 70 * i,
    look.phone && i ? String(i + 1) : `SATA ${i + 1}`, look, look.size * 0.92));
}

// The words for a group of `count` slots: what to plug in, or what it is.
const usbFrontWords = (count, { text, waiting }) =>
  (waiting ? text.plugUsb(count) : text.usbFront(count));
const esataWords = (count, { text, waiting }) =>
  (waiting ? text.plugDisks(count) : text.esata());

const kinds = {
  network,
  'usb-rear': usbRear,
  esata: alike(70, 62, draws.sata, 28, (slot) => slot.id, (group, x, middle, look) =>
    [rear(middle, esataWords(group.slots.length, look), look)]),
  rs485: alike(84, 76, draws.rs485, 24, () => 'rs485', (group, x, middle, look) =>
    [rear(middle, look.waiting ? look.text.plugRs485() : 'RS-485', look)]),
  'alarm-inputs': terminalBlock((group, { text, waiting }) =>
    (waiting ? text.plugAlarm() : text.alarmInputs(group.slots.length))),
  'alarm-outputs': terminalBlock((group, { text, waiting }) =>
    (waiting ? '' : text.alarmOutputs())),
  leds: framed(296, leds, ({ text, waiting }) => (waiting ? text.plugPanel() : text.panelLeds())),
  keys: framed(116, keys, ({ text, waiting }) => (waiting ? text.plugKeys() : text.panelKeys())),
  'usb-front': alike(72, 64, draws.front, 22, (slot) => `usb.front.${slot.id}`,
    (group, x, middle, look) => [below(middle, usbFrontWords(group.slots.length, look), look)]),
  sata: alike(70, 60, draws.sata, 20, (slot) => slot.id, diskNames),
  minisas: alike(84, 60, draws.sata, 20, () => 'minisas', (group, x, middle, look) =>
    [below(middle, 'miniSAS', look, look.size * 0.92)]),
  tiles,
};

// ---- layout ------------------------------------------------------------------------------------

const TAB = 28;
const GAP = 10;
const DESK = {
  rear: { row: 118, lead: 15, tail: 4 },
  front: { row: 98, lead: 14, tail: 16 },
  board: { row: 98, lead: 16, tail: 12 },
};
const PHONE = {
  rear: { row: 106, lead: 7, tail: 7 },
  front: { row: 98, lead: 7, tail: 7 },
  board: { row: 98, lead: 7, tail: 7 },
};

// The alarm outputs stay close to the inputs; all other groups share what room is left.
const gapBefore = (group, gap) => (group.kind === 'alarm-outputs' ? 14 : gap);
const natural = (groups, gap) => groups.reduce((sum, group, i) =>
  sum + kinds[group.kind].width(group) + (i ? gapBefore(group, gap) : 0), 0);

// Lays groups out in rows of at most `room`, in their order.
function rowsOf(groups, room) {
  const rows = [[]];
  for (const group of groups) {
    const row = rows.at(-1);
    if (row.length && natural([...row, group], 2) > room) rows.push([group]);
    else row.push(group);
  }
  return rows;
}

// The groups of a row, side by side; what failed is drawn last, above its neighbours.
function drawRow(row, room, state, look) {
  const own = row.filter((group) => group.kind !== 'alarm-outputs').length - 1;
  const gap = own > 0 ? Math.min(24, Math.max(4, (room - natural(row, 0)) / own)) : 0;
  let x = 0;
  const drawn = row.flatMap((group, i) => {
    if (i) x += gapBefore(group, gap);
    const nodes = kinds[group.kind].draw(group, x, state, look);
    x += kinds[group.kind].width(group);
    return nodes;
  });
  const red = (node) => node.getAttribute('data-state') === 'fail';
  return [...drawn.filter((node) => !red(node)), ...drawn.filter(red)];
}

function zone(name, groups, state, text, width, phone) {
  const waiting = ['waiting', 'locked', 'sign-in'].includes(state.phase);
  const form = (phone ? PHONE : DESK)[name];
  const room = width - TAB - form.lead - form.tail;
  // Below the rear panel a telephone has one row a zone, as small as it needs to be.
  const rows = phone && name !== 'rear' ? [groups] : rowsOf(groups, room);
  const scale = Math.min(1, ...rows.map((row) => room / natural(row, 8)));
  const row_height = form.row * scale;
  const height = row_height * rows.length;
  const look = { text, waiting, phone, size: 16.5 / scale };
  const bands = rows.map((row, i) => svg('g',
    { transform: `translate(${TAB + form.lead} ${row_height * i}) scale(${scale})` },
    drawRow(row, room / scale, state, look)));
  const node = svg('g', { 'data-zone': name },
    svg('rect', { width, height, rx: 6, fill: token('plate') }),
    solid(`M${TAB} 0V${height}H6Q0 ${height} 0 ${height - 6}V6Q0 0 6 0Z`, 'ink-2'),
    tab(text.zone(name), height, text.language), bands);
  return { node, height };
}

function tab(text, height, language) {
  const look = { ...bold, fill: token('white') };
  if (language === 'en') {
    const transform = `translate(19.5 ${height / 2}) rotate(-90)`;
    return label(0, 0, text, 15, { ...look, transform });
  }
  const size = 17, pitch = size + 2, top = height / 2 - text.length * pitch / 2 + 15;
  return svg('g', {},
    [...text].map((character, i) => label(TAB / 2, top + i * pitch, character, size, look)));
}

// Rear over the full width, front panel and board below it.
function deskZones(put, of, width) {
  const rear = of('rear').length;
  if (rear) put('rear', 0, 0, width);
  const y = rear ? 126 : 0;
  const below = ['front', 'board'].filter((name) => of(name).length);
  if (below.length === 1) put(below[0], 0, y, width);
  if (below.length === 2) {
    const [front, board] = below.map((name) =>
      natural(of(name), 15) + TAB + DESK[name].lead + DESK[name].tail);
    const first = Math.round(front + (width - GAP - front - board) / 2);
    put('front', 0, y, first);
    put('board', first + GAP, y, width - GAP - first);
  }
  return 224;
}

// All zones one below the other.
function phoneZones(put, of, width) {
  let y = 0;
  for (const name of ['rear', 'front', 'board']) {
    if (of(name).length) y += put(name, 0, y, width) + 8;
  }
  return y - 8;
}

// The whole drawing.
export function drawing(state, text, phone) {
  const groups = groupsOf(state.plan);
  const of = (name) => groups.filter((group) => group.zone === name);
  const width = phone ? 478 : 1232;
  const root = svg('svg', { role: 'img', width: phone ? '100%' : width });
  const put = (name, x, y, room) => {
    const { node, height } = zone(name, of(name), state, text, room, phone);
    node.setAttribute('transform', `translate(${x} ${y})`);
    root.append(node);
    return height;
  };
  const height = (phone ? phoneZones : deskZones)(put, of, width);
  root.setAttribute('viewBox', `0 0 ${width} ${height}`);
  if (!phone) root.setAttribute('height', height);
  return root;
}
