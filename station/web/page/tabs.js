// The bar of Board and Yield: which page, up to when the index goes, how many attempts are unsent.

import { el, languageSwitch, clock, day } from './common.js';

export function tabs(here, index, t) {
  const tab = (name, path) => el('a', { class: `tab ${here === name ? 'here' : ''}`, href: path, tabindex: -1 }, t.tabs[name]);
  document.getElementById('status').replaceChildren(
    el('b', {}, 'q7-station'),
    el('nav', { class: 'tabs' }, tab('station', '/'), tab('board', '/board'), tab('yield', '/yield'), tab('states', '/states')),
    el('span', { class: 'space' }),
    index ? el('span', { class: 'item' }, el('span', { class: 'name' }, t.indexedTo()), el('b', {}, `${day(index.to)} ${clock(index.to)}`)) : '',
    index ? el('span', { class: index.unsent ? 'unsent' : 'item' }, el('span', { class: index.unsent ? '' : 'name' }, `${t.unsent()} `), el('b', {}, String(index.unsent))) : '',
    languageSwitch());
}
