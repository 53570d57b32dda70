// A stored attempt as the Station page showed it, as a function of time.

import { get } from './common.js';

const LONGEST = 10, SHORTEST_S = 5;  // ten times as fast, but five seconds at least
let record = null, begun = 0;

// How many times as fast as the attempt was.
export const pace = () => (record
  ? Math.max(1, Math.min(LONGEST, Math.round(record.seconds / SHORTEST_S))) : LONGEST);

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
  const { id, serial, number, mark, plan } = record;
  const whole = {
    ...live, attempt: { id, serial, number, provisional: false, mark }, plan, replay: true,
    refusal: null, question: null, verdict: null, locked: [], mark: 'production',
  };
  if (seconds >= record.seconds) return atEnd(whole, record.steps, record.facts, record.answers);
  return seen.length ? atFrame(whole, seen, seconds) : atEnd(whole, notYet(record.steps), {}, {});
}

const notYet = (steps) => steps.map((step) => ({ ...step, state: 'not-yet' }));

function atEnd(whole, steps, facts, answers) {
  const { id, serial, number, verdict } = record;
  const last = { verdict: verdict.verdict, id, serial, number, time: verdict.end, released: false };
  return { ...whole, phase: 'replayed', steps, facts, answers, progress: null, last };
}

function atFrame(whole, seen, seconds) {
  const { at, step, steps, answers } = seen.at(-1);
  const total = record.steps.reduce((sum, one) => sum + (one.seconds ?? 0), 0);
  const progress = {
    step: step || record.steps[0]?.name, elapsed: Math.floor(seconds),
    left: Math.max(0, Math.round(total - seconds)), over: 0, silent: Math.floor(seconds - at),
  };
  const facts = Object.assign({}, ...seen.map((one) => one.facts));
  return { ...whole, phase: 'running', steps, facts, answers, last: null, progress };
}
