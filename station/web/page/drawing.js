// The drawing of a model's connectors, made from its plan: from the names of facts and what they
// must be. A fact that names no place marks every slot that it could be, as one group.

import { svg, sign } from './signs.js';

const token = (name) => `var(--${name})`;
const PITCH = 42;

// ---- slots of a plan ---------------------------------------------------------------------------

const numbered = (facts, pattern) => {
  const found = new Map();
  for (const fact of facts) {
    const match = pattern.exec(fact.name);
    if (!match) continue;
    if (!found.has(match[1])) found.set(match[1], []);
    found.get(match[1]).push(fact.name);
  }
  return [...found].map(([id, names]) => ({ id, facts: names }));
};
const named = (facts, pattern) => facts.filter((fact) => pattern.test(fact.name)).map((fact) => fact.name);
const wanted = (facts, name) => Number(facts.find((fact) => fact.name === name)?.wanted ?? 0);

// The inputs that an output's word of wanted or measured inputs names, from 1.
export function inputsOf(word) {
  const bits = Number.parseInt(String(word).replace(/^0x/, ''), 16);
  const inputs = [];
  for (let input = 1; input <= 32; ++input) if (Number.isFinite(bits) && Math.floor(bits / 2 ** (input - 1)) % 2) inputs.push(input);
  return inputs;
}

// Groups of slots: {zone, kind, step, slots: [{id, facts}], order}. Everything else follows from it.
export function groupsOf(plan) {
  const facts = plan.facts, groups = [];
  const add = (zone, kind, step, slots, more = {}) => {
    if (slots.length) groups.push({ zone, kind, step, slots, ...more });
  };
  const copper = numbered(facts, /^network\.copper\.(\d+)\./), fibre = numbered(facts, /^network\.fibre\.(\d+)\./);
  add('rear', 'network', 'network', copper.map((slot) => ({ ...slot, fibre: fibre.find((other) => other.id === slot.id) })));

  const rearUsb = numbered(facts, /^usb\.\d+\.rear\.(\w+)$/);
  const anyUsb = named(facts, /^usb\.(?!\d+\.rear\.)/);
  add('rear', 'usb-rear', 'usb', rearUsb, { shared: anyUsb });
  add('rear', 'esata', 'sata', numbered(facts, /^sata\.(esd[a-z])\./));
  const rs485 = named(facts, /^rs485\./);
  if (rs485.length) add('rear', 'rs485', 'rs485', [{ id: '', facts: rs485 }]);

  const outputs = numbered(facts, /^alarm\.output\.(\d+)\.inputs$/);
  const inputs = wanted(facts, 'alarm.inputs');
  const alarm = named(facts, /^alarm\./);
  add('rear', 'alarm-inputs', 'alarm', Array.from({ length: inputs }, (_, i) => ({ id: String(i + 1), facts: alarm })), { columns: Math.ceil(inputs / 2) });
  add('rear', 'alarm-outputs', 'alarm', outputs, { columns: Math.ceil(outputs.length / 2) });

  const panel = named(facts, /^panel\./);
  if (plan.questions.includes('panel-leds')) add('front', 'leds', 'panel', [{ id: '', facts: panel, question: 'panel-leds' }]);
  if (plan.questions.includes('panel-keys')) add('front', 'keys', 'panel', [{ id: '', facts: panel, question: 'panel-keys' }]);
  const usbAll = wanted(facts, 'usb.1.disks');
  const front = Math.max(0, usbAll - rearUsb.length);
  add('front', 'usb-front', 'usb', Array.from({ length: front }, (_, i) => ({ id: String(i + 1), facts: anyUsb })), { shared: anyUsb });

  add('board', 'sata', 'sata', numbered(facts, /^sata\.(sd[a-z])\./));
  const minisas = named(facts, /^minisas\./);
  if (minisas.length > 1) add('board', 'minisas', 'sata', [{ id: '', facts: minisas }]);
  const tiles = [['clock', 'rtc', /^rtc\./], ['buzzer', 'buzzer', /^buzzer\./], ['info', 'info', /^info\./]]
    .filter(([, step]) => plan.steps.includes(step))
    .map(([id, step, pattern]) => ({ id, step, facts: named(facts, pattern), question: id === 'buzzer' && plan.questions.includes('buzzer') ? 'buzzer' : undefined }));
  add('board', 'tiles', '', tiles);
  return groups;
}

