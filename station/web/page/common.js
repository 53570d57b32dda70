// What the pages share: elements, language, scaling, keys and scanner, requests.

import { texts } from './texts.js';

// An element; everything that came from outside is a child and so a text node.
export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (name === 'on') for (const [event, handler] of Object.entries(value)) node.addEventListener(event, handler);
    else if (name === 'css') Object.assign(node.style, value);
    else node.setAttribute(name, value === true ? '' : value);
  }
  node.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined && child !== false));
  return node;
}

// A button for the pointer: the keyboard belongs to keys and scanner.
export const button = (attributes, click, ...children) =>
  el('button', { type: 'button', tabindex: -1, ...attributes, on: { click } }, ...children);

// ---- language ----------------------------------------------------------------------------------

export const language = () => (localStorage.getItem('language') === 'en' ? 'en' : 'zh');
export const text = () => texts[language()];

export function languageSwitch() {
  const choose = (code, name) => el('button', {
    type: 'button', class: language() === code ? 'here' : '', tabindex: -1, lang: code,
    on: { click: () => { localStorage.setItem('language', code); dispatchEvent(new Event('languagechange-here')); } },
  }, name);
  return el('div', { class: 'languages' }, choose('zh', '中文'), choose('en', 'EN'));
}
export function onLanguage(render) {
  const apply = () => { document.documentElement.lang = language() === 'en' ? 'en' : 'zh-CN'; render(); };
  addEventListener('languagechange-here', apply);
  addEventListener('storage', apply);
  apply();
}

// ---- scaling -----------------------------------------------------------------------------------

export const onPhone = () => Math.min(innerWidth, screen.width || innerWidth) < 640;

// Scales the page of 1280x800 to the window; a telephone lays it out anew instead.
export function fit() {
  const page = document.getElementById('page');
  const apply = () => {
    document.body.classList.toggle('phone', onPhone());
    if (onPhone()) { page.style.transform = ''; return; }
    const scale = Math.min(innerWidth / 1280, innerHeight / 800);
    page.style.transform = `translate(${Math.max(0, (innerWidth - 1280 * scale) / 2)}px, 0) scale(${scale})`;
  };
  addEventListener('resize', apply);
  apply();
}

// ---- requests ----------------------------------------------------------------------------------

export async function get(path) {
  const response = await fetch(path, { headers: { Accept: 'application/json' } });
  const body = await response.json();
  if (!response.ok) throw Object.assign(new Error(body.error ?? response.statusText), { code: body.error });
  return body;
}
export async function post(path, body) {
  const response = await fetch(path, { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body) });
  const answer = await response.json();
  if (!response.ok) throw Object.assign(new Error(answer.error ?? response.statusText), { code: answer.error });
  return answer;
}

// ---- scanner -----------------------------------------------------------------------------------

// A scanner types a bar code and Enter. Whatever is typed goes here and nowhere else: `shown` gets
// the characters so far, `scanned` the whole code. Nothing on the page has the focus to take them.
export function scanner(shown, scanned) {
  let code = '', latest = 0;
  addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.target.closest?.('[data-typed]')) return;
    const whole = event.key === 'Enter' || event.key === 'Tab';
    if (!whole && event.key.length !== 1 && event.key !== 'Backspace' && event.key !== 'Escape') return;
    event.preventDefault();
    if (whole) {
      const done = code;
      code = '';
      shown('');
      if (done) scanned(done);
      return;
    }
    if (event.timeStamp - latest > 3000) code = '';
    latest = event.timeStamp;
    if (event.key === 'Backspace') code = code.slice(0, -1);
    else if (event.key === 'Escape') code = '';
    else if (code.length < 128) code += event.key;
    shown(code);
  });
}

// ---- the three keys ----------------------------------------------------------------------------

const HELD_MS = 300;

// `begin(key)` returns what the key would do now, or null: {act, hold_ms?}. It is bound when the key
// goes down, so that a question that comes meanwhile is not answered by a press meant for another.
export function threeKeys(begin, mark) {
  const down = new Map();
  const press = (key, hold_ms) => {
    if (down.has(key)) return;
    const deed = begin(key);
    if (!deed) return;
    const entry = { deed, since: performance.now(), need: Math.max(hold_ms, deed.hold_ms ?? 0), timer: 0 };
    if (deed.hold_ms) entry.timer = setTimeout(() => { down.delete(key); mark(key, false); deed.act(); }, deed.hold_ms);
    down.set(key, entry);
    mark(key, true);
  };
  const release = (key) => {
    const entry = down.get(key);
    if (!entry) return;
    down.delete(key);
    clearTimeout(entry.timer);
    mark(key, false);
    if (!entry.deed.hold_ms && performance.now() - entry.since >= entry.need) entry.deed.act();
  };
  addEventListener('keydown', (event) => {
    if (!['F2', 'F4', 'F8'].includes(event.key)) return;
    event.preventDefault();
    if (!event.repeat) press(event.key, HELD_MS);
  });
  addEventListener('keyup', (event) => { if (['F2', 'F4', 'F8'].includes(event.key)) { event.preventDefault(); release(event.key); } });
  addEventListener('blur', () => { for (const [key, entry] of down) { clearTimeout(entry.timer); mark(key, false); } down.clear(); });
  addEventListener('pointerdown', (event) => {
    const key = event.target.closest?.('[data-key]')?.dataset.key;
    if (key) press(key, 0);
  });
  addEventListener('pointerup', (event) => {
    const over = event.target.closest?.('[data-key]')?.dataset.key;
    for (const key of [...down.keys()]) if (key === over) release(key); else { clearTimeout(down.get(key).timer); down.delete(key); mark(key, false); }
  });
}

// ---- times -------------------------------------------------------------------------------------

// Times are shown as the station wrote them, with its zone; "2026-11-23T08:42:17.000+08:00".
export const clock = (iso) => (iso ?? '').slice(11, 19);
export const minute = (iso) => (iso ?? '').slice(11, 16);
// An attempt's id without its year: 3L02-1123-0088.
export const shortId = (id) => (id ?? '').replace(/-20\d\d(\d{4})-/, '-$1-');
export const day = (iso) => (iso ?? '').slice(5, 10);
