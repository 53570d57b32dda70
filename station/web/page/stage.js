// The stage: left what is so, right why and what to do next. A function of the state and the
// language; its places and sizes are in stage.css.

import { el, minute, shortId } from './common.js';
import { floodSign, ground, line, sign, stateSign, svg } from './signs.js';
import { differences, findingOf, fitOf, plain, reasonsOf } from './reading.js';

const div = (name, ...children) => el('div', { class: name }, ...children);
const span = (name, ...children) => el('span', { class: name }, ...children);
const at = (name, ...children) => div(`at ${name}`, ...children);
const card = (name, ...children) => div(`card ${name}`, ...children);
const row = (name, ...children) => div(`row ${name}`, ...children);
const bold = (words) => el('b', {}, words);
const nextStep = (...words) => div('next', sign('arrow', 34, 'white'), el('span', {}, ...words));

const fill = (template, values) => template.replace(/\{(\w+)\}/g, (_, name) => values[name] ?? '?');
const words = (both, t) => (both && typeof both === 'object' ? both[t.language] : both) ?? '';

// The width of a text in units of its size of type, about.
const widthOf = (content) =>
  [...content].reduce((sum, c) => sum + (c.charCodeAt(0) > 0x2e80 ? 1 : 0.5), 0);

// A verdict's panel, `of` the board on the fixture (flood) or of the last one (last). `icon` is the
// verdict's sign.
function panel(of, verdict, width, icon, word, ...rows) {
  const name = `panel ${of} ${verdict}`;
  return el('div', { class: name, 'data-verdict': verdict, css: { width: `${width}px` } },
    ground(verdict, width, 318, of !== 'last'),
    div(`word ${verdict}`, icon, el('span', {}, word)), rows);
}

// ---- waiting, locked, signing in ---------------------------------------------------------------

const CORNERS = 'M18 77V18H77M612 18H672V77M672 240V300H612M77 300H18V240';

function prompt(head, how, also = '') {
  return card('prompt', svg('svg', { width: 690, height: 318 }, line(CORNERS, 'ink', 10)),
    at('head', head), at('how', how), at('also lesser', also));
}

function lastBoard(t, last) {
  if (!last) {
    return card('last none', t.noLast(), el('a', { href: '/states', tabindex: -1 }, t.seeLegend()));
  }
  const { verdict } = last;
  const sure = verdict === 'pass' || verdict === 'fail';
  return panel('last', verdict, 522, stateSign(verdict, sure ? 112 : 84), t.verdicts[verdict],
    row('title', t.lastBoard()), row('serial', last.serial),
    row('when', t.lastLine(last.number, minute(last.time), last.released)));
}

const waiting = (state, t) =>
  [prompt(t.scanNext(), t.plugFirst(), t.startsAtOnce()), lastBoard(t, state.last)];
const signIn = (state, t) => [prompt(t.signIn(), t.signInWhy()), lastBoard(t, state.last)];
const replayed = (state, t) =>
  [prompt(t.replayed(), t.replayedWhy(), shortId(state.attempt.id)), lastBoard(t, state.last)];

// Nothing can begin: what it is, why, and what to do.
function blocked(t, head, why, what, last) {
  const long = widthOf(why) * 40 > 620;
  return [
    at('blocked', sign('waits', 110), at('head', head), at(long ? 'cause long' : 'cause', why),
      nextStep(what)),
    lastBoard(t, last),
  ];
}

function locked(state, t) {
  const code = state.locked[0];
  const next = state.proof?.next;
  const due = code === 'proof-boards' && next;
  const why = due ? t.proofBoard(next.serial, next.verdict) : t.lockedWhy[code] ?? code;
  return blocked(t, t.locked(), why, t.lockedNext[code] ?? '', state.last);
}

const refused = (state, t) =>
  blocked(t, t.refused(), state.factory.refused ?? '', t.refusedNext(), state.last);

// ---- running -----------------------------------------------------------------------------------

const asking = (state, t) =>
  [card('notice asking', at('head', t.asking()), at('cause', t.askingWhy()))];

function storing(state, t) {
  const problem = state.verdict?.problem;
  if (problem) return locked({ ...state, locked: [problem] }, t);
  return [card('notice', at('head', t.storing()), at('cause', t.storingWhy()))];
}

