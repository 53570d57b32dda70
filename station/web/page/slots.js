// The slots of a model's connectors and their states, made from its plan: from the names of facts
// and what they must be. A fact that names no place marks every slot that it could be, as one
// group.

// ---- slots of a plan ---------------------------------------------------------------------------

// Of the facts that the pattern matches: {id, facts} for each place that its group names.
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
const named = (facts, pattern) =>
  facts.filter((fact) => pattern.test(fact.name)).map((fact) => fact.name);
const wanted = (facts, name) => Number(facts.find((fact) => fact.name === name)?.wanted ?? 0);
const counted = (count, facts) =>
  Array.from({ length: count }, (_, i) => ({ id: String(i + 1), facts }));

// The inputs that an output's word of wanted or measured inputs names, from 1.
export function inputsOf(word) {
  const bits = Number.parseInt(String(word).replace(/^0x/, ''), 16) || 0;
  const inputs = [];
  for (let input = 1; input <= 32; ++input) {
    if (Math.floor(bits / 2 ** (input - 1)) % 2) inputs.push(input);
  }
  return inputs;
}

// Groups of slots: {zone, kind, step, slots: [{id, facts, question?}], shared?, columns?}.
// Everything else follows from it.
export function groupsOf(plan) {
  const groups = [];
  const add = (zone, kind, step, slots, more = {}) => {
    if (slots.length) groups.push({ zone, kind, step, slots, ...more });
  };
  const rearUsb = numbered(plan.facts, /^usb\.\d+\.rear\.(\w+)$/);
  const anyUsb = named(plan.facts, /^usb\.(?!\d+\.rear\.)/);
  addRear(plan.facts, add, rearUsb, anyUsb);
  addFront(plan, add, Math.max(0, wanted(plan.facts, 'usb.1.disks') - rearUsb.length), anyUsb);
  addBoard(plan, add);
  return groups;
}

function addRear(facts, add, usb, anyUsb) {
  const fibre = numbered(facts, /^network\.fibre\.(\d+)\./);
  const copper = numbered(facts, /^network\.copper\.(\d+)\./);
  add('rear', 'network', 'network',
    copper.map((slot) => ({ ...slot, fibre: fibre.find((other) => other.id === slot.id) })));
  add('rear', 'usb-rear', 'usb', usb, { shared: anyUsb });
  add('rear', 'esata', 'sata', numbered(facts, /^sata\.(esd[a-z])\./));
  const rs485 = named(facts, /^rs485\./);
  if (rs485.length) add('rear', 'rs485', 'rs485', [{ id: '', facts: rs485 }]);

  const outputs = numbered(facts, /^alarm\.output\.(\d+)\.inputs$/);
  const inputs = counted(wanted(facts, 'alarm.inputs'), named(facts, /^alarm\./));
  add('rear', 'alarm-inputs', 'alarm', inputs, { columns: Math.ceil(inputs.length / 2) });
  add('rear', 'alarm-outputs', 'alarm', outputs, { columns: Math.ceil(outputs.length / 2) });
}

function addFront({ facts, questions }, add, usb, anyUsb) {
  const panel = named(facts, /^panel\./);
  for (const [kind, question] of [['leds', 'panel-leds'], ['keys', 'panel-keys']]) {
    const slots = questions.includes(question) ? [{ id: '', facts: panel, question }] : [];
    add('front', kind, 'panel', slots);
  }
  add('front', 'usb-front', 'usb', counted(usb, anyUsb), { shared: anyUsb });
}

function addBoard({ facts, questions, steps }, add) {
  add('board', 'sata', 'sata', numbered(facts, /^sata\.(sd[a-z])\./));
  const minisas = named(facts, /^minisas\./);
  if (minisas.length > 1) add('board', 'minisas', 'sata', [{ id: '', facts: minisas }]);
  const buzzer = questions.includes('buzzer') ? 'buzzer' : undefined;
  const tiles = [
    { id: 'clock', step: 'rtc', facts: named(facts, /^rtc\./) },
    { id: 'buzzer', step: 'buzzer', facts: named(facts, /^buzzer\./), question: buzzer },
    { id: 'info', step: 'info', facts: named(facts, /^info\./) },
  ];
  add('board', 'tiles', '', tiles.filter((tile) => steps.includes(tile.step)));
}

