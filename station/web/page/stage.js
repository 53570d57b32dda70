// The stage: left what is so, right why and what to do next. A function of the state and the language.

import { el, at, minute, shortId } from './common.js';
import { svg, sign, stateSign, ground } from './signs.js';
import { differences, findingOf, fitOf, plain, reasonsOf } from './reading.js';
import { inputsOf } from './drawing.js';

const card = (left, width, ...children) => el('div', { class: 'card', css: { left: `${left}px`, width: `${width}px` } }, ...children);
const fill = (template, values) => template.replace(/\{(\w+)\}/g, (_, name) => values[name] ?? '?');

function nextStep(words, more = {}) {
  return el('div', { class: 'next', css: { height: '72px', ...more } }, sign('arrow', 34, 'white'), el('span', { css: { marginLeft: '20px' } }, words));
}

// A verdict's panel: ground, sign and word; `rows` are [top, size, text, weight].
function panel(verdict, width, flooded, word, rows) {
  const dark = flooded && verdict !== 'not-proven';
  const own = { pass: 'green', fail: 'red', 'not-proven': 'ink', incomplete: 'ink-2' }[verdict];
  const cut = { pass: 'green-panel', fail: 'red', 'not-proven': 'amber', incomplete: 'ink-2' }[verdict];
  const icon = dark ? sign(verdict, word.sign, 'white', cut)
    : verdict === 'not-proven' && !flooded ? sign('waits', word.sign) : sign(verdict, word.sign, own, verdict === 'not-proven' ? 'amber' : 'white');
  return el('div', { class: `panel ${dark ? 'on-flood' : ''}`, 'data-verdict': verdict, css: { width: `${width}px` } },
    ground(verdict, width, 318, flooded),
    el('div', { class: 'verdict', css: { top: `${word.top}px`, height: `${word.height}px`, fontSize: `${word.size}px`, gap: `${word.gap}px`, color: dark ? '' : `var(--${own})`, paddingRight: verdict === 'incomplete' ? '112px' : '' } },
      icon, el('span', { css: { whiteSpace: 'pre', textAlign: 'left', lineHeight: '1.05' } }, word.text)),
    rows.map(([top, size, content, weight]) => el('div', { class: 'row', css: { top: `${top}px`, fontSize: `${size}px`, lineHeight: `${size * 1.2}px`, fontWeight: weight ?? 400, paddingRight: verdict === 'incomplete' ? '118px' : '' } }, content)));
}

// ---- waiting, locked, signing in ---------------------------------------------------------------

function corners(width) {
  const a = 18, b = 82, w = width - 18, h = 300;
  return svg('svg', { width, height: 318, viewBox: `0 0 ${width} 318`, class: 'at' },
    svg('path', { d: `M${a} ${b - 5}V${a}H${b - 5}M${w - 60} ${a}H${w}V${b - 5}M${w} ${h - 60}V${h}H${w - 60}M${b - 5} ${h}H${a}V${h - 60}`, fill: 'none', stroke: 'var(--ink)', 'stroke-width': 10 }));
}

function prompt(t, head, lines) {
  return card(0, 690, corners(690),
    el('div', { class: 'at', css: { left: 0, right: 0, top: '37px', textAlign: 'center', fontSize: t.language === 'en' ? '78px' : '100px', lineHeight: '125px', fontWeight: 700 } }, head),
    el('div', { class: 'at', css: { left: 0, right: 0, top: '177px', textAlign: 'center', fontSize: t.language === 'en' ? '29px' : '36px', lineHeight: '48px' } }, lines[0]),
    el('div', { class: 'at lesser', css: { left: 0, right: 0, top: '232px', textAlign: 'center', fontSize: t.language === 'en' ? '26px' : '30px', lineHeight: '42px' } }, lines[1] ?? ''));
}

