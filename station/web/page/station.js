// The Station page: a function of the state that the server sends, live, replayed or simulated.

import {
  clock, el, fit, get, language, languageSwitch, minute, onLanguage, onPhone, post, scanner, text,
  threeKeys,
} from './common.js';
import { sign, stepSign, floodSign } from './signs.js';
import { drawing } from './drawing.js';
import { away, bar, doing, seconds, stage } from './stage.js';
import { sheet } from './sheet.js';
import { pace, replayState, startReplay } from './replay.js';

let state = null;        // the latest that the server sent
let heardAt = performance.now();
let view = 'station';    // station | items | transcript | replay: what F8 leads to
let typed = '';
let refusal = null;      // of this page: a request that did not get through
const AWAY_MS = 3500;    // the server sends at least once a second
const silent_ms = () => performance.now() - heardAt;

// ---- bands -------------------------------------------------------------------------------------

// Draws a band again when what it shows has changed, and leaves it alone otherwise: a key that is
// being pressed stays the same element.
const drawn = new Map();
function band(id, input, make) {
  const key = JSON.stringify([input, language(), onPhone()]);
  if (drawn.get(id) === key) return;
  drawn.set(id, key);
  document.getElementById(id).replaceChildren(...[make()].flat().filter(Boolean));
}

function proofItem(t, item, proof) {
  if (!proof) return item(t.proof(), t.noProof(), sign('waits', 22));
  const words = { failed: t.proofFailed(), 'boards-due': t.proofDue() }[proof.state];
  return item(t.proof(), `${proof.number} • ${words ?? minute(proof.time)}`,
    words ? sign('waits', 22) : sign('pass', 21, 'white', 'ink'));
}

function statusBar(t) {
  const { board, database, unsent, factory } = state;
  const item = (name, value, icon = '') => el('span', { class: 'item' }, icon,
    el('span', { class: 'name' }, name), value === '' ? '' : el('b', {}, value));
  const alarm = (words, title) => el('span', { class: 'unsent', title }, words);
  const link = board === 'connected' ? sign('link', 28, 'white') : sign('no-link', 28, 'line');
  return [
    el('b', {}, t.station(state.station)), item(t.operator(), state.operator ?? t.nobody()),
    proofItem(t, item, state.proof),
    !database ? alarm(t.databaseAway(unsent))
      : unsent ? alarm(`${t.unsent()} ${unsent}`) : item(t.unsent(), '0'),
    factory?.problem ? alarm(t.factoryProblem(), factory.problem) : item(t.board[board], '', link),
    el('span', { class: 'space' }), el('span', { id: 'clock' }), languageSwitch(),
  ];
}

function identity(t, gone, shown) {
  const { attempt, plan } = shown;
  const piece = (name, words) => el('span', { class: name }, words);
  const refused = refusal ?? shown.refusal;
  const serial = typed || (!gone && attempt?.serial);
  const parts = [piece('label', t.serial()),
    serial ? piece('serial', serial) : piece('none', `— ${gone ? '' : t.notScanned()} —`)];
  if (!gone) {
    const mark = attempt?.mark ?? shown.mark;
    const number = attempt && t.attempt(attempt.number, attempt.provisional);
    if (number && !typed) parts.push(piece('attempt', number));
    if (mark && mark !== 'production') parts.push(piece('mark', t.marks[mark]));
    if (shown.replay) parts.push(piece('mark', t.replayOf(pace())));
    else if (shown.supervisor) parts.push(piece('mark', t.supervisorHere(shown.supervisor)));
    const alert = { class: 'refusal', role: 'alert' };
    if (refused) parts.push(el('span', alert, t.refusal(refused.code)));
  }
  if (plan) {
    parts.push(el('span', { class: 'plan' }, el('b', {}, plan.name),
      piece('lesser', t.plan(plan.revision, plan.sha256.slice(0, 8)))));
  }
  return parts;
}

const stepBand = (t, steps) => steps.map((step) =>
  el('div', { class: `step ${step.state}`, 'data-step': step.name, 'data-state': step.state },
    stepSign(step.state, 28), el('span', {}, t.step(step.name))));

// ---- what the three keys do now: {F2, F4, F8: {word, act, answer?, hold_ms?}} ------------------