// ---- states of slots ---------------------------------------------------------------------------

const rank = ['pass', 'not-yet', 'running', 'not-proven', 'incomplete', 'fail'];
const worst = (states) =>
  states.reduce((a, b) => (rank.indexOf(b) > rank.indexOf(a) ? b : a), 'pass');

// A question marks its slot: waiting and unanswered look alike, yes is good, no is a failure.
const ofAnswer = {
  waiting: 'not-proven', yes: 'pass', no: 'fail', unknown: 'not-proven', none: 'not-proven',
};

function settled(facts, question, state, stepState) {
  const states = facts.map((fact) => state.facts[fact]?.state ?? 'not-yet');
  if (question) states.push(ofAnswer[state.answers[question]] ?? 'not-yet');
  if (states.length === 0) return stepState === 'waits' ? 'not-proven' : stepState;
  return worst(states);
}

const stateOfStep = (state, name) =>
  state.steps.find((step) => step.name === name)?.state ?? 'not-yet';

function slotState(slot, step, state) {
  const stepState = stateOfStep(state, step);
  if (stepState === 'not-yet') return 'not-yet';
  const result = settled(slot.facts, slot.question, state, stepState);
  if (stepState === 'running') return result === 'not-yet' ? 'running' : result;
  if (result !== 'not-yet') return result;
  return stepState === 'incomplete' ? 'incomplete' : 'not-proven';
}

// The inputs that differ in any output, and the outputs none of whose inputs acted.
function alarmFaults(facts) {
  const inputs = new Set(), outputs = new Set();
  for (const [name, fact] of facts) {
    const match = /^alarm\.output\.(\d+)\.inputs$/.exec(name);
    if (!match || fact.state !== 'fail') continue;
    const should = inputsOf(fact.wanted), did = inputsOf(fact.value);
    const missing = should.filter((input) => !did.includes(input));
    if (should.length && missing.length === should.length) outputs.add(match[1]);
    else for (const input of missing) inputs.add(String(input));
    for (const input of did) if (!should.includes(input)) inputs.add(String(input));
  }
  return { 'alarm-inputs': inputs, 'alarm-outputs': outputs };
}

function alarmStates(group, state) {
  const facts = Object.entries(state.facts).filter(([name]) => /^alarm\./.test(name));
  const faults = alarmFaults(facts)[group.kind];
  const step = stateOfStep(state, 'alarm');
  const all = (word) => group.slots.map(() => word);
  if (step === 'not-yet') return { block: null, states: all('not-yet') };
  if (step === 'running') return { block: 'running', states: all('running') };
  const idle = facts.some(([name, { state: word }]) =>
    name === 'alarm.idle.inputs' && word === 'fail');
  const missing = facts.length === 0 || facts.some(([, fact]) => fact.state === 'not-proven');
  if (idle && faults.size === 0 && group.kind === 'alarm-inputs') {
    return { block: 'fail', states: all('fail') };
  }
  if (missing && faults.size === 0) {
    const block = step === 'incomplete' ? 'incomplete' : 'not-proven';
    return { block, states: all(block) };
  }
  const good = missing ? 'not-proven' : 'pass';
  return { block: null, states: group.slots.map(({ id }) => (faults.has(id) ? 'fail' : good)) };
}

// The fibre of a port is tested when the copper of all ports is done.
function fibreStates(group, copper, state) {
  const copperDone = !copper.includes('running');
  return group.slots.map((slot) => {
    if (!slot.fibre) return 'not-yet';
    const one = slotState(slot.fibre, 'network', state);
    return one === 'running' && !copperDone ? 'not-yet' : one;
  });
}

// States of the slots of one group; `block` when the group has one state for all.
export function statesOf(group, state) {
  if (group.kind === 'alarm-inputs' || group.kind === 'alarm-outputs') {
    return alarmStates(group, state);
  }
  const shared = group.shared ?? [];
  const states = group.slots.map((slot) =>
    slotState({ ...slot, facts: [...slot.facts, ...shared] }, slot.step ?? group.step, state));
  const fibre = group.kind === 'network' ? fibreStates(group, states, state) : null;
  return { block: null, states, fibre };
}
