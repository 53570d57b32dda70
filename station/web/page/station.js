// The Station page: a function of the state that the server sends, live, replayed or simulated.

import { el, fit, get, language, languageSwitch, onLanguage, onPhone, post, scanner, text, threeKeys, clock, minute } from './common.js';
import { sign, stateSign } from './signs.js';
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

function statusBar(t) {
  const item = (name, value, icon) => el('span', { class: 'item' }, icon ?? '', el('span', { class: 'name' }, name), value === '' ? '' : el('b', {}, value));
  const words = { failed: t.proofFailed(), 'boards-due': t.proofDue() }[state.proof?.state];
  const proof = !state.proof ? item(t.proof(), t.noProof(), sign('waits', 22))
    : words ? item(t.proof(), `${state.proof.number} • ${words}`, sign('waits', 22))
      : item(t.proof(), `${state.proof.number} • ${minute(state.proof.time)}`, sign('pass', 21, 'white', 'ink'));
  const trouble = state.factory?.problem ? el('span', { class: 'unsent', title: state.factory.problem }, t.factoryProblem()) : '';
  return [
    el('b', {}, t.station(state.station)), item(t.operator(), state.operator ?? t.nobody()), proof,
    state.database && !state.unsent ? item(t.unsent(), '0') : el('span', { class: 'unsent' }, state.database ? `${t.unsent()} ${state.unsent}` : t.databaseAway(state.unsent)),
    trouble || item(t.board[state.board], '', state.board === 'connected' ? sign('link', 28, 'white') : sign('no-link', 28, 'line')),
    el('span', { class: 'space' }), el('span', { id: 'clock' }), languageSwitch(),
  ];
}

function identity(t, gone, state) {
  const { attempt, plan } = state;
  const mark = attempt?.mark ?? state.mark;
  const serial = typed || (attempt && !gone ? attempt.serial : '');
  const refused = refusal ?? state.refusal;
  return [
    el('span', { class: 'label' }, t.serial()),
    serial ? el('span', { class: 'serial' }, serial) : el('span', { class: 'none' }, `— ${gone ? '' : t.notScanned()} —`),
    attempt && !typed && !gone ? el('span', { class: 'attempt' }, t.attempt(attempt.number, attempt.provisional)) : '',
    !gone && mark && mark !== 'production' ? el('span', { class: 'mark' }, t.marks[mark]) : '',
    !gone && state.replay ? el('span', { class: 'mark' }, t.replayOf(pace())) : !gone && state.supervisor ? el('span', { class: 'mark' }, t.supervisorHere(state.supervisor)) : '',
    refused && !gone ? el('span', { class: 'refusal', role: 'alert' }, t.refusal(refused.code)) : '',
    plan ? el('span', { class: 'plan' }, el('b', {}, plan.name), el('span', { class: 'lesser' }, t.plan(plan.revision, plan.sha256.slice(0, 8)))) : '',
  ];
}

const stepSign = { 'not-yet': ['grey'], running: ['white'], pass: ['green', 'white'], fail: ['white', 'red'], 'not-proven': ['ink', 'amber'], waits: ['ink', 'amber'], incomplete: ['white'] };
function stepBand(t, gone, state) {
  return state.steps.map((step) => {
    const shows = gone ? 'not-yet' : step.state;
    return el('div', { class: `step ${shows}`, 'data-step': step.name, 'data-state': shows }, sign(shows === 'waits' ? 'not-proven' : shows, 28, ...stepSign[shows]), el('span', {}, t.step(step.name)));
  });
}