// ---- states of slots ---------------------------------------------------------------------------

const rank = ['pass', 'not-yet', 'running', 'not-proven', 'incomplete', 'fail'];
const worst = (states) => states.reduce((a, b) => (rank.indexOf(b) > rank.indexOf(a) ? b : a), 'pass');

// A question marks its slot: waiting and unanswered look alike, yes is good, no is a failure.
const ofAnswer = { waiting: 'not-proven', yes: 'pass', no: 'fail', unknown: 'not-proven', none: 'not-proven' };

function settled(facts, question, state, stepState) {
  const states = facts.map((fact) => state.facts[fact]?.state ?? 'not-yet');
  if (question) states.push(ofAnswer[state.answers[question]] ?? 'not-yet');
  if (states.length === 0) return stepState === 'waits' ? 'not-proven' : stepState;
  return worst(states);
}

function slotState(slot, step, state) {
  const stepState = state.steps.find((other) => other.name === step)?.state ?? 'not-yet';
  if (stepState === 'not-yet') return 'not-yet';
  const result = settled(slot.facts, slot.question, state, stepState);
  if (stepState === 'running') return result === 'not-yet' ? 'running' : result;
  if (result !== 'not-yet') return result;
  return stepState === 'incomplete' ? 'incomplete' : 'not-proven';
}

// The inputs that differ in any output, and the outputs none of whose inputs acted.
export function alarmFaults(state) {
  const inputs = new Set(), outputs = new Set();
  for (const [name, fact] of Object.entries(state.facts)) {
    const match = /^alarm\.output\.(\d+)\.inputs$/.exec(name);
    if (!match || fact.state !== 'fail') continue;
    const should = inputsOf(fact.wanted), did = inputsOf(fact.value);
    if (should.length && !should.some((input) => did.includes(input))) outputs.add(match[1]);
    else for (const input of should) if (!did.includes(input)) inputs.add(String(input));
    for (const input of did) if (!should.includes(input)) inputs.add(String(input));
  }
  return { inputs, outputs };
}

// States of the slots of one group; `block` when the group has one state for all.
export function statesOf(group, state) {
  if (group.kind === 'alarm-inputs' || group.kind === 'alarm-outputs') {
    const named = group.slots.map((slot) => slot.id);
    const faults = alarmFaults(state)[group.kind === 'alarm-inputs' ? 'inputs' : 'outputs'];
    const own = Object.entries(state.facts).filter(([name]) => /^alarm\./.test(name));
    const step = state.steps.find((other) => other.name === 'alarm')?.state ?? 'not-yet';
    if (step === 'not-yet') return { block: null, states: named.map(() => 'not-yet') };
    if (step === 'running') return { block: 'running', states: named.map(() => 'running') };
    const idle = own.some(([name, fact]) => name === 'alarm.idle.inputs' && fact.state === 'fail');
    const missing = own.length === 0 || own.some(([, fact]) => fact.state === 'not-proven');
    if (idle && faults.size === 0 && group.kind === 'alarm-inputs') return { block: 'fail', states: named.map(() => 'fail') };
    if (missing && faults.size === 0) {
      const block = step === 'incomplete' ? 'incomplete' : 'not-proven';
      return { block, states: named.map(() => block) };
    }
    return { block: null, states: named.map((id) => (faults.has(id) ? 'fail' : missing ? 'not-proven' : 'pass')) };
  }
  const states = group.slots.map((slot) => slotState({ ...slot, facts: [...slot.facts, ...(group.shared ?? [])] }, slot.step ?? group.step, state));
  if (group.kind !== 'network') return { block: null, states };
  const copperDone = states.every((one) => one !== 'running');
  return { block: null, states, fibre: group.slots.map((slot) => {
    if (!slot.fibre) return 'not-yet';
    const one = slotState(slot.fibre, 'network', state);
    return one === 'running' && !copperDone ? 'not-yet' : one;
  }) };
}

