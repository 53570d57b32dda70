// Reads a verdict for people: which finding stands first, and what the difference is. Languages
// come later, in texts.js.

import { inputsOf } from './slots.js';

const plain = (value) => String(value ?? '').replace(/^0x/, '');
export { plain };

// Reasons with the verdict of the board, in the judge's order.
export function reasonsOf(verdict) {
  return verdict.items.flatMap((item) => item.reasons.map((reason) => ({ item: item.name, ...reason })))
    .filter((reason) => reason.verdict === verdict.verdict);
}

function alarmFinding(reasons) {
  const dead = new Set(), stuck = new Set(), outputs = new Set();
  let first = null;
  for (const reason of reasons) {
    const match = /alarm\.output\.(\d+)\.inputs$/.exec(reason.fact ?? '');
    if (!match || reason.code !== 'wrong') continue;
    first ??= { output: match[1], reason };
    const should = inputsOf(reason.wanted), did = inputsOf(reason.value);
    if (should.length && !should.some((input) => did.includes(input))) outputs.add(Number(match[1]));
    else should.filter((input) => !did.includes(input)).forEach((input) => dead.add(input));
    did.filter((input) => !should.includes(input)).forEach((input) => stuck.add(input));
  }
  if (!first) return null;
  const list = (set) => [...set].sort((a, b) => a - b);
  const detail = { output: first.output, should: inputsOf(first.reason.wanted), differ: [...list(dead), ...list(stuck)], reason: first.reason };
  if (dead.size) return { kind: 'alarm-inputs', ids: list(dead), ...detail };
  if (outputs.size) return { kind: 'alarm-outputs', ids: list(outputs), ...detail, differ: detail.should };
  return { kind: 'alarm-stuck', ids: list(stuck), ...detail };
}

// What a verdict's panel names: {kind, ids?, fact?, step?, reason?}.
export function findingOf(verdict) {
  const reasons = reasonsOf(verdict);
  const first = reasons[0];
  if (!first) return { kind: 'none' };
  const missing = reasons.filter((reason) => reason.code === 'missing-step');
  if (first.code === 'missing-step' && missing.length > 1) return { kind: 'missing-steps', count: missing.length, reason: first };
  if (first.code === 'missing-step') return { kind: 'missing-step', step: first.item, reason: first };
  if (first.item === 'alarm') {
    const alarm = alarmFinding(reasons);
    if (alarm) return alarm;
  }
  const port = /network\.(copper|fibre)\.(\d+)\.(link|duplex|speed)$/.exec(first.fact ?? '');
  if (port) return { kind: 'port', medium: port[1], ids: [port[2]], what: port[3], reason: first };
  if (first.item === 'usb' && /usb\.\d\.(disks|failed)$|usb\.found$/.test(first.fact)) return { kind: 'usb', reason: first };
  const rear = /usb\.(\d)\.rear\.(upper|lower)$/.exec(first.fact ?? '');
  if (rear) return { kind: 'usb-rear', ids: [rear[2]], reason: first };
  const disk = /(?:sata\.(e?sd[a-z])|(minisas))\.(\w+)$/.exec(first.fact ?? '');
  if (disk) return { kind: 'disk', ids: [disk[1] ?? disk[2]], what: disk[3], reason: first };
  if (first.item === 'rs485' && first.fact) return { kind: 'rs485', reason: first };
  const rtc = /rtc\.(\d)\.difference$/.exec(first.fact ?? '');
  if (rtc) return { kind: 'rtc', reason: first };
  if (first.code.startsWith('answer-')) return { kind: first.code, question: first.fact?.replace(/^answer\./, ''), step: first.item, reason: first };
  if (first.code === 'wrong') return { kind: 'wrong', fact: first.fact, reason: first };
  return { kind: first.code, fact: first.fact, step: first.item, reason: first };
}

// The characters of the measured value, each marked when it differs from what is wanted.
export function differences(value, wanted) {
  const measured = [...plain(value)], should = [...plain(wanted)];
  if (!/^0x/.test(String(value)) || measured.length !== should.length) return measured.length ? [{ text: measured.join(''), differs: true }] : [];
  const runs = [];
  measured.forEach((character, i) => {
    const differs = character !== should[i];
    if (runs.length && !differs && !runs.at(-1).differs) runs.at(-1).text += character;
    else runs.push({ text: character, differs });
  });
  return runs;
}

// How many of the facts in question a cause explains: [explained, all].
export const fitOf = (cause) => [cause.matched ?? 0, cause.of ?? 0];
