// The Board page: every attempt of a serial number, what changed between them, the transcript.

import {
  button, el, fit, get, minute, onLanguage, post, scanner, shortId, text,
} from './common.js';
import { sign, stateSign } from './signs.js';
import { findingOf } from './reading.js';
import { tabs } from './tabs.js';
import { transcriptRows } from './transcript.js';

const asked = new URLSearchParams(location.search);
let board = null;      // {serial, attempts: [newest first], changes, checks, index, ...}
let chosen = null;     // the attempt whose transcript is shown, with it
let unfold = false;
let problem = null;
let typed = '';
let repair = null;     // the open dialog: {of, defect, text, badge, refused}

async function load() {
  const serial = asked.get('serial');
  if (!serial) return render();
  try {
    board = await get(`/api/board?serial=${encodeURIComponent(serial)}`);
    const bad = board.attempts.find((attempt) => attempt.verdict !== 'pass');
    const wanted = asked.get('id') ?? (bad ?? board.attempts[0])?.id;
    if (wanted) await choose(wanted);
  } catch (error) {
    problem = error.code ?? 'offline';
  }
  render();
}

async function choose(id) {
  chosen = await get(`/api/attempt?id=${encodeURIComponent(id)}`);
  render();
}

const planOf = (t, { name, revision, sha256 }) => [el('b', {}, name),
  el('span', { class: 'lesser' }, ` • ${t.plan(revision, sha256.slice(0, 8))}`)];

function verdictNow(t, now) {
  const [before, word, after] = t.now(t.verdicts[now]);
  return el('span', { class: `now ${now}`, 'data-now': now }, stateSign(now, 38),
    el('span', {}, before, el('b', { class: `word ${now}` }, word), after[now]));
}

function head(t) {
  const serial = typed || board?.serial || asked.get('serial') || '—';
  return el('div', { class: 'head' },
    el('span', { class: 'label' }, t.serial()), el('b', { class: 'serial' }, serial),
    board?.now ? verdictNow(t, board.now) : '',
    el('div', { class: 'plan' }, board ? planOf(t, board.plan) : '',
      el('div', { class: 'lesser' }, board ? t.scanOther() : t.scanBoard())));
}

function card(attempt, t) {
  const { id, verdict, station, mark } = attempt;
  const summary =
    verdict === 'pass' ? t.factsGood(attempt.facts.good) : t.finding(findingOf(attempt));
  const same = [t.language === 'en' ? ', ' : '，', el('b', {}, t.sameAsLast())];
  const where = t.language === 'en' ? t.stationShort(station) : t.station(station);
  const named = { class: `attempt ${chosen?.id === id ? 'chosen' : ''}`, 'data-id': id };
  return button(named, () => choose(id),
    el('div', { class: 'row' },
      el('b', { class: 'count' }, t.attempt(attempt.number, attempt.provisional)),
      stateSign(verdict, 37), el('b', { class: `word ${verdict}` }, t.verdicts[verdict]),
      el('span', { class: 'when' }, minute(attempt.time))),
    el('div', { class: 'what' }, summary, attempt.same ? same : ''),
    el('div', { class: 'lesser who' }, t.attemptLine(where, attempt.operator, attempt.shift)),
    el('div', { class: 'lesser mono id' }, shortId(id),
      mark && mark !== 'production' ? el('b', { class: 'mark' }, t.marks[mark]) : ''),
    repairsOf(attempt).map((one) => el('div', { class: 'repair' }, repairWords(one, attempt, t))));
}

// Repairs after an attempt stand in the next one, or wait for it.
function repairsOf(attempt) {
  const stored = board.attempts.flatMap((one) => one.repairs ?? []);
  const waiting = (board.repairs ?? []).map((one) => ({ ...one, waiting: true }));
  return [...stored, ...waiting].filter((one) => one.of === attempt.id);
}

function repairWords(one, attempt, t) {
  const cause = (attempt.causes ?? []).find((other) => other.defect === one.defect);
  const what = [cause?.title?.[t.language], one.text].filter(Boolean).join(t.comma);
  const when = one.waiting ? t.repair.waiting : minute(one.at);
  return t.repair.done(what || one.defect, one.operator, when);
}