function lastBoard(t, last) {
  if (!last) return card(710, 522, el('div', { css: { textAlign: 'center', marginTop: '104px', fontSize: '34px' } }, t.noLast()),
    el('div', { css: { textAlign: 'center', marginTop: '16px', fontSize: '26px' } }, el('a', { href: '/states', tabindex: -1 }, t.seeLegend())));
  const word = t.verdicts[last.verdict];
  const size = t.language === 'zh' ? (word.length > 2 ? 88 : last.verdict === 'incomplete' ? 96 : 116) : { pass: 116, fail: 116, 'not-proven': 52, incomplete: 40 }[last.verdict];
  const node = panel(last.verdict, 522, false,
    { top: 66, height: 124, size, sign: size > 100 ? 112 : size > 60 ? 84 : 64, gap: size > 100 ? 22 : 14, text: word },
    [[30, 30, t.lastBoard(), 700], [191, last.verdict === 'incomplete' ? 34 : 40, last.serial, 700], [240, 28, t.lastLine(last.number, minute(last.time), last.released)]]);
  node.style.left = '710px';
  return node;
}

const waiting = (state, t) => [prompt(t, t.scanNext(), [t.plugFirst(), t.startsAtOnce()]), lastBoard(t, state.last)];
const signIn = (state, t) => [prompt(t, t.signIn(), [t.signInWhy()]), lastBoard(t, state.last)];
function locked(state, t) {
  const code = state.locked[0];
  const next = state.proof?.next;
  const due = code === 'proof-boards' && next;
  return blocked(t, t.locked(), due ? t.proofBoard(next.serial, next.verdict) : t.lockedWhy[code] ?? code, t.lockedNext[code] ?? '', state.last);
}

// Nothing can begin: what it is, why, and what to do.
function blocked(t, head, why, what, last) {
  const wide = widthOf(why) * 40 > 620;
  return [
    el('div', { class: 'at', css: { left: 0, top: 0, width: '690px', height: '318px', background: 'var(--white)', border: '8px solid var(--amber)', borderRadius: '8px', outline: '3px solid var(--ink)', outlineOffset: '-11px' } },
      el('div', { class: 'at', css: { left: '34px', top: '40px' } }, sign('waits', 110)),
      at(160, 34, t.language === 'en' ? 68 : 84, head, { css: { fontWeight: 700 } }),
      at(34, 168, t.language === 'en' ? 30 : wide ? 30 : 40, why, { css: { width: '622px', whiteSpace: 'normal', lineHeight: wide ? '34px' : '48px', maxHeight: '68px', overflow: 'hidden', overflowWrap: 'anywhere' } }),
      nextStep(what, { left: '3px', right: '3px', bottom: '3px' })),
    lastBoard(t, last),
  ];
}

const asking = (state, t) => [card(0, 1232, at(36, 60, t.language === 'en' ? 80 : 100, t.asking(), { css: { fontWeight: 700 } }), at(38, 210, 36, t.askingWhy()))];
const refused = (state, t) => blocked(t, t.refused(), state.factory.refused ?? '', t.refusedNext(), state.last);
const replayed = (state, t) => [prompt(t, t.replayed(), [t.replayedWhy(), shortId(state.attempt.id)]), lastBoard(t, state.last)];

// ---- running -----------------------------------------------------------------------------------

export function bar(state, width) {
  const { progress, steps } = state;
  const whole = steps.reduce((sum, step) => sum + (step.seconds ?? 0), 0);
  const root = svg('svg', { class: 'bar at', width, height: 22, viewBox: `0 0 ${width} 22`, preserveAspectRatio: 'none' }, svg('rect', { width, height: 22, fill: '#CAD2D8' }));
  if (whole > 0) {
    root.append(svg('rect', { width: Math.min(1, progress.elapsed / whole) * width, height: 22, fill: 'var(--blue)' }));
    let x = 0;
    for (const step of steps.slice(0, -1)) {
      x += (step.seconds ?? 0) / whole * width;
      root.append(svg('rect', { x: x - 1.5, width: 3, height: 22, fill: 'var(--white)' }));
    }
  } else {
    const done = steps.filter((step) => !['not-yet', 'running'].includes(step.state)).length;
    root.append(svg('rect', { width: done / Math.max(1, steps.length) * width, height: 22, fill: 'var(--blue)' }));
  }
  return root;
}