// ---- shapes ------------------------------------------------------------------------------------

const shapes = {
  rj45: 'M0 46V13H7V6H14V0H31V6H38V13H45V46Z',
  sfp: 'M0 0H48V28H0Z',
  usb: 'M0 0H66V36H0Z',
  front: 'M0 0H64V36H0Z',
  sata: 'M0 0H61V44H13V36H0Z',
  rs485: 'M0 0H76V52H0Z',
  terminal: 'M0 0H39V40H0Z',
};
const looks = {
  'not-yet': { fill: 'white', stroke: 'grey', width: 1.8 },
  running: { fill: 'blue', stroke: 'blue', width: 2 },
  pass: { fill: 'green-tint', stroke: 'green', width: 2.8 },
  fail: { fill: 'red', stroke: 'white', width: 2.4 },
  'not-proven': { fill: 'amber', stroke: 'ink', width: 2.6 },
  incomplete: { fill: 'ink-2', stroke: 'ink-2', width: 2 },
};
const inkOf = { 'not-yet': 'grey', running: 'white', pass: 'ink', fail: 'white', 'not-proven': 'ink', incomplete: 'white' };

const line = (d, colour, width) => svg('path', { d, fill: 'none', stroke: token(colour), 'stroke-width': width });
const label = (x, y, text, size, more = {}) =>
  svg('text', { x, y, 'font-size': size, 'text-anchor': 'middle', fill: token('ink'), ...more }, text);

// The small sign inside a slot, around (x, y).
function mark(state, x, y, size) {
  const at = (...children) => svg('g', { transform: `translate(${x} ${y}) scale(${size / 24})` }, ...children);
  const thick = { fill: 'none', 'stroke-width': 4.4, 'stroke-linecap': 'round', 'stroke-linejoin': 'round' };
  if (state === 'running') return at(svg('path', { d: 'M-7 -9.5L10 0L-7 9.5Z', fill: token('white') }));
  if (state === 'pass') return at(svg('path', { d: 'M-10 1L-3.5 8L10 -8', stroke: token('green'), ...thick }));
  if (state === 'fail') return at(svg('path', { d: 'M-7.5 -7.5L7.5 7.5M7.5 -7.5L-7.5 7.5', stroke: token('white'), ...thick }));
  if (state === 'not-proven') {
    return at(svg('path', { d: 'M-5.5 -5a5.6 5.6 0 1 1 8.2 5c-2 1-2.7 2-2.7 4', stroke: token('ink'), ...thick, 'stroke-width': 3.6 }),
      svg('circle', { cx: 0, cy: 9.6, r: 2.4, fill: token('ink') }));
  }
  if (state === 'incomplete') return at(svg('path', { d: 'M-10 -9H1L-4 9H-10ZM5 -9H10V9H0Z', fill: token('white') }));
  return at();
}

// A slot's body; the failed one has a rim so that it stands out among its neighbours.
function body(d, state, corner = 0) {
  const look = looks[state];
  const shape = (more) => (corner
    ? svg('rect', { width: d[0], height: d[1], rx: corner, ...more })
    : svg('path', { d, 'stroke-linejoin': 'miter', ...more }));
  const out = [];
  if (state === 'fail') out.push(shape({ fill: token('red'), stroke: token('red'), 'stroke-width': 10 }));
  if (state === 'fail') out.push(shape({ fill: token('red'), stroke: token('white'), 'stroke-width': 4.6 }));
  out.push(shape({ fill: token(look.fill), stroke: state === 'fail' ? 'none' : token(look.stroke), 'stroke-width': look.width }));
  return out;
}

