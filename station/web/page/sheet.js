// Behind F8: the items of the verdict, then the transcript.

import { el, get } from './common.js';
import { stateSign } from './signs.js';
import { transcriptRows } from './transcript.js';

let shown = '';

// Shows the sheet of a view over stage, steps and drawing; none for the station itself.
export async function sheet(view, id, t) {
  const key = `${view} ${id} ${t.language}`;
  if (key === shown) return;
  shown = key;
  document.getElementById('sheet')?.remove();
  if (view === 'station' || !id) return;
  const root = el('section', { id: 'sheet' });
  document.getElementById('page').append(root);
  try {
    const attempt = await get(`/api/attempt?id=${encodeURIComponent(id)}`);
    root.append(...(view === 'items' ? items(attempt, t) : [
      el('h2', {}, `${t.transcript()} • ${attempt.serial} • ${id}`),
      el('div', { class: 'scroll' }, transcriptRows(attempt, t, { unfold: true })),
    ]));
  } catch (error) {
    root.append(el('h2', {}, t.refusal(error.code ?? 'offline')));
  }
}

function items(attempt, t) {
  const reason = (one) => el('div', {}, t.reason(one),
    el('span', { class: 'lesser' }, one.line ? `　${t.line(one.line)}` : ''));
  const good = () => el('span', { class: 'lesser' }, t.allAsWanted());
  const row = ({ name, verdict, reasons }) => el('tr', {},
    el('td', { class: 'nowrap' }, el('b', {}, t.step(name))),
    el('td', { class: 'nowrap' },
      el('span', { class: 'with-sign' }, stateSign(verdict, 24), t.verdicts[verdict])),
    el('td', {}, reasons.length ? reasons.map(reason) : good()));
  return [el('h2', {}, `${t.items()} • ${attempt.serial} • ${attempt.id}`),
    el('div', { class: 'scroll' }, el('table', { class: 'items' },
      el('thead', {}, el('tr', {}, t.itemColumns.map((name) => el('th', {}, name)))),
      el('tbody', {}, attempt.items.map(row))))];
}