export function doing(state, t, table = t.doing) {
  const step = state.progress.step ?? 'start';
  const wanted = (name) => Number(state.plan.facts.find((fact) => fact.name === name)?.wanted);
  return fill(table[step] ?? t.doing[step] ?? '', { outputs: wanted('alarm.outputs'), inputs: wanted('alarm.inputs') });
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
  const named = t.step(progress.step ?? 'start');
  const asks = progress.step === 'panel';
  const root = card(0, 1232,
    el('div', { class: 'at', css: { left: '34px', top: '22px', display: 'flex', alignItems: 'center', height: '48px', fontSize: '44px' } },
      sign('running', 52, 'blue'), el('b', { css: { color: 'var(--blue)', margin: '0 19px 0 15px' } }, t.running()),
      el('span', {}, index ? t.ofSteps(index, state.steps.length) : '')),
    at(32, 60, 150, named, { class: 'step-name', css: { fontWeight: 700, lineHeight: '188px' } }),
    el('div', { class: 'at', css: { left: '36px', top: '236px', fontSize: '36px', lineHeight: '50px' } },
      doing(state, t), asks ? '' : el('span', { class: 'lesser', css: { marginLeft: '34px' } }, t.noKeys())),
    el('div', { class: 'at', css: { right: '36px', top: '20px', fontSize: '44px' } }, what),
    el('div', { class: 'at', css: { right: '36px', top: '44px', height: '220px', display: 'flex', alignItems: 'baseline', fontWeight: 700 } },
      el('span', { css: { fontSize: '190px', lineHeight: '220px' } }, String(count)), el('span', { css: { fontSize: '64px', marginLeft: '18px' } }, t.seconds())),
    el('div', { class: 'at lesser', css: { right: '36px', top: '249px', fontSize: '24px' } }, t.latest(progress.silent)),
    asks ? keyPicture(494, 76, 0.72) : '',
    bar(state, 1232));
  root.querySelector('.bar').style.top = '296px';
  return [root];
}

function storing(state, t) {
  const problem = state.verdict?.problem;
  if (problem) return locked({ ...state, locked: [problem] }, t);
  return [card(0, 1232, at(36, 60, 100, t.storing(), { css: { fontWeight: 700 } }), at(38, 210, 36, t.storingWhy()))];
}

// ---- question ----------------------------------------------------------------------------------

function ledPicture(t, row, lit) {
  const rows = [['record', 16], ['net', 16], ['function', 5]];
  const root = svg('svg', { width: 580, height: 102, viewBox: '0 0 580 102' },
    svg('rect', { x: 1.5, y: 1.5, width: 577, height: 99, rx: 8, fill: '#253038', stroke: 'var(--ink)', 'stroke-width': 3 }),
    svg('rect', { x: 14, y: 16, width: 62, height: 70, rx: 3, fill: '#A8B5A3' }),
    svg('text', { x: 45, y: 56, 'font-size': 15, 'text-anchor': 'middle', fill: 'var(--ink)' }, 'LCD'));
  rows.forEach(([name, count], i) => {
    root.append(svg('text', { x: 90, y: 30 + 27 * i, 'font-size': 17, 'font-weight': 700, fill: 'var(--white)' }, t.led(name)));
    for (let led = 0; led < count; ++led) {
      const on = lit.includes(name);
      root.append(svg('circle', { cx: 146 + 25.4 * led, cy: 24 + 27 * i, r: on ? 10 : 8, fill: on ? 'var(--white)' : 'none', stroke: on ? '#F6DE8D' : '#9AA7AF', 'stroke-width': on ? 3.4 : 1.6 }));
    }
  });
  const node = el('div', { class: 'at', css: { left: '630px', top: `${row * 144 + 20}px` } },
    el('div', { css: { fontSize: '20px', lineHeight: '28px' } }, el('b', {}, t.frame(row + 1)), `　${t.frames[row]}`), root);
  root.style.marginTop = '3px';
  return node;
}