function place(x, y, name, state, ...children) {
  return svg('g', { transform: `translate(${x} ${y})`, 'data-slot': name, 'data-state': state }, ...children);
}

const grey = (colour) => inkOf[colour];

const draws = {
  rj45: (x, y, name, state) => place(x, y, name, state, ...body(shapes.rj45, state),
    state === 'not-yet' ? line('M8 46V38M12.2 46V38M16.4 46V38M20.6 46V38M24.8 46V38M29 46V38M33.2 46V38M37.4 46V38', 'grey', 1.5) : mark(state, 22.5, 27, 26)),
  sfp: (x, y, name, state) => place(x, y, name, state, ...body(shapes.sfp, state),
    line('M9 31V36H40V31', state === 'pass' ? 'green' : state === 'running' ? 'blue' : state === 'fail' ? 'red' : inkOf[state] === 'white' ? 'ink-2' : inkOf[state], 2.4),
    ...(state === 'not-yet'
      ? [svg('rect', { x: 7, y: 6, width: 15, height: 16, fill: 'none', stroke: token('grey'), 'stroke-width': 1.6 }), svg('rect', { x: 26, y: 6, width: 15, height: 16, fill: 'none', stroke: token('grey'), 'stroke-width': 1.6 }),
        svg('circle', { cx: 14.5, cy: 14, r: 2.4, fill: token('grey') }), svg('circle', { cx: 33.5, cy: 14, r: 2.4, fill: token('grey') })]
      : [mark(state, 24, 14, 21)])),
  usb: (x, y, name, state, generation) => place(x, y, name, state, ...body(shapes.usb, state),
    ...(state === 'not-yet' ? [svg('rect', { x: 9, y: generation ? 21 : 18, width: 48, height: 8, fill: token('grey') }), label(33, 17, generation, 15, { fill: token('ink-2') })] : [mark(state, 33, 18, 22)])),
  front: (x, y, name, state) => place(x, y, name, state, ...body(shapes.front, state),
    state === 'not-yet' ? svg('rect', { x: 9, y: 21, width: 46, height: 8, fill: token('grey') }) : mark(state, 32, 18, 22)),
  sata: (x, y, name, state) => place(x, y, name, state, ...body(shapes.sata, state),
    state === 'not-yet' ? svg('path', { d: 'M10 16H55V28H50.5V20.5H10Z', fill: token('grey') }) : mark(state, 32, 21, 23)),
  rs485: (x, y, name, state) => place(x, y, name, state, ...body(shapes.rs485, state),
    ...(state === 'not-yet'
      ? [label(20, 18, 'A', 15, { 'font-weight': 700, fill: token('ink-2') }), label(56, 18, 'B', 15, { 'font-weight': 700, fill: token('ink-2') }), screw(20, 33, 9), screw(56, 33, 9)]
      : [mark(state, 38, 26, 30)])),
};

function screw(x, y, r) {
  const d = r * 0.62;
  return svg('g', {}, svg('circle', { cx: x, cy: y, r, fill: 'none', stroke: token('grey'), 'stroke-width': 1.6 }), line(`M${x - d} ${y + d}L${x + d} ${y - d}`, 'grey', 1.6));
}

function terminal(x, y, name, state, id, edge) {
  const children = [...body(shapes.terminal, state)];
  const ink = state === 'pass' ? 'ink' : inkOf[state] === 'grey' ? 'ink-2' : inkOf[state];
  if (edge) {
    children.push(label(20, edge === 'top' ? 16 : 35, id, 15.5, { 'font-weight': 700, fill: token(ink) }));
  } else {
    children.push(label(5, 15.5, id, 15.5, { 'font-weight': 700, 'text-anchor': 'start', fill: token(ink) }));
    children.push(state === 'not-yet' ? screw(25, 27, 7.5) : mark(state, 26, 26, state === 'fail' ? 20 : 17));
  }
  return place(x, y, name, state, ...children);
}