// What the three keys do now: {F2, F4, F8: {word, act, answer?, hold_ms?}}.
function deeds(t, gone) {
  const { question: asked, attempt } = state;
  if (gone) return {};
  if (asked) {
    const words = t.questions[asked.name];
    const answer = (word, value) => ({ word, answer: true, act: () => send('/api/answer', { attempt: attempt.id, serial: attempt.serial, question: asked.name, answer: value }) });
    return { F2: answer(words.yes, 'yes'), F4: answer(words.no, 'no'), F8: answer(words.unknown, 'unsure') };
  }
  if (state.phase === 'running') return { F8: { word: t.hold(), hold_ms: 3000, act: () => send('/api/stop', { attempt: attempt.id }) } };
  const supervised = state.supervisor && view === 'station' && ['waiting', 'verdict', 'locked', 'refused'].includes(state.phase);
  const marks = supervised ? { F2: { word: t.markTrial(), act: () => send('/api/mark', { mark: 'trial' }) }, F4: { word: t.markProduction(), act: () => send('/api/mark', { mark: 'production' }) } } : {};
  const verdict = state.verdict ?? state.last;
  if (!verdict) return marks;
  const go = (where) => () => { view = where; render(); };
  if (view === 'items') return { F8: { word: t.toTranscript(), act: go('transcript') } };
  if (view === 'transcript') return { F8: { word: t.toReplay(), act: () => replayNow(verdict.id) } };
  if (view === 'replay') return { F8: { word: t.back(), act: go('station') } };
  const word = state.phase !== 'verdict' ? t.lastDetails() : verdict.verdict === 'pass' ? t.details() : t.nextPage();
  return { ...marks, F8: { word, act: go('items') } };
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
  const now = deeds(t, gone);
  return [['F2', 'yes', 24], ['F4', 'no', 440], ['F8', 'unknown', 856]].map(([key, icon, left]) => {
    const deed = now[key];
    const answer = deed?.answer;
    return el('button', { type: 'button', class: `key ${answer ? 'answer' : ''}`, tabindex: -1, disabled: !deed, 'data-key': key, css: { left: `${left}px` } },
      sign(icon, 34, answer ? 'ink' : deed ? 'white' : 'line'), answer ? el('span', {}, deed.word) : '', el('span', { class: 'cap' }, key), !answer && deed ? el('span', {}, deed.word) : '');
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
  const silent = performance.now() - heardAt;
  const gone = silent > AWAY_MS;
  if (['asking', 'running', 'storing'].includes(state.phase) || state.question || gone) view = 'station';
  const seconds_away = Math.floor(silent / 1000);
  const played = view === 'replay' ? replayState(state) : null;
  const shownState = gone ? neutral(state) : played ?? state;
  const onStage = view === 'station' || played !== null;
  document.body.dataset.phase = gone ? 'away' : state.question ? 'question' : played ? 'replay' : state.phase;
  band('status', [state.station, state.operator, state.proof, state.unsent, state.database, state.board, state.factory], () => statusBar(t));
  document.getElementById('clock').textContent = gone ? '' : `${state.now.slice(5, 10)} ${clock(state.now)}`;
  band('identity', [shownState.attempt, shownState.mark, state.supervisor, shownState.plan?.sha256, state.refusal, refusal, typed, gone, view], () => identity(t, gone, shownState));
  const shows = shownState;
  const about = [shows.phase, shows.progress, shows.question, shows.verdict, shows.last, shows.locked, shows.proof, shows.factory, shows.plan?.sha256, view, gone && seconds_away, shows.steps.map((step) => step.seconds)];
  band('stage', about, () => (!onStage ? [] : gone ? away(t, seconds_away) : onPhone() ? phoneStage(t) : stage(shows, t)));
  band('steps', [shows.steps.map((step) => [step.name, step.state]), gone, view], () => (onStage ? stepBand(t, gone, shows) : []));
  band('drawing', [shows.plan?.sha256, shows.phase, shows.steps.map((step) => step.state), shows.facts, shows.answers, gone, view], () => (onStage && shows.plan ? drawing(shownState, t, onPhone()) : []));
  if (onPhone()) band('keys', 'phone', () => el('div', { class: 'only-look' }, sign('eye', 26, 'white'), t.phoneOnly()));
  else band('keys', [state.phase, state.question?.name, state.attempt?.id, view, gone, !!(state.verdict ?? state.last), state.verdict?.verdict, state.supervisor], () => keyBand(t, gone));
  sheet(view === 'replay' ? 'station' : view, (state.verdict ?? state.last)?.id, t);
}

const neutral = (s) => ({ ...s, facts: {}, answers: {}, steps: s.steps.map((step) => ({ ...step, state: 'not-yet' })) });

// A telephone shows the running step in small, and else the verdict's word.
function phoneStage(t) {
  const run = state.progress && state.phase === 'running';
  const index = run ? state.steps.findIndex((step) => step.name === state.progress.step) + 1 : 0;
  if (!run) {
    const verdict = state.phase === 'verdict' ? state.verdict.verdict : null;
    return el('div', { class: `phone-card ${verdict ? `flood-${verdict}` : ''}` },
      verdict ? [stateSignFor(verdict), el('b', { class: 'word' }, t.verdicts[verdict])] : el('b', { class: 'word small' }, ({ waiting: t.scanNext, locked: t.locked, 'sign-in': t.signIn, asking: t.asking, refused: t.refused }[state.phase] ?? t.storing)()));
  }
  const [what, count] = seconds(state.progress, t);
  return el('div', { class: 'phone-card' },
    el('div', { class: 'head' }, sign('running', 26, 'blue'), el('b', { css: { color: 'var(--blue)', margin: '0 9px 0 8px' } }, t.running()), t.ofSteps(index, state.steps.length), el('span', { class: 'right' }, what)),
    el('div', { class: 'word-row' }, el('b', { class: 'word' }, t.step(state.progress.step ?? 'start')), el('b', { class: 'right' }, el('span', { class: 'count' }, String(count)), el('span', { class: 'unit' }, t.seconds()))),
    el('div', { class: 'foot' }, el('span', {}, doing(state, t, t.doingPhone)), el('span', { class: 'right lesser' }, t.latest(state.progress.silent))), bar(state, 374));
}
const stateSignFor = (verdict) => (verdict === 'not-proven' ? sign('not-proven', 90, 'ink', 'amber') : sign(verdict, 90, 'white', { pass: 'green-panel', fail: 'red', incomplete: 'ink-2' }[verdict]));

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
scanner((code) => { typed = code; render(); }, (code) => { if (!onPhone()) send('/api/scan', { text: code }); });
threeKeys((key) => (state && !onPhone() ? deeds(text(), performance.now() - heardAt > AWAY_MS)[key] ?? null : null),
  (key, held) => document.querySelector(`[data-key=${key}]`)?.classList.toggle('held', held));
const asked = new URLSearchParams(location.search).get('replay');
if (asked) replayNow(asked);
get('/api/state').then((first) => { state ??= first; render(); }).catch(() => {});
listen();
export { stateSign };