function answers(t, { id, serial }, question) {
  const words = t.questions[question];
  const answer = (word, value) => ({ word, answer: true, act: () =>
    send('/api/answer', { attempt: id, serial, question, answer: value }) });
  return { F2: answer(words.yes, 'yes'), F4: answer(words.no, 'no'),
    F8: answer(words.unknown, 'unsure') };
}

function marks(t) {
  const phases = ['waiting', 'verdict', 'locked', 'refused'];
  if (!state.supervisor || view !== 'station' || !phases.includes(state.phase)) return {};
  const mark = (word, name) => ({ word, act: () => send('/api/mark', { mark: name }) });
  return { F2: mark(t.markTrial(), 'trial'), F4: mark(t.markProduction(), 'production') };
}

// Behind F8 of a verdict: items, transcript, replay, and back.
function nextView(t, verdict) {
  const go = (where) => () => { view = where; render(); };
  if (view === 'items') return { word: t.toTranscript(), act: go('transcript') };
  if (view === 'transcript') return { word: t.toReplay(), act: () => replayNow(verdict.id) };
  if (view === 'replay') return { word: t.back(), act: go('station') };
  const word = state.phase !== 'verdict' ? t.lastDetails()
    : verdict.verdict === 'pass' ? t.details() : t.nextPage();
  return { word, act: go('items') };
}

function deeds(t, gone) {
  const { question, attempt, phase } = state;
  if (gone) return {};
  if (question) return answers(t, attempt, question.name);
  if (phase === 'running') {
    const stop = () => send('/api/stop', { attempt: attempt.id });
    return { F8: { word: t.hold(), hold_ms: 3000, act: stop } };
  }
  const verdict = state.verdict ?? state.last;
  return verdict ? { ...marks(t), F8: nextView(t, verdict) } : marks(t);
}

async function replayNow(id) {
  view = 'replay';
  render();
  try {
    await startReplay(id);
  } catch (error) {
    view = 'station';
    refuse(error);
  }
  render();
}

function keyBand(t, gone) {
  const all = deeds(t, gone);
  return [['F2', 'yes'], ['F4', 'no'], ['F8', 'unknown']].map(([key, icon]) => {
    const deed = all[key];
    const cap = el('span', { class: 'cap' }, key), word = deed && el('span', {}, deed.word);
    const now = { class: `key ${deed?.answer ? 'answer' : ''}`, disabled: !deed };
    return el('button', { type: 'button', tabindex: -1, ...now, 'data-key': key },
      sign(icon, 34, deed?.answer ? 'ink' : deed ? 'white' : 'line'),
      deed?.answer ? [word, cap] : [cap, word]);
  });
}

async function send(path, body) {
  refusal = null;
  try {
    await post(path, body);
  } catch (error) {
    refuse(error);
  }
  render();
}

function refuse(error) {
  refusal = { code: error.code ?? 'offline' };
  setTimeout(() => { refusal = null; render(); }, 5000);
}

// ---- the page ----------------------------------------------------------------------------------

function render() {
  if (!state) return;
  const t = text();
  const gone = silent_ms() > AWAY_MS;
  const busy = ['asking', 'running', 'storing'].includes(state.phase) || state.question;
  if (busy || gone) view = 'station';
  const played = view === 'replay' ? replayState(state) : null;
  const shown = gone ? neutral(state) : played ?? state;
  document.body.dataset.phase =
    gone ? 'away' : state.question ? 'question' : played ? 'replay' : state.phase;
  band('status', [state.station, state.operator, state.proof, state.unsent, state.database,
    state.board, state.factory], () => statusBar(t));
  document.getElementById('clock').textContent =
    gone ? '' : `${state.now.slice(5, 10)} ${clock(state.now)}`;
  band('identity', [shown.attempt, shown.mark, state.supervisor, shown.plan?.sha256, state.refusal,
    refusal, typed, gone, view], () => identity(t, gone, shown));
  const away_s = gone ? Math.floor(silent_ms() / 1000) : null;
  boardBands(t, shown, away_s, view === 'station' || played !== null);
  keys(t, gone);
  sheet(view === 'replay' ? 'station' : view, (state.verdict ?? state.last)?.id, t);
}