// One sign in the middle of a block that has one state.
function blockSign(state, x, y) {
  const size = 42, kind = { running: 'running', 'not-proven': 'not-proven', fail: 'fail', incomplete: 'incomplete' }[state];
  const inner = state === 'running'
    ? [svg('circle', { cx: 24, cy: 24, r: 27, fill: token('white') }), svg('path', { d: 'M7 12H27L40 24L27 36H7Z', fill: token('blue') })]
    : [svg('circle', { cx: 24, cy: 24, r: state === 'fail' ? 27 : 0, fill: token('white') }), state === 'not-proven' ? svg('path', { d: 'M24 -5L53 24L24 53L-5 24Z', fill: token('amber') }) : '', sign(kind, 48, state === 'fail' ? 'red' : 'ink', state === 'not-proven' ? 'amber' : 'white')];
  return svg('g', { transform: `translate(${x - size / 2} ${y - size / 2}) scale(${size / 48})` }, ...inner);
}

const icons = {
  clock: (ink) => [svg('circle', { cx: 0, cy: 0, r: 13, fill: 'none', stroke: token(ink), 'stroke-width': 2.2 }), line('M0 -7.5V0.5H6.5', ink, 2.2)],
  buzzer: (ink) => [svg('path', { d: 'M-14 -4.5H-8L0 -11V11L-8 4.5H-14Z', fill: token(ink) }), line('M4 -5Q7 0 4 5M8 -9Q13.5 0 8 9', ink, 2.4)],
  info: (ink) => [svg('rect', { x: -8.5, y: -8.5, width: 17, height: 17, fill: 'none', stroke: token(ink), 'stroke-width': 2.2 }), svg('rect', { x: -4, y: -4, width: 8, height: 8, fill: 'none', stroke: token(ink), 'stroke-width': 1.8 }),
    line('M-5 -9V-13M0 -9V-13M5 -9V-13M-5 9V13M0 9V13M5 9V13M-9 -5H-13M-9 0H-13M-9 5H-13M9 -5H13M9 0H13M9 5H13', ink, 2)],
};

function tile(x, y, slot, state) {
  const ink = state === 'not-yet' ? 'ink-2' : inkOf[state];
  const alone = state === 'not-yet';
  return place(x, y, slot.id, state, ...body([76, 44], state, 5),
    svg('g', { transform: `translate(${alone ? 38 : 21} 22)` }, ...icons[slot.id](ink)), mark(state, 57, 22, state === 'not-proven' ? 21 : 22));
}

function frameSign(state, x, y, size) {
  if (state === 'not-yet') return '';
  const colours = { pass: ['green', 'white'], fail: ['white', 'red'], 'not-proven': ['ink', 'amber'], running: ['white', 'blue'], incomplete: ['white', 'ink-2'] }[state];
  return svg('g', { transform: `translate(${x - size / 2} ${y - size / 2}) scale(${size / 48})` }, sign(state, 48, ...colours));
}

function leds(x, y, state, { text, phone }) {
  const ink = state === 'pass' ? 'green' : state === 'not-yet' ? 'grey' : inkOf[state];
  const rows = [['record', 16], ['net', 16], ['function', 5]];
  const children = body([296, 64], state, 4);
  rows.forEach(([name, count], row) => {
    if (!phone) children.push(label(11, 20 + 18 * row, text.led(name), 15, { 'text-anchor': 'start', fill: token(state === 'fail' || state === 'running' || state === 'incomplete' ? 'white' : 'ink') }));
    for (let i = 0; i < count; ++i) {
      const dot = state === 'not-yet' ? { fill: 'none', stroke: token('grey'), 'stroke-width': 1.4, r: 4.4 } : { fill: token(ink), r: 5.2 };
      children.push(svg('circle', { cx: 52 + 12.5 * i, cy: 14.5 + 18 * row, ...dot }));
    }
  });
  return place(x, y, 'leds', state, ...children, frameSign(state, 274, 50, state === 'not-proven' ? 34 : 28));
}