function openRepair() {
  const defect = chosen.causes[0]?.defect ?? '';
  repair = { of: chosen.id, defect, text: '', badge: '', refused: '' };
  render();
}

async function storeRepair() {
  const { of, defect, text: words, badge } = repair;
  try {
    await post('/api/repair', { of, defect, text: words, badge });
    repair = null;
    await load();
  } catch (error) {
    repair.refused = error.code ?? 'offline';
    render();
  }
}

// What was repaired after the chosen attempt. A scan is a badge here; only the button stores.
function repairDialog(t) {
  const { badge, refused } = repair;
  const choice = (defect, words) =>
    button({ class: repair.defect === defect ? 'choice here' : 'choice' },
      () => { repair.defect = defect; render(); }, words);
  const typing = (event) => { repair.text = event.target.value; };
  const field = el('input', { 'data-typed': true, maxlength: 80, placeholder: t.repair.what,
    on: { input: typing } });
  field.value = repair.text;
  return el('section', { id: 'repair', role: 'dialog' },
    el('h2', {}, t.repair.title(chosen.number)),
    el('div', { class: 'choices' },
      chosen.causes.slice(0, 3).map(({ defect, title }) =>
        choice(defect, title?.[t.language] ?? defect)),
      choice('', t.repair.other)),
    field,
    el('div', { class: 'badge-field' }, sign(badge ? 'scan' : 'waits', 28),
      badge ? t.repair.scanned : t.repair.badge),
    refused ? el('div', { class: 'refused', role: 'alert' }, t.refusal(refused)) : '',
    el('div', { class: 'acts' }, button({ class: 'act main' }, storeRepair, t.repair.store),
      button({ class: 'act' }, () => { repair = null; render(); }, t.repair.cancel)));
}

function checks(t) {
  const { address_same, scanned, plan_same } = board.checks;
  const count = board.attempts.length, several = count > 1;
  const check = (good, yes, no) => el('div', { class: 'with-sign' },
    stateSign(good ? 'pass' : 'not-proven', 22), good ? yes(count) : no());
  if (!several && scanned === null) return '';
  return el('div', { class: 'checks' },
    several ? check(address_same, t.checks.addressSame, t.checks.addressDiffers) : '',
    scanned === null ? '' : check(scanned, t.checks.scanned, t.checks.notScanned),
    several ? check(plan_same, t.checks.planSame, t.checks.planDiffers) : '');
}

function attempts(t) {
  const all = board.attempts;
  const [count, rest] = t.historyHead(all.length, board.stations);
  return el('aside', {},
    el('div', { class: 'summary' }, el('b', {}, count), rest,
      el('b', {}, t.verdicts[all.at(-1).verdict])),
    el('div', { class: 'attempts' }, all.map((attempt) => card(attempt, t))), checks(t));
}

// ---- what changed from attempt to attempt: at most the three newest, oldest first --------------

function valueWords(t, fact, value) {
  if (!value) return t.noReport();
  const short = fact === 'station' ? value.value.replace(/^\d+L(\d+) /, '$1 ') : value.value;
  const unit = value.unit && value.unit !== 'bits' ? ` ${t.unit(value.unit)}` : '';
  return t.value(short) + unit;
}

function changedValue(t, change, columns, i) {
  const valueOf = (attempt) => change.values.find((one) => one.id === attempt.id);
  const value = valueOf(columns[i]), before = i > 0 ? valueOf(columns[i - 1]) : null;
  const newest = i === columns.length - 1;
  const same = before && value && before.value === value.value;
  const name = `${newest ? 'newest' : ''} ${same || change.ignored ? 'lesser' : ''}`;
  return el('td', { class: name }, el('span', { class: 'with-sign' },
    value?.state ? stateSign(value.state, 20) : el('span', { class: 'no-sign' }),
    el(newest && !change.ignored ? 'b' : 'span', {}, valueWords(t, change.fact, value))));
}

