// A stored attempt as the Station page showed it, as a function of time.

import { get } from './common.js';

const LONGEST = 10, SHORTEST_S = 5;  // ten times as fast, but five seconds at least
let record = null, begun = 0;

// How many times as fast as the attempt was.
export const pace = () => (record ? Math.max(1, Math.min(LONGEST, Math.round(record.seconds / SHORTEST_S))) : LONGEST);

export async function startReplay(id) {
  record = null;
  const loaded = await get(`/api/replay?id=${encodeURIComponent(id)}`);
  record = loaded;
  begun = performance.now();
}

// The state of the page at this moment; null while the record is on its way. `live` is the state of
// the station, whose bar stays as it is.
export function replayState(live) {
  if (!record) return null;
  const seconds = (performance.now() - begun) / 1000 * pace();
  const seen = record.frames.filter((frame) => frame.at <= seconds);
  const frame = seen.at(-1);
  const over = seconds >= record.seconds;
  const attempt = { id: record.id, serial: record.serial, number: record.number, provisional: false, mark: record.mark };
  const whole = { ...live, attempt, plan: record.plan, replay: true, refusal: null, question: null, verdict: null, locked: [], mark: 'production' };
  if (over || !frame) {
    const last = { verdict: record.verdict.verdict, id: record.id, serial: record.serial, number: record.number, time: record.verdict.end, released: false };
    return { ...whole, phase: 'replayed', steps: over ? record.steps : record.steps.map((step) => ({ ...step, state: 'not-yet' })), facts: over ? record.facts : {}, answers: over ? record.answers : {}, progress: null, last };
  }
  const total = record.steps.reduce((sum, step) => sum + (step.seconds ?? 0), 0);
  return {
    ...whole, phase: 'running', steps: frame.steps, facts: Object.assign({}, ...seen.map((one) => one.facts)), answers: frame.answers, last: null,
    progress: { step: frame.step || record.steps[0]?.name, elapsed: Math.floor(seconds), left: Math.max(0, Math.round(total - seconds)), over: 0, silent: Math.floor(seconds - frame.at) },
  };
}
