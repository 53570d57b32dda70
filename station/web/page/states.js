// The legend: what every sign, outline and colour means, with the connectors of this station's
// plan.

import { el, fit, get, onLanguage, scanner, text } from './common.js';
import { floodSign, ground, sign, stateSign, stepSign } from './signs.js';
import { drawing } from './drawing.js';
import { tabs } from './tabs.js';

const VERDICTS = ['pass', 'fail', 'not-proven', 'incomplete'];
const STEPS = ['not-yet', 'running', 'pass', 'fail', 'not-proven', 'incomplete'];
let plan = null;

function verdict(name, flooded, t) {
  return el('div', { 'data-legend': name }, ground(name, 296, flooded ? 150 : 104, flooded),
    el('div', { class: `word ${name}` }, flooded ? floodSign(name, 56) : stateSign(name, 56),
      t.verdicts[name]));
}

// A state for the drawing: the steps of the plan have those of a connector, one after the other.
function exampleOf(plan) {
  const stateOf = (i) => ['pass', 'running', 'not-proven', 'not-yet', 'fail', 'pass'][i % 6];
  const facts = {};
  for (const { name, step, wanted } of plan.facts) {
    const state = stateOf(plan.steps.indexOf(step));
    if (state === 'pass') facts[name] = { state, value: wanted, wanted };
    if (state === 'fail') facts[name] = { state, value: '', wanted };
  }
  const steps = plan.steps.map((name, i) => ({ name, state: stateOf(i) }));
  return { plan, phase: 'verdict', facts, answers: { buzzer: 'yes' }, question: null, steps };
}

function render() {
  const t = text();
  tabs('states', null, t);
  const { legend } = t;
  const section = (head, name, ...children) =>
    [el('h2', {}, head), el('div', { class: name }, ...children)];
  const step = (name) =>
    el('div', { class: `step ${name}` }, stepSign(name, 28), el('span', {}, t.states[name]));
  const wait = (kind, words) => el('span', { class: 'wait' }, sign(kind, 40), words);
  document.getElementById('states').replaceChildren(el('div', { class: 'legend' },
    section(legend.verdicts, 'verdicts', VERDICTS.map((name) => verdict(name, true, t))),
    section(legend.last, 'verdicts last', VERDICTS.map((name) => verdict(name, false, t))),
    section(legend.steps, 'steps', STEPS.map(step), wait('scan', legend.scan),
      wait('waits', legend.answer)),
    el('h2', {}, legend.slots),
    plan ? el('div', { class: 'plate' }, drawing(exampleOf(plan), t, false)) : ''));
}

fit();
onLanguage(render);
scanner(() => {}, (code) => { location.href = `/board?serial=${encodeURIComponent(code)}`; });
get('/api/state').then((state) => { plan = state.plan; render(); }).catch(() => {});