function changes(t) {
  const columns = board.attempts.slice(0, 3).reverse();
  const all = board.changes, shown = all.length > 6 ? all.slice(0, 5) : all;
  const row = (change) => el('tr', { class: change.ignored ? 'ignored' : '' },
    el('td', {}, change.ignored ? t.ignored(t.fact(change.fact)) : t.fact(change.fact),
      el('span', { class: 'mono fact' }, change.fact)),
    columns.map((_, i) => changedValue(t, change, columns, i)));
  const none = () => el('tr', { class: 'ignored' }, el('td', { colspan: columns.length + 1 },
    columns.length < 2 ? t.oneAttempt() : t.noChanges()));
  const more = () => el('tr', {},
    el('td', { class: 'lesser', colspan: 4 }, t.moreChanges(all.length - shown.length)));
  return el('section', { class: 'white changes' }, el('table', {},
    el('thead', {}, el('tr', {}, el('th', {}, t.changed()), columns.map((attempt) =>
      el('th', { class: 'column' }, t.attempt(attempt.number, attempt.provisional))))),
    el('tbody', {}, shown.length ? shown.map(row) : none(),
      shown.length < all.length ? more() : '')));
}

// ---- the record of the chosen attempt ----------------------------------------------------------

function go(step) {
  const marks = [...document.querySelectorAll('.transcript .line.reason')];
  const scroll = document.querySelector('.transcript');
  const found = marks.findIndex((mark) => mark.offsetTop >= scroll.scrollTop + 4);
  const next = (found < 0 ? marks.length : found) + (step > 0 ? 1 : -1);
  const mark = marks[Math.min(marks.length - 1, Math.max(0, next))];
  if (mark) scroll.scrollTop = mark.offsetTop - 62;
}

const act = (words, does) => button({ class: 'link' }, does, words);
const links = (...children) => el('span', { class: 'links' }, ...children);

function record(t) {
  const { id, number, items, lines, unexplained } = chosen;
  const reasons = items.flatMap((item) => item.reasons).filter((reason) => reason.line).length;
  const link = (path, words) => el('a', { class: 'link', tabindex: -1,
    href: `${path}=${encodeURIComponent(id)}` }, words);
  return el('section', { class: 'white record' },
    el('div', { class: 'record-head' }, el('b', {}, t.recordOf(number)),
      el('span', { class: 'lesser' }, t.recordHead(lines, reasons, unexplained)),
      links(link('/?replay', t.replay()),
        act(t.links.all, () => { unfold = true; render(); }),
        act(t.links.previous, () => go(-1)), act(t.links.next, () => go(1)),
        link('/api/journal?id', t.links.raw))),
    el('div', { class: 'transcript' }, transcriptRows(chosen, t, { unfold })),
    chosen.verdict === 'pass' ? '' : el('div', { class: 'cause' }, likelyCause(t, chosen.causes[0]),
      links(act(t.repair.enter, openRepair))));
}

function likelyCause(t, cause) {
  if (!cause) return el('span', { class: 'lesser' }, t.noCause());
  const exact = el('span', { class: 'badge full' }, t.exact(cause.defects?.length || 1));
  const advice = cause.note?.[t.language] ?? cause.check?.[t.language] ?? '';
  return [el('b', {}, t.likelyCause()), el('span', {}, cause.title?.[t.language] ?? cause.defect),
    cause.exact ? exact : '', el('span', { class: 'lesser check' }, advice)];
}

// ---- the page ----------------------------------------------------------------------------------

function render() {
  const t = text();
  const scroll = document.querySelector('.transcript')?.scrollTop ?? 0;
  tabs('board', board?.index, t);
  const some = board?.attempts.length;
  const empty = problem ? t.refusal(problem) : board && !some ? t.noAttempts(board.serial) : '';
  document.getElementById('board').replaceChildren(head(t),
    empty && el('div', { class: 'empty' }, empty), ...(some ? [attempts(t), changes(t)] : []),
    chosen ? record(t) : '', repair ? repairDialog(t) : '');
  const transcript = document.querySelector('.transcript');
  if (transcript) transcript.scrollTop = scroll;
}

fit();
onLanguage(render);
scanner((code) => { if (!repair) { typed = code; render(); } }, (code) => {
  if (!repair) location.href = `/board?serial=${encodeURIComponent(code)}`;
  else { repair.badge = code; repair.refused = ''; render(); }
});
load();
