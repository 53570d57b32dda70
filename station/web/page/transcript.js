// The transcript of an attempt, each reason at its line; lines without one are folded, with their numbers.

import { el } from './common.js';
import { stateSign } from './signs.js';
import { inputsOf } from './slots.js';

function explain(reason, t) {
  if (/alarm\.output\.\d+\.inputs$/.test(reason.fact ?? '')) {
    const did = inputsOf(reason.value), lacking = inputsOf(reason.wanted).filter((input) => !did.includes(input));
    if (lacking.length) return t.lacking(lacking, t.value(reason.wanted));
  }
  return t.shouldBe(reason);
}

// Runs of lines: those around a reason stay, the others fold (`unfold`: none does).
function runs(pieces, marked, unfold) {
  const CONTEXT = 4, out = [];
  const near = (i) => { for (let k = i; k <= Math.min(pieces.length - 1, i + CONTEXT); ++k) if (marked.has(pieces[k].line)) return true; return marked.has(pieces[i].line) || pieces[i].kind === 'unexplained'; };
  pieces.forEach((piece, i) => {
    const folded = !unfold && !near(i);
    if (folded && out.at(-1)?.folded) out.at(-1).pieces.push(piece);
    else if (folded) out.push({ folded, pieces: [piece] });
    else out.push({ folded: false, pieces: [piece] });
  });
  return out.map((run) => (run.folded && run.pieces.length < 3 ? run.pieces.map((piece) => ({ folded: false, pieces: [piece] })) : run)).flat();
}

export function transcriptRows(attempt, t, { unfold = false, onUnfold } = {}) {
  const reasons = attempt.items.flatMap((item) => item.reasons).filter((reason) => reason.line);
  const marked = new Map();
  reasons.forEach((reason, i) => { if (!marked.has(reason.line)) marked.set(reason.line, []); marked.get(reason.line).push({ ...reason, count: i + 1 }); });
  // One line of the journal may hold several of the transcript: a reason stands at the one that says
  // its fact, if there is one.
  const saying = (line, fact) => attempt.transcript.filter((piece) => piece.line === line && ` ${piece.says}`.includes(` ${fact} = `));
  const node = (piece) => {
    const { line, seconds, channel, text, kind, says } = piece;
    const why = (marked.get(line) ?? []).filter((reason) => {
      const there = saying(line, reason.fact);
      return there.length === 0 || there.includes(piece);
    });
    return el('div', { class: `line ${why.length ? `reason ${why[0].verdict}` : ''} ${kind === 'unexplained' ? 'reason not-proven' : ''}`, 'data-line': line },
      el('span', { class: 'number' }, String(line)), el('span', { class: 'time' }, seconds.toFixed(2)), el('span', { class: 'channel' }, t.channels[channel] ?? channel),
      el('span', { class: 'words mono' }, text),
      el('span', { class: 'says' }, why.length ? why.map((reason) => el('span', { class: 'with-sign' }, stateSign(reason.verdict, 20), t.reasonNumber(reason.count, explain(reason, t)))) : kind === 'unexplained' ? t.reasonShort('unexplained') : says ?? ''));
  };
  return runs(attempt.transcript, marked, unfold).map((run) => {
    if (!run.folded) return node(run.pieces[0]);
    const steps = [...new Set(run.pieces.map((piece) => piece.step).filter(Boolean))].map((step) => t.step(step));
    return el('button', { type: 'button', class: 'line fold', tabindex: -1, on: { click: (event) => { event.currentTarget.replaceWith(...run.pieces.map(node)); onUnfold?.(); } } },
      `▸ ${run.pieces[0].line}–${run.pieces.at(-1).line}　`, steps.length ? t.foldGood(steps) : t.foldPlain());
  });
}