function keyFrame(x, y, state) {
  const ink = state === 'not-yet' ? 'grey' : state === 'pass' ? 'ink' : inkOf[state];
  return place(x, y, 'keys', state, ...body([116, 64], state, 4),
    line('M34 7L41.5 19H26.5ZM34 57L41.5 45H26.5ZM9 32L21 24.5V39.5ZM59 32L47 24.5V39.5Z', ink, 1.8),
    svg('circle', { cx: 34, cy: 32, r: 6, fill: 'none', stroke: token(ink), 'stroke-width': 1.8 }), frameSign(state, 93, 32, state === 'not-proven' ? 34 : 28));
}

// ---- groups ------------------------------------------------------------------------------------
// Each gives its width and draws itself at (x, 0) of a band. `look`: text, waiting (captions say what
// to plug in), phone, size (of captions).

const caption = (x, y, words, look, size = look.size) => label(x, y, words, size, look.waiting ? { 'font-weight': 700 } : {});
const rear = (x, words, look) => caption(x, look.phone ? 101 : 107.3, words, look);
const below = (x, words, look, size) => caption(x, 90.5, words, look, size);

// A group whose slots are alike, at a pitch.
const alike = (pitch, width, shape, y, name, words) => ({
  width: (group) => pitch * group.slots.length - (pitch - width),
  draw(group, x, state, look) {
    const { states } = statesOf(group, state);
    const slots = group.slots.map((slot, i) => shape(x + pitch * i, y, name(slot), states[i]));
    return [...slots, ...words(group, x, x + this.width(group) / 2, look)];
  },
});

const frame = (width, draw, words) => ({
  width: () => width,
  draw: (group, x, state, look) => [draw(x, 8, statesOf(group, state).states[0], look), below(x + width / 2, words(look), look)],
});

const terminalBlock = (words) => ({
  width: (group) => PITCH * group.columns - 2,
  draw(group, x, state, look) {
    const { block, states } = statesOf(group, state);
    const out = group.slots.map((slot, i) => {
      const row = Math.floor(i / group.columns), column = i % group.columns;
      return terminal(x + PITCH * column, 7 + PITCH * row, `${group.kind}.${slot.id}`, states[i], slot.id, block && (row ? 'bottom' : 'top'));
    });
    const middle = x + this.width(group) / 2;
    if (block) out.push(blockSign(block, middle, 48));
    if (!look.phone) out.push(rear(middle, words(group, look), look));
    return out;
  },
});

