// The Board page: every attempt of a serial number, what changed between them, the transcript.

import { el, fit, get, onLanguage, post, scanner, text, minute, shortId } from './common.js';
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
    const wanted = asked.get('id') ?? board.attempts.find((attempt) => attempt.verdict !== 'pass')?.id ?? board.attempts[0]?.id;
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

function head(t) {
  const serial = typed || board?.serial || asked.get('serial') || '';
  const now = board?.now;
  const words = now ? t.now(t.verdicts[now]) : [];
  const colour = { pass: 'green', fail: 'red', 'not-proven': 'ink', incomplete: 'ink-2' }[now];
  return el('div', { class: 'head' },
    el('span', { class: 'label' }, t.serial()), el('b', { class: 'serial' }, serial || '—'),
    now ? el('span', { class: `now ${now}`, 'data-now': now }, stateSign(now, 38), el('span', {}, words[0], el('b', { css: { color: `var(--${colour})` } }, words[1]), words[2][now])) : '',
    el('div', { class: 'plan' }, board ? [el('b', {}, board.plan.name), el('span', { class: 'lesser' }, ` • ${t.plan(board.plan.revision, board.plan.sha256.slice(0, 8))}`)] : '', el('div', { class: 'lesser' }, board ? t.scanOther() : t.scanBoard())));
}

const summaryOf = (attempt, t) => (attempt.verdict === 'pass' ? t.factsGood(attempt.facts.good) : t.finding(findingOf(attempt)));

function card(attempt, t) {
  const colour = { pass: 'green', fail: 'red', 'not-proven': 'ink', incomplete: 'ink-2' }[attempt.verdict];
  return el('button', { type: 'button', tabindex: -1, class: `attempt ${chosen?.id === attempt.id ? 'chosen' : ''}`, 'data-id': attempt.id, on: { click: () => choose(attempt.id) } },
    el('div', { class: 'row' }, el('b', { class: 'count' }, t.attempt(attempt.number, attempt.provisional)), stateSign(attempt.verdict, 37),
      el('b', { class: `word ${attempt.verdict}`, css: { color: `var(--${colour})` } }, t.verdicts[attempt.verdict]), el('span', { class: 'when' }, minute(attempt.time))),
    el('div', { class: 'what' }, summaryOf(attempt, t), attempt.same ? [t.comma.trim() === ',' ? ', ' : '，', el('b', {}, t.sameAsLast())] : ''),
    el('div', { class: 'lesser who' }, t.attemptLine(t.language === 'en' ? t.stationShort(attempt.station) : t.station(attempt.station), attempt.operator, attempt.shift)),
    el('div', { class: 'lesser mono id' }, shortId(attempt.id), attempt.mark && attempt.mark !== 'production' ? el('b', { class: 'mark' }, t.marks[attempt.mark]) : ''),
    repairsOf(attempt).map((one) => el('div', { class: 'repair' }, t.repair.done(repairWords(one, attempt, t), one.operator, one.waiting ? t.repair.waiting : minute(one.at)))));
}

// Repairs after an attempt stand in the next one, or wait for it.
const repairsOf = (attempt) => [...board.attempts.flatMap((one) => one.repairs ?? []), ...(board.repairs ?? []).map((one) => ({ ...one, waiting: true }))].filter((one) => one.of === attempt.id);
function repairWords(one, attempt, t) {
  const title = (attempt.causes ?? []).find((cause) => cause.defect === one.defect)?.title?.[t.language];
  return [title ?? '', one.text].filter(Boolean).join(t.comma) || one.defect;
}

function openRepair() {
  repair = { of: chosen.id, defect: chosen.causes[0]?.defect ?? '', text: '', badge: '', refused: '' };
  render();
}

async function storeRepair() {
  try {
    await post('/api/repair', { of: repair.of, defect: repair.defect, text: repair.text, badge: repair.badge });
    repair = null;
    await load();
  } catch (error) {
    repair.refused = error.code ?? 'offline';
    render();
  }
}

// What was repaired after the chosen attempt. A scan is a badge here; only the button stores.
function repairDialog(t) {
  const choose = (defect, words) => el('button', { type: 'button', tabindex: -1, class: repair.defect === defect ? 'choice here' : 'choice', on: { click: () => { repair.defect = defect; render(); } } }, words);
  const field = el('input', { 'data-typed': true, maxlength: 80, placeholder: t.repair.what, on: { input: (event) => { repair.text = event.target.value; } } });
  field.value = repair.text;
  const button = (words, act, main) => el('button', { type: 'button', tabindex: -1, class: main ? 'act main' : 'act', on: { click: act } }, words);
  return el('section', { id: 'repair', role: 'dialog' }, el('h2', {}, t.repair.title(chosen.number)),
    el('div', { class: 'choices' }, chosen.causes.slice(0, 3).map((cause) => choose(cause.defect, cause.title?.[t.language] ?? cause.defect)), choose('', t.repair.other)),
    field, el('div', { class: 'badge-field' }, sign(repair.badge ? 'scan' : 'waits', 28), repair.badge ? t.repair.scanned : t.repair.badge),
    repair.refused ? el('div', { class: 'refused', role: 'alert' }, t.refusal(repair.refused)) : '',
    el('div', { class: 'acts' }, button(t.repair.store, storeRepair, true), button(t.repair.cancel, () => { repair = null; render(); })));
}