// The keys of the panel, to be pressed one after the other.
function keyPicture(left, top, scale) {
  const key = (x, y, word, size = 24, wide = 74) => svg('g', {}, svg('rect', { x, y, width: wide, height: 54, rx: 8, fill: '#253038', stroke: 'var(--ink)', 'stroke-width': 3 }),
    svg('text', { x: x + wide / 2, y: y + 35, 'font-size': size, 'font-weight': 700, 'text-anchor': 'middle', fill: 'var(--white)' }, word));
  const root = svg('svg', { class: 'at', width: 560 * scale, height: 220 * scale, viewBox: '0 0 560 220' }, key(110, 16, '▲'), key(20, 84, '◀'), key(110, 84, 'ENTER', 19), key(200, 84, '▶'), key(110, 152, '▼'), key(340, 84, 'ESC', 24, 110));
  Object.assign(root.style, { left: `${left}px`, top: `${top}px` });
  return root;
}

function keysPicture(t) {
  return [el('div', { class: 'at', css: { left: '630px', top: '24px', fontSize: '24px', lineHeight: '32px' } }, el('b', {}, t.keyPicture[0]), ` ${t.keyPicture[1]}`), keyPicture(630, 60, 1)];
}

function buzzerPicture(t) {
  const beep = (x) => svg('rect', { x, y: 40, width: 90, height: 90, rx: 10, fill: 'var(--ink)' });
  return el('div', { class: 'at', css: { left: '630px', top: '40px' } },
    el('div', { css: { fontSize: '24px', lineHeight: '32px' } }, el('b', {}, t.buzzerPicture[0]), ` ${t.buzzerPicture[1]}`),
    svg('svg', { width: 560, height: 170, viewBox: '0 0 560 170' }, beep(40), beep(210), beep(380), svg('path', { d: 'M10 140H500', stroke: 'var(--ink)', 'stroke-width': 4 })));
}

function question(state, t) {
  const { question: asked } = state;
  const words = t.questions[asked.name];
  const pictures = { 'panel-leds': () => [ledPicture(t, 0, ['record', 'function']), ledPicture(t, 1, ['net'])], 'panel-keys': () => keysPicture(t), buzzer: () => buzzerPicture(t) }[asked.name]();
  const small = t.language === 'en';
  return [el('div', { class: 'at', 'data-question': asked.name, css: { left: 0, top: 0, width: '1232px', height: '318px', background: 'var(--white)', border: '7px solid var(--amber)', borderRadius: '8px', outline: '3px solid var(--ink)', outlineOffset: '-10px', whiteSpace: 'nowrap' } },
    el('div', { css: { position: 'absolute', left: '-7px', top: '-7px', width: '1232px', height: '318px' } },
      el('div', { class: 'at', css: { left: '31px', top: '19px', display: 'flex', alignItems: 'center', height: '54px' } },
        sign('waits', 54), el('b', { css: { fontSize: '34px', marginLeft: '13px' } }, words.look), el('span', { class: 'lesser', css: { fontSize: '26px', marginLeft: '14px' } }, t.questionOf(asked.number, asked.count))),
      at(30, 73, small ? 58 : 68, words.ask, { css: { fontWeight: 700, lineHeight: '88px' } }),
      at(33, 165, small ? 29 : 32, words.good[0], { css: { lineHeight: '44px' } }),
      el('div', { class: 'at', css: { left: '33px', top: '209px', fontSize: small ? '29px' : '32px', lineHeight: '44px', display: 'flex', alignItems: 'center', gap: '9px' } }, words.good[1], sign('no', 22), el('b', {}, t.no())),
      el('div', { class: 'at', css: { left: '32px', top: '262px', fontSize: small ? '26px' : '28px' } }, el('b', {}, t.questionLeft(asked.left)), t.silence(), el('span', { class: 'lesser', css: { marginLeft: '26px' } }, small ? '' : t.scanIsNoAnswer())),
      pictures))];
}

// ---- verdicts ----------------------------------------------------------------------------------