export function bar(state, width) {
  const { progress, steps } = state;
  const whole = steps.reduce((sum, step) => sum + (step.seconds ?? 0), 0);
  const part = (x, wide, colour) => svg('rect', { x, width: wide, height: 22, fill: colour });
  const size = { width, height: 22, viewBox: `0 0 ${width} 22`, preserveAspectRatio: 'none' };
  const root = svg('svg', { class: 'bar at', ...size }, part(0, width, '#CAD2D8'));
  if (whole > 0) {
    root.append(part(0, Math.min(1, progress.elapsed / whole) * width, 'var(--blue)'));
    let x = 0;
    for (const step of steps.slice(0, -1)) {
      x += (step.seconds ?? 0) / whole * width;
      root.append(part(x - 1.5, 3, 'var(--white)'));
    }
  } else {
    const done = steps.filter((step) => !['not-yet', 'running'].includes(step.state)).length;
    root.append(part(0, done / Math.max(1, steps.length) * width, 'var(--blue)'));
  }
  return root;
}

export function doing(state, t, table = t.doing) {
  const step = state.progress.step ?? 'start';
  const wanted = (name) => Number(state.plan.facts.find((fact) => fact.name === name)?.wanted);
  const counts = { outputs: wanted('alarm.outputs'), inputs: wanted('alarm.inputs') };
  return fill(table[step] ?? t.doing[step] ?? '', counts);
}

// Seconds to show: what is left if that is learned; how much longer it takes; else the time so far.
export function seconds(progress, t) {
  if (progress.over > 0) return [t.over(), progress.over];
  if (progress.left !== null && progress.left !== undefined) return [t.left(), progress.left];
  return [t.elapsed(), progress.elapsed];
}

function running(state, t) {
  const { progress } = state;
  const index = state.steps.findIndex((step) => step.name === progress.step) + 1;
  const [what, count] = seconds(progress, t);
  const asks = progress.step === 'panel';
  return [card('progress',
    at('state', sign('running', 52, 'blue'), bold(t.running()),
      el('span', {}, index ? t.ofSteps(index, state.steps.length) : '')),
    at('name', t.step(progress.step ?? 'start')),
    at('doing', doing(state, t), asks ? '' : span('lesser', t.noKeys())),
    at('what', what), at('count', span('seconds', String(count)), span('unit', t.seconds())),
    at('latest lesser', t.latest(progress.silent)), asks ? keyPicture() : '', bar(state, 1232))];
}

// ---- question ----------------------------------------------------------------------------------

const plate = { fill: '#253038', stroke: 'var(--ink)', 'stroke-width': 3 };
const onPlate = { 'font-weight': 700, fill: 'var(--white)' };
const off = { r: 8, fill: 'none', stroke: '#9AA7AF', 'stroke-width': 1.6 };
const on = { r: 10, fill: 'var(--white)', stroke: '#F6DE8D', 'stroke-width': 3.4 };

function ledPicture(t, frame, lit) {
  const lcd = { 'font-size': 15, 'text-anchor': 'middle', fill: 'var(--ink)' };
  const root = svg('svg', { width: 580, height: 102 },
    svg('rect', { x: 1.5, y: 1.5, width: 577, height: 99, rx: 8, ...plate }),
    svg('rect', { x: 14, y: 16, width: 62, height: 70, rx: 3, fill: '#A8B5A3' }),
    svg('text', { x: 45, y: 56, ...lcd }, 'LCD'));
  [['record', 16], ['net', 16], ['function', 5]].forEach(([name, count], i) => {
    root.append(svg('text', { x: 90, y: 30 + 27 * i, 'font-size': 17, ...onPlate }, t.led(name)));
    for (let led = 0; led < count; ++led) {
      const look = lit.includes(name) ? on : off;
      root.append(svg('circle', { cx: 146 + 25.4 * led, cy: 24 + 27 * i, ...look }));
    }
  });
  return at('picture leds', bold(t.frame(frame + 1)), `　${t.frames[frame]}`, root);
}

// The keys of the panel, to be pressed one after the other.
function keyPicture() {
  const key = (x, y, word, size = 24, width = 74) => {
    const middle = { x: x + width / 2, y: y + 35, 'text-anchor': 'middle' };
    return svg('g', {}, svg('rect', { x, y, width, height: 54, rx: 8, ...plate }),
      svg('text', { ...middle, 'font-size': size, ...onPlate }, word));
  };
  return svg('svg', { class: 'keys', width: 560, height: 220, viewBox: '0 0 560 220' },
    key(110, 16, '▲'), key(20, 84, '◀'), key(110, 84, 'ENTER', 19), key(200, 84, '▶'),
    key(110, 152, '▼'), key(340, 84, 'ESC', 24, 110));
}