const kinds = {
  network: {
    width: (group) => 112 * group.slots.length - 12,
    draw(group, x, state, look) {
      const { states, fibre } = statesOf(group, state), { text, waiting, phone } = look, out = [];
      group.slots.forEach((slot, i) => {
        const left = x + 112 * i;
        out.push(draws.rj45(left, 20, `copper.${slot.id}`, states[i]));
        if (slot.fibre) out.push(draws.sfp(left + 52, 28, `fibre.${slot.id}`, fibre[i]));
        if (i) out.push(line(`M${left - 8} 16V${waiting || phone ? 78 : 110}`, 'line', 1.2));
        if (waiting) return;
        if (!phone) out.push(label(left + 23, 87, text.copper(), 15));
        if (slot.fibre && !phone) out.push(label(left + 76, 87, text.fibre(), 15));
        out.push(label(left + 49, phone ? 90 : 107.5, text.port(slot.id), phone ? 17 : 15.5, { 'font-weight': 700 }));
      });
      if (waiting) {
        const end = x + this.width(group) - 4, words = text.plugNetwork(group.slots.length, group.slots.filter((slot) => slot.fibre).length);
        out.push(line(`M${x} 80V92M${x} 86H${end}M${end} 80V92`, 'ink', 2), caption((x + end) / 2, 106, words, look));
      }
      return out;
    },
  },
  'usb-rear': {
    width: () => 86,
    draw(group, x, state, look) {
      const { states } = statesOf(group, state), out = [];
      const top = group.slots.length > 1 ? 10 : 31;
      group.slots.forEach((slot, i) => {
        out.push(draws.usb(x + 20, top + 41 * i, `usb.rear.${slot.id}`, states[i], look.text.usbGeneration(slot.id)));
        if (group.slots.length > 1) out.push(label(x + 15, top + 24 + 41 * i, look.text.rearUsb(i), 15, { 'text-anchor': 'end' }));
      });
      return [...out, rear(x + 53, look.waiting ? look.text.plugUsb(group.slots.length) : look.text.usbRear(), look)];
    },
  },
  esata: alike(70, 62, draws.sata, 28, (slot) => slot.id,
    (group, x, middle, look) => [rear(middle, look.waiting ? look.text.plugDisks(group.slots.length) : look.text.esata(), look)]),
  rs485: alike(84, 76, draws.rs485, 24, () => 'rs485', (group, x, middle, look) => [rear(middle, look.waiting ? look.text.plugRs485() : 'RS-485', look)]),
  'alarm-inputs': terminalBlock((group, look) => (look.waiting ? look.text.plugAlarm() : look.text.alarmInputs(group.slots.length))),
  'alarm-outputs': terminalBlock((group, look) => (look.waiting ? '' : look.text.alarmOutputs())),
  leds: frame(296, leds, ({ text, waiting }) => (waiting ? text.plugPanel() : text.panelLeds())),
  keys: frame(116, keyFrame, ({ text, waiting }) => (waiting ? text.plugKeys() : text.panelKeys())),
  'usb-front': alike(72, 64, draws.front, 22, (slot) => `usb.front.${slot.id}`,
    (group, x, middle, look) => [below(middle, look.waiting ? look.text.plugUsb(group.slots.length) : look.text.usbFront(group.slots.length), look)]),
  sata: alike(70, 60, draws.sata, 20, (slot) => slot.id, (group, x, middle, look) => (look.waiting
    ? [below(middle, look.text.plugDisks(group.slots.length), look)]
    : group.slots.map((slot, i) => below(x + 30 + 70 * i, look.phone && i ? String(i + 1) : `SATA ${i + 1}`, look, look.size * 0.92)))),
  minisas: alike(84, 60, draws.sata, 20, () => 'minisas', (group, x, middle, look) => [below(middle, 'miniSAS', look, look.size * 0.92)]),
  tiles: {
    width: (group) => 84 * group.slots.length - 8,
    draw(group, x, state, look) {
      const { states } = statesOf(group, state), plain = { ...look, waiting: false };
      return group.slots.flatMap((slot, i) => [tile(x + 84 * i, 20, slot, states[i]), below(x + 38 + 84 * i, look.text.tile(slot.id), plain)]);
    },
  },
};

// ---- layout ------------------------------------------------------------------------------------

const TAB = 28;
const GAP = 10;
const DESK = { rear: { row: 118, lead: 15, tail: 4 }, front: { row: 98, lead: 14, tail: 16 }, board: { row: 98, lead: 16, tail: 12 } };
const PHONE = { rear: { row: 106, lead: 7, tail: 7 }, front: { row: 98, lead: 7, tail: 7 }, board: { row: 98, lead: 7, tail: 7 } };

// The alarm outputs stay close to the inputs; all other groups share what room is left.
const gapBefore = (group, gap) => (group.kind === 'alarm-outputs' ? 14 : gap);
const natural = (groups, gap) => groups.reduce((sum, group, i) => sum + kinds[group.kind].width(group) + (i ? gapBefore(group, gap) : 0), 0);

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