// Stage, steps and drawing; nothing behind the sheet. `away_s`: since when the server is silent.
function boardBands(t, shown, away_s, there) {
  const about = [view, away_s !== null, shown.phase, shown.plan?.sha256];
  band('stage', [about, away_s, shown.progress, shown.question, shown.verdict, shown.last,
    shown.locked, shown.proof, shown.factory, shown.steps.map((step) => step.seconds)], () => {
    if (!there) return [];
    if (away_s !== null) return away(t, away_s);
    return onPhone() ? phoneStage(t) : stage(shown, t);
  });
  const states = shown.steps.map((step) => [step.name, step.state]);
  band('steps', [about, states], () => (there ? stepBand(t, shown.steps) : []));
  band('drawing', [about, states, shown.facts, shown.answers],
    () => (there && shown.plan ? drawing(shown, t, onPhone()) : []));
}

function keys(t, gone) {
  if (onPhone()) {
    band('keys', 'phone', () => el('div', { class: 'only-look' }, sign('eye', 26, 'white'),
      t.phoneOnly()));
    return;
  }
  band('keys', [state.phase, state.question?.name, state.attempt?.id, view, gone,
    !!(state.verdict ?? state.last), state.verdict?.verdict, state.supervisor],
  () => keyBand(t, gone));
}

const neutral = (s) =>
  ({ ...s, facts: {}, answers: {}, steps: s.steps.map((step) => ({ ...step, state: 'not-yet' })) });

// A telephone shows the running step in small, and else the verdict's word.
function phoneStage(t) {
  const { phase } = state;
  if (state.progress && phase === 'running') return phoneProgress(t);
  if (phase === 'verdict') {
    const { verdict } = state.verdict;
    return el('div', { class: `phone-card flood-${verdict}` }, floodSign(verdict, 90),
      el('b', { class: 'word' }, t.verdicts[verdict]));
  }
  const words = { waiting: t.scanNext, locked: t.locked, 'sign-in': t.signIn, asking: t.asking,
    refused: t.refused }[phase] ?? t.storing;
  return el('div', { class: 'phone-card' }, el('b', { class: 'word small' }, words()));
}

function phoneProgress(t) {
  const { progress, steps } = state;
  const index = steps.findIndex((step) => step.name === progress.step) + 1;
  const [what, count] = seconds(progress, t);
  const right = (words) => el('span', { class: 'right' }, words);
  return el('div', { class: 'phone-card' },
    el('div', { class: 'head' }, sign('running', 26, 'blue'), el('b', {}, t.running()),
      t.ofSteps(index, steps.length), right(what)),
    el('div', { class: 'word-row' }, el('b', { class: 'word' }, t.step(progress.step ?? 'start')),
      el('b', { class: 'right' }, el('span', { class: 'count' }, String(count)),
        el('span', { class: 'unit' }, t.seconds()))),
    el('div', { class: 'foot' }, el('span', {}, doing(state, t, t.doingPhone)),
      el('span', { class: 'right lesser' }, t.latest(progress.silent))),
    bar(state, 374));
}

// ---- events ------------------------------------------------------------------------------------

function listen() {
  const source = new EventSource('/api/events');
  source.addEventListener('state', (event) => {
    state = JSON.parse(event.data);
    heardAt = performance.now();
    render();
  });
  source.addEventListener('error', () => {
    if (source.readyState !== EventSource.CLOSED) return;
    setTimeout(listen, 1000);
  });
}

fit();
onLanguage(render);
addEventListener('resize', render);
setInterval(() => { if (view === 'replay') render(); }, 200);
setInterval(render, 1000);
scanner((code) => { typed = code; render(); },
  (code) => { if (!onPhone()) send('/api/scan', { text: code }); });
threeKeys(
  (key) => (state && !onPhone() ? deeds(text(), silent_ms() > AWAY_MS)[key] ?? null : null),
  (key, held) => document.querySelector(`[data-key=${key}]`)?.classList.toggle('held', held));
const asked = new URLSearchParams(location.search).get('replay');
if (asked) replayNow(asked);
get('/api/state').then((first) => { state ??= first; render(); }).catch(() => {});
listen();