function buzzerPicture() {
  const beep = (x) =>
    svg('rect', { x, y: 40, width: 90, height: 90, rx: 10, fill: 'var(--ink)' });
  return svg('svg', { width: 560, height: 170 }, beep(40), beep(210), beep(380),
    line('M10 140H500', 'ink', 4));
}

const picture = (name, [head, rest], drawn) => at(`picture ${name}`, bold(head), ` ${rest}`, drawn);
const pictures = {
  'panel-leds': (t) => [ledPicture(t, 0, ['record', 'function']), ledPicture(t, 1, ['net'])],
  'panel-keys': (t) => picture('keys', t.keyPicture, keyPicture()),
  buzzer: (t) => picture('buzzer', t.buzzerPicture, buzzerPicture()),
};

function question(state, t) {
  const { question: asked } = state;
  const { look, ask, good: [good, bad] } = t.questions[asked.name];
  return [el('div', { class: 'at question', 'data-question': asked.name },
    at('look', sign('waits', 54), bold(look),
      span('lesser', t.questionOf(asked.number, asked.count))),
    at('ask', ask), at('good', good), at('bad', bad, sign('no', 22), bold(t.no())),
    at('time', bold(t.questionLeft(asked.left)), t.silence(),
      span('lesser', t.language === 'en' ? '' : t.scanIsNoAnswer())),
    pictures[asked.name](t))];
}

// ---- verdicts ----------------------------------------------------------------------------------

function afterPass(state, t) {
  const { mark, scan_out } = state.verdict;
  if (mark === 'reference') return t.proofNextShort(state.proof?.state);
  if (mark !== 'production') return t.notRelease();
  return scan_out === 'due' ? t.scanOut() : t.takeOff();
}

function pass(state, t) {
  const { verdict } = state;
  const fact = (...content) => el('div', {}, stateSign('pass', 27), el('span', {}, ...content));
  const { database, unsent } = verdict.stored;
  const sent = database === 'spooled' ? el('b', { class: 'spooled' }, t.spooled(unsent))
    : database === 'committed' ? t.committed() : t.atRelease();
  return [
    panel('flood', 'pass', 790, floodSign('pass', 206), t.verdicts.pass),
    card('kept', at('head', t.stored(verdict.number)),
      at('facts', fact(`${t.journalStored()} `, span('mono', shortId(verdict.id))),
        fact(t.judged(verdict.facts.good)), fact(sent)),
      div('next', sign('scan', 90, 'white'),
        el('div', {}, afterPass(state, t).map((line) => el('div', {}, line))))),
  ];
}

// What to do after a verdict: a reference board leads to the next one, or to the end of the proof.
const nextOf = (state, t, usual) => nextStep(state.verdict.mark === 'reference'
  ? t.proofNext(state.proof?.state, state.proof?.next?.serial) : usual);

const storedRow = (t, verdict) =>
  row('stored', t.storedLine(verdict.number, shortId(verdict.id)));

// What a fact is about: the inputs of an alarm output, those that differ in red; else its name.
function aboutFact(t, { reason, output, should, differ }) {
  if (!output) return [div('', t.fact(reason.fact)), div('mono', reason.fact)];
  const name = (input) => (differ.includes(input) ? bold(String(input)) : String(input));
  const inputs = should.map((input, i) => [i ? t.comma : '', name(input)]);
  return [div('', t.outputOn(output)), div('', t.inputs(), inputs)];
}

function measured(t, finding) {
  const { reason } = finding;
  const value = t.value(reason.value), wanted = plain(t.value(reason.wanted));
  const long = Math.max(plain(value).length, wanted.length) > 4;
  const unit = reason.unit && reason.unit !== 'bits' ? t.unit(reason.unit) : '';
  const runs = differences(/^0x/.test(reason.value) ? reason.value : value, reason.wanted);
  const marked = ({ text, differs }) => {
    if (!differs) return text;
    const parts = [...text].length > 3 ? [text] : [...text];
    return parts.map((part) => span('difference', part));
  };
  return at(long ? 'measured long' : 'measured', t.measured(),
    el('b', { class: 'mono value found' }, runs.map(marked), unit && span('unit', unit)),
    span('wanted', t.wanted()), el('b', { class: 'mono value' }, wanted),
    div('lesser', aboutFact(t, finding)));
}

function badge(t, cause) {
  if (cause.exact) return span('badge full', t.exact(cause.defects?.length || 1));
  return span('badge', t.fits(...fitOf(cause)));
}

// What the cause would measure in place of the first failing fact.
function gives(cause, verdict, t) {
  const fact = findingOf(verdict).reason?.fact;
  const shown = (cause.would_show ?? []).find((one) => one.fact === fact);
  return shown && shown.value !== 'absent' ? t.wouldGive(plain(t.value(shown.value))) : '';
}