function pass(state, t) {
  const { verdict } = state;
  const row = (top, ...content) => el('div', { class: 'at', css: { left: '24px', top: `${top}px`, display: 'flex', alignItems: 'center', gap: '12px', fontSize: t.language === 'en' ? '22px' : '25px', lineHeight: '32px' } }, stateSign('pass', 27), el('span', {}, ...content));
  const words = verdict.mark === 'reference' ? t.proofNextShort(state.proof?.state) : verdict.mark !== 'production' ? t.notRelease() : verdict.scan_out === 'due' ? t.scanOut() : t.takeOff();
  const { database, unsent } = verdict.stored;
  return [
    panel('pass', 790, true, { top: 40, height: 236, size: t.language === 'en' ? 182 : 218, sign: t.language === 'en' ? 176 : 206, gap: t.language === 'en' ? 26 : 38, text: t.verdicts.pass }, []),
    card(810, 422,
      at(24, 12, 34, t.stored(verdict.number), { css: { fontWeight: 700 } }),
      row(62, `${t.journalStored()} `, el('span', { class: 'mono', css: { fontSize: '22px' } }, shortId(verdict.id))),
      row(100, t.judged(verdict.facts.good)),
      row(138, database === 'spooled' ? el('b', { css: { background: 'var(--amber)', padding: '0 8px' } }, t.spooled(unsent)) : database === 'committed' ? t.committed() : t.atRelease()),
      el('div', { class: 'next', css: { height: '134px', padding: '0 0 0 20px', lineHeight: '58px', fontSize: t.language === 'en' ? '44px' : '48px' } },
        sign('scan', 90, 'white'), el('div', { css: { marginLeft: '20px' } }, el('div', {}, words[0]), el('div', {}, words[1])))),
  ];
}

// What a reference board leads to: the next one, or the end of the proof.
const afterReference = (state, t) => t.proofNext(state.proof?.state, state.proof?.next?.serial);
const nextOf = (state, t, words) => (state.verdict.mark === 'reference' ? afterReference(state, t) : words);

function measuredRow(t, finding) {
  const { reason } = finding;
  const long = Math.max(plain(t.value(reason.value)).length, plain(t.value(reason.wanted)).length) > 5;
  const unit = reason.unit && reason.unit !== 'bits' ? t.unit(reason.unit) : '';
  const size = long ? 28 : 50;
  const measured = differences(/^0x/.test(reason.value) ? reason.value : t.value(reason.value), reason.wanted);
  let note;
  if (finding.output) {
    const inputs = finding.should.map((input, i) => [i ? t.comma : '', finding.differ.includes(input) ? el('b', { css: { color: 'var(--red)' } }, String(input)) : String(input)]);
    note = [el('div', {}, t.outputOn(finding.output)), el('div', {}, t.inputs(), inputs)];
  } else {
    note = [el('div', {}, t.fact(reason.fact)), el('div', { class: 'mono', css: { fontSize: '16px' } }, reason.fact)];
  }
  return el('div', { class: 'at', css: { left: '20px', right: '20px', top: '12px', height: '63px', display: 'flex', alignItems: 'center', borderBottom: '2px solid var(--line)' } },
    el('span', { css: { fontSize: '25px', marginRight: '12px' } }, t.measured()),
    el('b', { class: 'mono', css: { fontSize: `${size}px`, display: 'inline-flex', alignItems: 'center', lineHeight: '50px' } }, measured.map((run) => (run.differs ? [...run.text].length > 3 ? el('span', { class: 'difference' }, run.text) : [...run.text].map((c) => el('span', { class: 'difference' }, c)) : run.text)), unit && el('span', { css: { fontSize: '22px', marginLeft: '8px' } }, unit)),
    el('span', { css: { fontSize: '25px', margin: '0 12px 0 23px' } }, t.wanted()),
    el('b', { class: 'mono', css: { fontSize: `${size}px` } }, plain(t.value(reason.wanted))),
    el('div', { class: 'lesser', css: { marginLeft: 'auto', textAlign: 'right', fontSize: t.language === 'en' ? '18px' : '21px', lineHeight: '28px' } }, note));
}

const words = (both, t) => (both && typeof both === 'object' ? both[t.language] : both) ?? '';

