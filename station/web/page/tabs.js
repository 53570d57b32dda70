// The bar of Board and Yield: which page, up to when the index goes, how many attempts are unsent.

import { el, languageSwitch, clock, day } from './common.js';

export function tabs(here, index, t) {
  const tab = (name, href) =>
    el('a', { class: `tab ${here === name ? 'here' : ''}`, href, tabindex: -1 }, t.tabs[name]);
  const item = (name, value, unsent = false) => el('span', { class: unsent ? 'unsent' : 'item' },
    el('span', { class: unsent ? '' : 'name' }, name), el('b', {}, value));
  document.getElementById('status').replaceChildren(
    el('b', {}, 'q7-station'),
    el('nav', { class: 'tabs' }, tab('station', '/'), tab('board', '/board'),
      tab('yield', '/yield'), tab('states', '/states')),
    el('span', { class: 'space' }),
    index ? item(t.indexedTo(), `${day(index.to)} ${clock(index.to)}`) : '',
    index ? item(`${t.unsent()} `, String(index.unsent), index.unsent > 0) : '',
    languageSwitch());
}