function causes(t, verdict) {
  const [first, ...others] = verdict.causes;
  const advice = words(first.check, t);
  return at(widthOf(advice) * 24 > 616 ? 'causes long' : 'causes',
    div('first', at('rank', '1'), at('title', words(first.title, t), badge(t, first)),
      at('advice', advice)),
    others.slice(0, 2).map((cause, i) => div('other', el('b', { class: 'number' }, String(i + 2)),
      el('b', { class: 'name' }, words(cause.title, t)), badge(t, cause),
      span('gives', gives(cause, verdict, t)))));
}

function reasonRows(t, reasons, room, place = '') {
  const one = (reason) => {
    const content = t.reason(reason);
    const size = Math.min(28, Math.floor(430 / widthOf(content)));
    // It names what q7 printed, and may be long: then it has two lines.
    const said = size < 20 ? span('two-lines', content)
      : el('span', { css: { fontSize: `${size}px` } }, content);
    return div('reason', stateSign(reason.verdict, 40), bold(t.step(reason.item)), said);
  };
  const more = reasons.length - room;
  return at(`reasons ${place}`, reasons.slice(0, room).map(one),
    more > 0 ? div('more', t.more(more)) : '');
}

function fail(state, t) {
  const { verdict } = state;
  const finding = findingOf(verdict);
  const first = finding.reason;
  const all = reasonsOf(verdict);
  const rest = all.filter((reason) => reason.fact !== first?.fact || reason.line !== first?.line);
  const third = verdict.same >= 3;
  return [
    panel(third ? 'flood third' : 'flood', 'fail', 512, floodSign('fail', 142), t.verdicts.fail,
      row('finding', t.finding(finding)), third ? row('again', t.thirdTime()) : '',
      storedRow(t, verdict)),
    card('why',
      first?.fact && first.wanted ? measured(t, finding) : reasonRows(t, all, 1, 'instead'),
      verdict.causes.length ? causes(t, verdict)
        : reasonRows(t, rest, rest.length > 3 ? 2 : 3, 'others'),
      nextOf(state, t, third ? t.stopSupervisor() : t.next(finding))),
  ];
}

const PORTS = ['alarm', 'rs485', 'usb', 'sata', 'network'];

function notProven(state, t) {
  const { verdict } = state;
  const finding = findingOf(verdict);
  const reasons = reasonsOf(verdict);
  const items = reasons.filter((reason, i) =>
    reasons.findIndex((other) => other.item === reason.item) === i);
  const missing = reasons.filter((reason) =>
    reason.code === 'missing-step' && PORTS.includes(reason.item)).length;
  const cause = verdict.causes[0];
  const word = t.verdicts['not-proven'].replace(' ', '\n');
  return [
    panel('flood', 'not-proven', 512, floodSign('not-proven', 126), word,
      row('finding', t.finding(finding)), storedRow(t, verdict)),
    card('why', reasonRows(t, items, 3),
      cause && items.length <= 3 ? at('one-cause', bold(t.causeOne()),
        el('span', {}, words(cause.title, t)), badge(t, cause)) : '',
      missing ? at('said lesser', t.q7SaysGood(missing)) : '',
      nextOf(state, t, verdict.same >= 3 ? t.stopSupervisor() : t.nextNotProven(finding))),
  ];
}

function incomplete(state, t) {
  const { verdict } = state;
  const broke = verdict.broke_off;
  return [
    panel('flood', 'incomplete', 512, floodSign('incomplete', 96), t.verdicts.incomplete,
      row('finding', broke ? t.brokeOff(t.step(broke)) : t.finding(findingOf(verdict))),
      storedRow(t, verdict)),
    card('why', reasonRows(t, reasonsOf(verdict), 2), at('lines', t.kept(verdict.lines)),
      at('uncounted lesser', t.notCounted()), nextStep(t.nextIncomplete())),
  ];
}

export function away(t, sinceSeconds) {
  return [div('away', div('head', t.away()), div('cause', t.awayWhy(sinceSeconds)),
    div('lesser', t.awayRun()), nextStep(t.awayNext()))];
}

const phases = { waiting, 'sign-in': signIn, locked, asking, refused, replayed, running, storing };
const verdicts = { pass, fail, 'not-proven': notProven, incomplete };
export function stage(state, t) {
  if (state.question) return question(state, t);
  if (state.phase === 'verdict') return verdicts[state.verdict.verdict](state, t);
  return phases[state.phase](state, t);
}