function zone(name, groups, state, text, width, phone) {
  const waiting = ['waiting', 'locked', 'sign-in'].includes(state.phase);
  const form = (phone ? PHONE : DESK)[name];
  const room = width - TAB - form.lead - form.tail;
  // Below the rear panel a telephone has one row a zone, as small as it needs to be.
  const rows = phone && name !== 'rear' ? [groups] : rowsOf(groups, room);
  const scale = Math.min(1, ...rows.map((row) => room / natural(row, 8)));
  const row_height = form.row * scale;
  const height = row_height * rows.length;
  const out = [
    svg('rect', { width, height, rx: 6, fill: token('plate') }),
    svg('path', { d: `M${TAB} 0V${height}H6Q0 ${height} 0 ${height - 6}V6Q0 0 6 0Z`, fill: token('ink-2') }),
    tab(text.zone(name), height, text.language),
  ];
  rows.forEach((row, i) => {
    const own = row.filter((group) => group.kind !== 'alarm-outputs').length - 1;
    const gap = own > 0 ? Math.min(24, Math.max(4, (room / scale - natural(row, 0)) / own)) : 0;
    const band = svg('g', { transform: `translate(${TAB + form.lead} ${row_height * i}) scale(${scale})` });
    const look = { text, waiting, phone, size: 16.5 / scale };
    let x = 0;
    const drawn = [];
    row.forEach((group, k) => {
      if (k) x += gapBefore(group, gap);
      drawn.push(...kinds[group.kind].draw(group, x, state, look));
      x += kinds[group.kind].width(group);
    });
    const red = (node) => node.getAttribute?.('data-state') === 'fail';
    band.append(...drawn.filter((node) => !red(node)), ...drawn.filter(red));
    out.push(band);
  });
  return { node: svg('g', { 'data-zone': name }, ...out), height };
}

function tab(text, height, language) {
  if (language === 'en') return label(0, 0, text, 15, { 'font-weight': 700, fill: token('white'), transform: `translate(19.5 ${height / 2}) rotate(-90)` });
  const size = 17, top = height / 2 - (text.length * (size + 2)) / 2;
  return svg('g', {}, ...[...text].map((character, i) => label(TAB / 2, top + 15 + i * (size + 2), character, size, { 'font-weight': 700, fill: token('white') })));
}

// The whole drawing: rear over the full width, front panel and board below it.
export function drawing(state, text, phone) {
  const groups = groupsOf(state.plan);
  const of = (name) => groups.filter((group) => group.zone === name);
  const width = phone ? 478 : 1232;
  const root = svg('svg', {});
  let y = 0;
  const put = (name, x, room) => {
    const { node, height } = zone(name, of(name), state, text, room, phone);
    node.setAttribute('transform', `translate(${x} ${y})`);
    root.append(node);
    return height;
  };
  if (phone) {
    for (const name of ['rear', 'front', 'board']) if (of(name).length) y += put(name, 0, width) + 8;
    y -= 8;
  } else {
    if (of('rear').length) {
      put('rear', 0, width);
      y = 126;
    }
    const below = ['front', 'board'].filter((name) => of(name).length);
    if (below.length === 1) put(below[0], 0, width);
    if (below.length === 2) {
      const size = below.map((name) => natural(of(name), 15) + TAB + DESK[name].lead + DESK[name].tail);
      const first = Math.round(size[0] + (width - GAP - size[0] - size[1]) / 2);
      put(below[0], 0, first);
      put(below[1], first + GAP, width - GAP - first);
    }
    y = 224;
  }
  root.setAttribute('viewBox', `0 0 ${width} ${y}`);
  root.setAttribute('width', phone ? '100%' : width);
  if (!phone) root.setAttribute('height', y);
  root.setAttribute('role', 'img');
  return root;
}
