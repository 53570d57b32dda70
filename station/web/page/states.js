// The legend: what every sign, outline and colour means, with the connectors of this station's plan.

import { el, fit, get, onLanguage, scanner, text } from './common.js';
import { ground, sign, stateSign } from './signs.js';
import { drawing } from './drawing.js';
import { tabs } from './tabs.js';

const VERDICTS = ['pass', 'fail', 'not-proven', 'incomplete'];
const STEPS = ['not-yet', 'running', 'pass', 'fail', 'not-proven', 'incomplete'];
const stepColours = { 'not-yet': ['grey'], running: ['white'], pass: ['green', 'white'], fail: ['white', 'red'], 'not-proven': ['ink', 'amber'], incomplete: ['white'] };
let plan = null;

function verdict(name, flooded, t) {
  const own = { pass: 'green', fail: 'red', 'not-proven': 'ink', incomplete: 'ink-2' }[name];
  const cut = { pass: 'green-panel', fail: 'red', 'not-proven': 'amber', incomplete: 'ink-2' }[name];
  const white = flooded && name !== 'not-proven';
  const size = t.language === 'en' ? 40 : 56;
  return el('div', { 'data-legend': name }, ground(name, 296, flooded ? 150 : 104, flooded),
    el('div', { class: `word ${name}`, css: { color: `var(--${white ? 'white' : own})` } }, white ? sign(name, size, 'white', cut) : flooded ? sign(name, size, 'ink', 'amber') : stateSign(name, size), t.verdicts[name]));
}

const stateOf = (i) => ['pass', 'running', 'not-proven', 'not-yet', 'fail', 'pass'][i % 6];
const factsOf = (shown) => Object.fromEntries(shown.facts.map((fact) => [fact.name, stateOf(shown.steps.indexOf(fact.step)), fact.wanted])
  .filter(([, state]) => state === 'pass' || state === 'fail').map(([name, state, wanted]) => [name, { state, value: state === 'pass' ? wanted : '', wanted }]));

function render() {
  const t = text();
  tabs('states', null, t);
  const { legend } = t;
  // The states of the connectors, one after the other, over the steps of the plan.
  const shown = plan && { plan, phase: 'verdict', facts: factsOf(plan), answers: { buzzer: 'yes' }, question: null, steps: plan.steps.map((name, i) => ({ name, state: stateOf(i) })) };
  document.getElementById('states').replaceChildren(el('div', { class: 'legend' },
    el('h2', {}, legend.verdicts), el('div', { class: 'verdicts' }, VERDICTS.map((name) => verdict(name, true, t))),
    el('h2', {}, legend.last), el('div', { class: 'verdicts last' }, VERDICTS.map((name) => verdict(name, false, t))),
    el('h2', {}, legend.steps), el('div', { class: 'steps' }, STEPS.map((name) => el('div', { class: `step ${name}` }, sign(name, 28, ...stepColours[name]), el('span', {}, t.states[name]))),
      el('span', { class: 'wait' }, sign('scan', 40), legend.scan), el('span', { class: 'wait' }, sign('waits', 40), legend.answer)),
    el('h2', {}, legend.slots), shown ? el('div', { class: 'plate' }, drawing(shown, t, false)) : ''));
}

fit();
onLanguage(render);
scanner(() => {}, (code) => { location.href = `/board?serial=${encodeURIComponent(code)}`; });
get('/api/state').then((state) => { plan = state.plan; render(); }).catch(() => {});
