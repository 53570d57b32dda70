// The transcript of an attempt, each reason at its line; lines without one are folded, with their
// numbers.

import { button, el } from './common.js';
import { stateSign } from './signs.js';
import { inputsOf } from './slots.js';

function explain(reason, t) {
  if (/alarm\.output\.\d+\.inputs$/.test(reason.fact ?? '')) {
    const did = inputsOf(reason.value);
    const lacking = inputsOf(reason.wanted).filter((input) => !did.includes(input));
    if (lacking.length) return t.lacking(lacking, t.value(reason.wanted));
  }
  return t.shouldBe(reason);
}

// Runs of lines: those around a reason stay, the others fold (`unfold`: none does).
function runs(pieces, marked, unfold) {
  const CONTEXT = 4, out = [];
  const near = (piece, i) => piece.kind === 'unexplained'
    || pieces.slice(i, i + CONTEXT + 1).some((other) => marked.has(other.line));
  pieces.forEach((piece, i) => {
    const folded = !unfold && !near(piece, i);
    if (folded && out.at(-1)?.folded) out.at(-1).pieces.push(piece);
    else out.push({ folded, pieces: [piece] });
  });
  return out.flatMap((run) => (run.folded && run.pieces.length < 3
    ? run.pieces.map((piece) => ({ folded: false, pieces: [piece] })) : [run]));
}

// The reasons of each line, numbered in the judge's order.
function reasonsByLine(attempt) {
  const marked = new Map();
  const all = attempt.items.flatMap((item) => item.reasons).filter((reason) => reason.line);
  all.forEach((reason, i) => {
    const others = marked.get(reason.line) ?? [];
    marked.set(reason.line, [...others, { ...reason, count: i + 1 }]);
  });
  return marked;
}

// What stands beside a line: why it counts against the board, or what it says.
function remark(why, { kind, says }, t) {
  if (!why.length) return kind === 'unexplained' ? t.reasonShort('unexplained') : says ?? '';
  return why.map((reason) => el('span', { class: 'with-sign' }, stateSign(reason.verdict, 20),
    t.reasonNumber(reason.count, explain(reason, t))));
}

function lineOf(piece, why, t) {
  const { line, seconds, channel, text, kind } = piece;
  const judged = why.length ? `reason ${why[0].verdict}` : '';
  const unexplained = kind === 'unexplained' ? 'reason not-proven' : '';
  return el('div', { class: `line ${judged} ${unexplained}`, 'data-line': line },
    el('span', { class: 'number' }, String(line)),
    el('span', { class: 'time' }, seconds.toFixed(2)),
    el('span', { class: 'channel' }, t.channels[channel] ?? channel),
    el('span', { class: 'words mono' }, text),
    el('span', { class: 'says' }, remark(why, piece, t)));
}

export function transcriptRows(attempt, t, { unfold = false } = {}) {
  const marked = reasonsByLine(attempt);
  // One line of the journal may hold several of the transcript: a reason stands at the one that
  // says its fact, if there is one.
  const saying = (line, fact) => attempt.transcript.filter((piece) =>
    piece.line === line && ` ${piece.says}`.includes(` ${fact} = `));
  const node = (piece) => {
    const why = (marked.get(piece.line) ?? []).filter((reason) => {
      const there = saying(piece.line, reason.fact);
      return there.length === 0 || there.includes(piece);
    });
    return lineOf(piece, why, t);
  };
  return runs(attempt.transcript, marked, unfold).map(({ folded, pieces }) => {
    if (!folded) return node(pieces[0]);
    const names = [...new Set(pieces.map((piece) => piece.step).filter(Boolean))];
    const open = (event) => event.currentTarget.replaceWith(...pieces.map(node));
    return button({ class: 'line fold' }, open, `▸ ${pieces[0].line}–${pieces.at(-1).line}　`,
      names.length ? t.foldGood(names.map((step) => t.step(step))) : t.foldPlain());
  });
}