function attempts(t) {
  const { attempts: all, stations } = board;
  const first = all.at(-1);
  const [count, rest] = t.historyHead(all.length, stations);
  const several = all.length > 1;
  const check = (good, words) => el('div', { class: 'with-sign' }, stateSign(good ? 'pass' : 'not-proven', 22), words);
  return el('aside', {},
    el('div', { class: 'summary' }, el('b', {}, count), rest, el('b', {}, t.verdicts[first.verdict])),
    el('div', { class: 'attempts' }, all.map((attempt) => card(attempt, t))),
    !several && board.checks.scanned === null ? '' : el('div', { class: 'checks' },
      !several ? '' : check(board.checks.address_same, board.checks.address_same ? t.checks.addressSame(all.length) : t.checks.addressDiffers()),
      board.checks.scanned === null ? '' : check(board.checks.scanned, board.checks.scanned ? t.checks.scanned(all.length) : t.checks.notScanned()),
      !several ? '' : check(board.checks.plan_same, board.checks.plan_same ? t.checks.planSame(all.length) : t.checks.planDiffers())));
}

// What changed from attempt to attempt: at most the three newest, oldest first.
function changes(t) {
  const columns = board.attempts.slice(0, 3).reverse();
  const cell = (change, attempt, i) => {
    const value = change.values.find((one) => one.id === attempt.id);
    const newest = i === columns.length - 1;
    const before = i > 0 ? change.values.find((one) => one.id === columns[i - 1].id) : null;
    const same = before && value && before.value === value.value;
    return el('td', { class: `${newest ? 'newest' : ''} ${same || change.ignored ? 'lesser' : ''}` },
      el('span', { class: 'with-sign' }, value?.state ? stateSign(value.state, 20) : el('span', { class: 'no-sign' }),
        el(newest && !change.ignored ? 'b' : 'span', {}, value ? t.value(change.fact === 'station' ? value.value.replace(/^\d+L(\d+) /, '$1 ') : value.value) + (value.unit && value.unit !== 'bits' ? ` ${t.unit(value.unit)}` : '') : t.noReport())));
  };
  const name = (change) => (change.ignored ? t.ignored(t.fact(change.fact)) : t.fact(change.fact));
  const shown = board.changes.length > 6 ? board.changes.slice(0, 5) : board.changes;
  return el('section', { class: 'white changes' }, el('table', {},
    el('thead', {}, el('tr', {}, el('th', {}, t.changed()), columns.map((attempt) => el('th', { class: 'column' }, t.attempt(attempt.number, attempt.provisional))))),
    el('tbody', {}, shown.map((change) => el('tr', { class: change.ignored ? 'ignored' : '' },
      el('td', {}, name(change), el('span', { class: 'mono fact' }, change.fact)), columns.map((attempt, i) => cell(change, attempt, i)))),
      shown.length ? '' : el('tr', { class: 'ignored' }, el('td', { colspan: columns.length + 1 }, columns.length < 2 ? t.oneAttempt() : t.noChanges())),
      shown.length < board.changes.length ? el('tr', {}, el('td', { class: 'lesser', colspan: 4 }, t.moreChanges(board.changes.length - shown.length))) : '')));
}

function go(step) {
  const marks = [...document.querySelectorAll('.transcript .line.reason')];
  const scroll = document.querySelector('.transcript');
  const here = marks.findIndex((mark) => mark.offsetTop >= scroll.scrollTop + 4);
  const next = marks[Math.min(marks.length - 1, Math.max(0, (here < 0 ? marks.length : here) + (step > 0 ? 1 : -1)))];
  if (next) scroll.scrollTop = next.offsetTop - 62;
}

function record(t) {
  const reasons = chosen.items.flatMap((item) => item.reasons).filter((reason) => reason.line).length;
  const link = (words, act) => el('button', { type: 'button', tabindex: -1, class: 'link', on: { click: act } }, words);
  const cause = chosen.causes[0];
  return el('section', { class: 'white record' },
    el('div', { class: 'record-head' }, el('b', {}, t.recordOf(chosen.number)), el('span', { class: 'lesser' }, t.recordHead(chosen.lines, reasons, chosen.unexplained)),
      el('span', { class: 'links' }, el('a', { class: 'link', tabindex: -1, href: `/?replay=${encodeURIComponent(chosen.id)}` }, t.replay()), link(t.links.all, () => { unfold = true; render(); }), link(t.links.previous, () => go(-1)), link(t.links.next, () => go(1)),
        el('a', { class: 'link', tabindex: -1, href: `/api/journal?id=${encodeURIComponent(chosen.id)}` }, t.links.raw))),
    el('div', { class: 'transcript' }, transcriptRows(chosen, t, { unfold })),
    chosen.verdict === 'pass' ? '' : el('div', { class: 'cause' }, cause
      ? [el('b', {}, t.likelyCause()), el('span', {}, cause.title?.[t.language] ?? cause.defect), cause.exact ? el('span', { class: 'badge full' }, t.exact(cause.defects?.length || 1)) : '', el('span', { class: 'lesser check' }, cause.note?.[t.language] ?? cause.check?.[t.language] ?? '')]
      : el('span', { class: 'lesser' }, t.noCause()), el('span', { class: 'links' }, link(t.repair.enter, openRepair))));
}

function render() {
  const t = text();
  const scroll = document.querySelector('.transcript')?.scrollTop ?? 0;
  tabs('board', board?.index, t);
  const empty = problem ? el('div', { class: 'empty' }, t.refusal(problem)) : board && !board.attempts.length ? el('div', { class: 'empty' }, t.noAttempts(board.serial)) : '';
  document.getElementById('board').replaceChildren(head(t), empty, ...(board?.attempts.length ? [attempts(t), changes(t)] : []), chosen ? record(t) : '', repair ? repairDialog(t) : '');
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