// What the cause would measure in place of the first failing fact.
function gives(cause, verdict, t) {
  const fact = findingOf(verdict).reason?.fact;
  const shown = (cause.would_show ?? []).find((one) => one.fact === fact);
  return shown && shown.value !== 'absent' ? t.wouldGive(plain(t.value(shown.value))) : '';
}

function causeRows(t, verdict) {
  const [first, ...others] = verdict.causes;
  const badge = (cause) => {
    if (cause.exact) return el('span', { class: 'badge full' }, t.exact(cause.defects?.length || 1));
    const [some, all] = fitOf(cause);
    return el('span', { class: 'badge' }, t.fits(some, all));
  };
  // What to check has a second line where it needs one; the other causes then move closer together.
  const check = words(first.check, t), long = widthOf(check) * 24 > 616;
  const [top, room] = long ? [177, 34] : [157, 43];
  const rows = [el('div', { class: 'at', css: { left: '20px', right: '20px', top: '75px', height: `${top - 77}px`, borderBottom: '2px solid var(--line)' } },
    at(3, long ? 18 : 10, 48, '1', { css: { fontWeight: 700 } }),
    el('div', { class: 'at', css: { left: '46px', top: '0px', display: 'flex', alignItems: 'center', gap: '16px', fontSize: '37px', lineHeight: '50px', fontWeight: 700 } }, words(first.title, t), badge(first)),
    at(46, long ? 45 : 46, long ? 22 : 24, check, { css: { lineHeight: long ? '26px' : '32px', width: '618px', whiteSpace: 'normal' } }))];
  others.slice(0, 2).forEach((cause, i) => rows.push(el('div', { class: 'at', css: { left: '20px', right: '20px', top: `${top + room * i}px`, height: `${room}px`, display: 'flex', alignItems: 'center', fontSize: '25px', borderBottom: i === 0 && others.length > 1 ? '2px solid var(--line)' : '' } },
    el('b', { css: { width: '46px', paddingLeft: '8px' } }, String(i + 2)), el('b', { css: { marginRight: '14px' } }, words(cause.title, t)), badge(cause),
    el('span', { css: { marginLeft: '15px', fontSize: '23px' } }, gives(cause, verdict, t)))));
  return rows;
}

// A reason names what q7 printed, and may be long.
const reasonSize = (content) => Math.max(16, Math.min(28, Math.floor(430 / widthOf(content))));

function reasonRows(t, reasons, top, room) {
  const shown = reasons.slice(0, room);
  const rows = shown.map((reason, i) => el('div', { class: 'at', css: { left: '20px', right: '20px', top: `${top + 51 * i}px`, height: '51px', display: 'flex', alignItems: 'center', borderBottom: '2px solid var(--line)', overflow: 'hidden' } },
    stateSign(reason.verdict, 40), el('b', { css: { fontSize: '36px', margin: '0 0 0 13px', minWidth: '160px' } }, t.step(reason.item)),
    el('span', { css: { fontSize: `${reasonSize(t.reason(reason))}px`, marginLeft: '12px' } }, t.reason(reason))));
  if (reasons.length > room) rows.push(at(20, top + 51 * room + 8, 24, t.more(reasons.length - room)));
  return rows;
}

function fail(state, t) {
  const { verdict } = state;
  const finding = findingOf(verdict);
  const third = verdict.same >= 3;
  const head = t.finding(finding);
  const rows = [[t.language === 'en' ? 181 : 187, third ? 50 : 52, head, 700]];
  if (third) rows.push([t.language === 'en' ? 232 : 243, t.language === 'en' ? 31 : 30, t.thirdTime(), 700]);
  rows.push([third ? 273 : 250, third ? 24 : t.language === 'en' ? 24 : 28, t.storedLine(verdict.number, shortId(verdict.id))]);
  const why = finding.reason?.fact && finding.reason.wanted ? [measuredRow(t, finding)] : reasonRows(t, reasonsOf(verdict), 16, 1);
  const first = finding.reason;
  const rest = reasonsOf(verdict).filter((reason) => reason.fact !== first?.fact || reason.line !== first?.line);
  return [
    panel('fail', 512, true, { top: 22, height: 158, size: t.language === 'en' ? 142 : 128, sign: 142, gap: 22, text: t.verdicts.fail }, rows),
    card(528, 704, why, verdict.causes.length ? causeRows(t, verdict) : reasonRows(t, rest, 78, rest.length > 3 ? 2 : 3),
      nextStep(nextOf(state, t, third ? t.stopSupervisor() : t.next(finding)))),
  ];
}

