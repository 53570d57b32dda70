// Reads a verdict for people: which finding stands first, and what the difference is. Languages
// come later, in texts.js.

import { inputsOf } from './slots.js';

export const plain = (value) => String(value ?? '').replace(/^0x/, '');

// Reasons with the verdict of the board, in the judge's order.
export function reasonsOf(verdict) {
  const all = verdict.items.flatMap(({ name, reasons }) =>
    reasons.map((reason) => ({ item: name, ...reason })));
  return all.filter((reason) => reason.verdict === verdict.verdict);
}

function alarmFinding(reasons) {
  const dead = new Set(), stuck = new Set(), outputs = new Set();
  let first = null;
  for (const reason of reasons) {
    const match = /alarm\.output\.(\d+)\.inputs$/.exec(reason.fact ?? '');
    if (!match || reason.code !== 'wrong') continue;
    first ??= { output: match[1], reason };
    const should = inputsOf(reason.wanted), did = inputsOf(reason.value);
    const silent = should.filter((input) => !did.includes(input));
    if (should.length && silent.length === should.length) outputs.add(Number(match[1]));
    else silent.forEach((input) => dead.add(input));
    did.filter((input) => !should.includes(input)).forEach((input) => stuck.add(input));
  }
  if (!first) return null;
  const list = (set) => [...set].sort((a, b) => a - b);
  const should = inputsOf(first.reason.wanted), differ = [...list(dead), ...list(stuck)];
  const found = (kind, ids, more = {}) =>
    ({ kind, ids: list(ids), ...first, should, differ, ...more });
  if (dead.size) return found('alarm-inputs', dead);
  if (outputs.size) return found('alarm-outputs', outputs, { differ: should });
  return found('alarm-stuck', stuck);
}

// The connector that a reason's fact names.
function connectorFinding(item, fact) {
  const port = /network\.(copper|fibre)\.(\d+)\.(link|duplex|speed)$/.exec(fact);
  if (port) return { kind: 'port', medium: port[1], ids: [port[2]], what: port[3] };
  if (item === 'usb' && /usb\.\d\.(disks|failed)$|usb\.found$/.test(fact)) return { kind: 'usb' };
  const rear = /usb\.(\d)\.rear\.(upper|lower)$/.exec(fact);
  if (rear) return { kind: 'usb-rear', ids: [rear[2]] };
  const disk = /(?:sata\.(e?sd[a-z])|(minisas))\.(\w+)$/.exec(fact);
  if (disk) return { kind: 'disk', ids: [disk[1] ?? disk[2]], what: disk[3] };
  if (item === 'rs485' && fact) return { kind: 'rs485' };
  return /rtc\.(\d)\.difference$/.test(fact) ? { kind: 'rtc' } : null;
}

// What a verdict's panel names: {kind, ids?, fact?, step?, reason?}.
export function findingOf(verdict) {
  const reasons = reasonsOf(verdict);
  const reason = reasons[0];
  if (!reason) return { kind: 'none' };
  const { code, item, fact } = reason;
  if (code === 'missing-step') {
    const count = reasons.filter((other) => other.code === code).length;
    if (count > 1) return { kind: 'missing-steps', count, reason };
    return { kind: code, step: item, reason };
  }
  const alarm = item === 'alarm' && alarmFinding(reasons);
  if (alarm) return alarm;
  const connector = connectorFinding(item, fact ?? '');
  if (connector) return { ...connector, reason };
  if (code === 'wrong') return { kind: code, fact, reason };
  return { kind: code, fact, step: item, reason };
}

// The characters of the measured value, each marked when it differs from what is wanted.
export function differences(value, wanted) {
  const measured = [...plain(value)], should = [...plain(wanted)];
  if (!/^0x/.test(String(value)) || measured.length !== should.length) {
    return measured.length ? [{ text: measured.join(''), differs: true }] : [];
  }
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
