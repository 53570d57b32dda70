// What the pages share: elements, language, scaling, keys and scanner, requests.

import { texts } from './texts.js';

// An element; everything that came from outside is a child and so a text node.
export function el(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (name === 'css') Object.assign(node.style, value);
    else if (name !== 'on') node.setAttribute(name, value === true ? '' : value);
  }
  for (const [event, handler] of Object.entries(attributes.on ?? {})) {
    node.addEventListener(event, handler);
  }
  node.append(...children.flat(Infinity).filter((child) => (child ?? false) !== false));
  return node;
}

// A button for the pointer: the keyboard belongs to keys and scanner.
export const button = (attributes, click, ...children) =>
  el('button', { type: 'button', tabindex: -1, ...attributes, on: { click } }, ...children);

// ---- language ----------------------------------------------------------------------------------

export const language = () => (localStorage.getItem('language') === 'en' ? 'en' : 'zh');
export const text = () => texts[language()];

export function languageSwitch() {
  const choose = (code) => {
    localStorage.setItem('language', code);
    dispatchEvent(new Event('languagechange-here'));
  };
  const choice = (code, name) =>
    button({ class: language() === code ? 'here' : '', lang: code }, () => choose(code), name);
  return el('div', { class: 'languages' }, choice('zh', '中文'), choice('en', 'EN'));
}

// Calls `render` now and whenever the language changes, in any window; style sheets go by the
// language of the document.
export function onLanguage(render) {
  const apply = () => {
    document.documentElement.lang = language() === 'en' ? 'en' : 'zh-CN';
    render();
  };
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
    const scale = Math.min(innerWidth / 1280, innerHeight / 800);
    const left = Math.max(0, (innerWidth - 1280 * scale) / 2);
    page.style.transform = onPhone() ? '' : `translate(${left}px, 0) scale(${scale})`;
  };
  addEventListener('resize', apply);
  apply();
}

// ---- requests ----------------------------------------------------------------------------------

// Both give the answer's object, or throw an error whose `code` is what the server says; it has
// none when no answer came.
async function request(path, options) {
  const response = await fetch(path, options);
  const answer = await response.json();
  if (response.ok) return answer;
  throw Object.assign(new Error(answer.error ?? response.statusText), { code: answer.error });
}
export const get = (path) => request(path, { headers: { Accept: 'application/json' } });
export const post = (path, body) => request(path, {
  method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(body),
});

// ---- scanner -----------------------------------------------------------------------------------

// A scanner types a bar code and Enter. Whatever is typed goes here and nowhere else: `shown` gets
// the characters so far, `scanned` the whole code. Nothing on the page has the focus to take them.
export function scanner(shown, scanned) {
  let code = '', latest = 0;
  addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.target.closest?.('[data-typed]')) return;
    const whole = event.key === 'Enter' || event.key === 'Tab';
    const edits = event.key === 'Backspace' || event.key === 'Escape';
    if (!whole && !edits && event.key.length !== 1) return;
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
const KEYS = ['F2', 'F4', 'F8'];

// `begin(key)` returns what the key would do now, or null: {act, hold_ms?}. It is bound when the
// key goes down, so that a question that comes meanwhile is not answered by a press meant for
// another. `mark(key, held)` shows it.
export function threeKeys(begin, mark) {
  const down = new Map();
  const press = (key, hold_ms) => {
    if (down.has(key)) return;
    const deed = begin(key);
    if (!deed) return;
    const entry = { deed, since: performance.now(), need: hold_ms, timer: 0 };
    const held = () => { letGo(key); deed.act(); };
    if (deed.hold_ms) entry.timer = setTimeout(held, deed.hold_ms);
    down.set(key, entry);
    mark(key, true);
  };
  const letGo = (key) => {
    const entry = down.get(key);
    if (!entry) return null;
    down.delete(key);
    clearTimeout(entry.timer);
    mark(key, false);
    return entry;
  };
  const release = (key) => {
    const entry = letGo(key);
    if (!entry || entry.deed.hold_ms) return;
    if (performance.now() - entry.since >= entry.need) entry.deed.act();
  };
  addEventListener('keydown', (event) => {
    if (!KEYS.includes(event.key)) return;
    event.preventDefault();
    if (!event.repeat) press(event.key, HELD_MS);
  });
  addEventListener('keyup', (event) => {
    if (!KEYS.includes(event.key)) return;
    event.preventDefault();
    release(event.key);
  });
  const letAllGo = () => { for (const key of [...down.keys()]) letGo(key); };
  addEventListener('blur', letAllGo);
  const keyOf = (event) => event.target.closest?.('[data-key]')?.dataset.key;
  addEventListener('pointerdown', (event) => {
    if (keyOf(event)) press(keyOf(event), 0);
  });
  addEventListener('pointerup', (event) => {
    release(keyOf(event));
    letAllGo();
  });
}

// ---- times -------------------------------------------------------------------------------------

// Times are shown as the station wrote them, with its zone; "2026-11-23T08:42:17.000+08:00".
export const clock = (iso) => (iso ?? '').slice(11, 19);
export const minute = (iso) => (iso ?? '').slice(11, 16);
// An attempt's id without its year: 3L02-1123-0088.
export const shortId = (id) => (id ?? '').replace(/-20\d\d(\d{4})-/, '-$1-');
export const day = (iso) => (iso ?? '').slice(5, 10);