// The width of a text in units of its size of type, about.
const widthOf = (content) => [...content].reduce((sum, c) => sum + (c.charCodeAt(0) > 0x2e80 ? 1 : 0.5), 0);

function notProven(state, t) {
  const { verdict } = state;
  const finding = findingOf(verdict);
  const reasons = reasonsOf(verdict);
  const seen = new Set();
  const items = reasons.filter((reason) => !seen.has(reason.item) && seen.add(reason.item));
  const missing = reasons.filter((reason) => reason.code === 'missing-step' && ['alarm', 'rs485', 'usb', 'sata', 'network'].includes(reason.item)).length;
  const cause = verdict.causes[0];
  const en = t.language === 'en';
  return [
    panel('not-proven', 512, true, { top: 32, height: 140, size: en ? 80 : 106, sign: 126, gap: 16, text: en ? t.verdicts['not-proven'].replace(' ', '\n') : t.verdicts['not-proven'] },
      [[181, 52, t.finding(finding), 700], [243, en ? 24 : 30, t.storedLine(verdict.number, shortId(verdict.id))]]),
    card(528, 704, reasonRows(t, items, 0, 3),
      cause && items.length <= 3 ? el('div', { class: 'at', css: { left: '20px', top: '160px', display: 'flex', alignItems: 'center', gap: '12px', fontSize: '25px', height: '42px' } },
        el('b', {}, t.causeOne()), el('span', {}, words(cause.title, t)), el('span', { css: { marginLeft: '10px' }, class: `badge ${cause.exact ? 'full' : ''}` }, cause.exact ? t.exact(cause.defects?.length || 1) : t.fits(...fitOf(cause)))) : '',
      missing ? at(20, 204, 24, t.q7SaysGood(missing), { class: 'lesser' }) : '',
      nextStep(nextOf(state, t, verdict.same >= 3 ? t.stopSupervisor() : t.nextNotProven(finding)))),
  ];
}

function incomplete(state, t) {
  const { verdict } = state;
  const finding = findingOf(verdict);
  const reasons = reasonsOf(verdict);
  const en = t.language === 'en';
  const broke = verdict.broke_off ? t.brokeOff(t.step(verdict.broke_off)) : t.finding(finding);
  return [
    panel('incomplete', 512, true, { top: 32, height: 140, size: en ? 47 : 106, sign: en ? 60 : 96, gap: 12, text: t.verdicts.incomplete },
      [[190, en ? 30 : 40, broke, 700], [250, en ? 18 : 22, t.storedLine(verdict.number, shortId(verdict.id))]]),
    card(528, 704, reasonRows(t, reasons, 0, 2), at(20, 130, 30, t.kept(verdict.lines)), at(20, 180, 26, t.notCounted(), { class: 'lesser' }), nextStep(t.nextIncomplete())),
  ];
}

export function away(t, sinceSeconds) {
  return [el('div', { class: 'away' }, el('div', { css: { fontSize: t.language === 'en' ? '76px' : '100px', fontWeight: 700, lineHeight: '110px' } }, t.away()),
    el('div', { css: { fontSize: '36px', lineHeight: '52px' } }, t.awayWhy(sinceSeconds)), el('div', { class: 'lesser', css: { fontSize: '30px' } }, t.awayRun()),
    nextStep(t.awayNext(), { height: '62px' }))];
}

const phases = { waiting, 'sign-in': signIn, locked, asking, refused, replayed, running, storing };
const verdicts = { pass, fail, 'not-proven': notProven, incomplete };
export function stage(state, t) {
  if (state.question) return question(state, t);
  if (state.phase === 'verdict') return verdicts[state.verdict.verdict](shown(state), t);
  return phases[state.phase](state, t);
}
const shown = (state) => state;
export { inputsOf };
