// The Yield page: first-pass and final yield, what failed and why, drift. Every number opens the list
// of boards behind it.

import { el, fit, get, onLanguage, onPhone, scanner, text, minute, day, svg } from './common.js';
import { stateSign } from './signs.js';
import { tabs } from './tabs.js';

const filters = new URLSearchParams(location.search);
let data = null;
let problem = null;
let chart = null;

async function load() {
  try {
    data = await get(`/api/yield?${filters}`);
    problem = null;
  } catch (error) {
    problem = error.code ?? 'offline';
  }
  render();
}

function set(name, value) {
  if (value) filters.set(name, value);
  else filters.delete(name);
  history.replaceState(null, '', `?${filters}`);
  load();
}

const percent = (part, whole) => (whole ? (Math.round(1000 * part / whole) / 10).toFixed(1) : '–');

// A number that opens its list: `which` selects it beside the filters.
function opens(words, which, t) {
  return el('button', { type: 'button', tabindex: -1, class: 'opens', 'data-list': JSON.stringify(which), on: { click: () => list(which, t) } }, words);
}

async function list(which, t) {
  const query = new URLSearchParams(filters);
  for (const [name, value] of Object.entries(which)) query.set(name, value);
  let boards = [], failed = '';
  try {
    boards = (await get(`/api/list?${query}`)).boards;
  } catch (error) {
    failed = t.refusal(error.code ?? 'offline');
  }
  document.getElementById('list')?.remove();
  document.getElementById('page').append(el('section', { id: 'list' },
    el('div', { class: 'top' }, el('b', {}, failed || t.boardsBehind(boards.length)), el('button', { type: 'button', class: 'link', on: { click: () => document.getElementById('list').remove() } }, t.close())),
    el('div', { class: 'rows' }, el('table', {}, boards.map((one) => el('tr', {},
      el('td', {}, el('a', { href: `/board?serial=${encodeURIComponent(one.serial)}&id=${encodeURIComponent(one.id)}` }, one.serial)),
      el('td', {}, `${day(one.time)} ${minute(one.time)}`), el('td', {}, t.station(one.station)), el('td', {}, t.attempt(one.number)),
      el('td', {}, el('span', { class: 'with-sign' }, stateSign(one.verdict, 22), t.verdicts[one.verdict])), el('td', {}, one.item ? t.step(one.item) : '')))))));
}

function filterBar(t) {
  const { choices } = data;
  const chevron = () => svg('svg', { width: 14, height: 10, viewBox: '0 0 14 10' }, svg('path', { d: 'M1 2L7 8L13 2', fill: 'none', stroke: 'var(--ink)', 'stroke-width': 2.4 }));
  const one = (name, shown, options) => el('label', { class: 'filter' }, el('span', { class: 'name' }, t.filters[name]), el('b', {}, shown), chevron(),
    el('select', { 'data-typed': true, tabindex: -1, on: { change: (event) => { set(name, event.target.value); event.target.blur(); } } },
      options.map(([value, words]) => el('option', { value, selected: (filters.get(name) ?? '') === value }, words))));
  const named = (name, all, values, words = (value) => value) => one(name, filters.get(name) ? words(filters.get(name)) : all, [['', all], ...values.map((value) => [value, words(value)])]);
  return el('div', { class: 'filters' },
    one('date', `${day(data.from)} — ${day(data.to)}`, choices.periods.map((days) => [String(days), `${days}`])),
    named('model', data.model ?? t.all(), choices.models), named('plan', data.plan ? `r${data.plan}` : t.all(), choices.plans, (value) => `r${value}`),
    named('station', t.allStations(choices.stations.length), choices.stations, t.stationShort), named('item', t.all(), choices.items, t.step),
    t.language === 'zh' ? el('span', { class: 'rule' }, t.firstRule()) : el('span', { class: 'rule', css: { fontSize: '15px' } }, t.firstRule()));
}

function tiles(t) {
  const { totals } = data;
  const not = totals.first - totals.first_good, notFinal = totals.first - totals.final_good;
  const make = (left, name, value, under) => el('div', { class: 'tile', css: { left: `${left}px` } }, el('div', { class: 'name' }, name), el('div', { class: 'value' }, value), el('div', { class: 'under' }, under));
  const parts = (good, bad, kind) => t.goodNot(good, bad).map((part) => (Array.isArray(part) ? opens(part[0], { list: `${kind}-${part[1]}` }, t) : part));
  return [
    make(24, t.tiles.first, [opens(t.boards(totals.first).replace(/ 块$/, ''), { list: 'first' }, t), ` ${t.unitBoards}`], t.daysStations(totals.days, totals.stations)),
    make(231, t.tiles.firstYield, `${percent(totals.first_good, totals.first)} %`, parts(totals.first_good, not, 'first')),
    make(438, t.tiles.finalYield, `${percent(totals.final_good, totals.first)} %`, parts(totals.final_good, notFinal, 'final')),
    make(645, t.tiles.notProven, [opens(String(totals.first_not_proven), { list: 'first-not-proven' }, t), ` ${t.unitBoards}`], t.within(not)),
    make(852, t.tiles.incomplete, [opens(String(totals.incomplete), { list: 'incomplete' }, t), ` ${t.unitAttempts}`], t.neither()),
    make(1059, t.tiles.leftOut, [opens(String(totals.reference + totals.trial), { list: 'left-out' }, t), ` ${t.unitAttempts}`], t.leftOutWhy(totals.reference, totals.trial)),
  ];
}

// ---- yield over days, stations or models -------------------------------------------------------

// Where the chart's area lies in its box; 100 % is its upper edge.
const CHART = { left: 62, width: 546, top: 61, height: 164, margin: 12 };

// Places of the points: days without a test leave a gap as wide as they are, up to a weekend.
function places(rows, by) {
  let x = 0;
  return rows.map((row, i) => {
    if (i) x += by === 'day' ? Math.min(3, Math.round((Date.parse(row.key) - Date.parse(rows[i - 1].key)) / 86400000)) : 1;
    return x;
  });
}

function yieldBox(t) {
  const { rows, by } = data.series;
  const at = places(rows, by), last = Math.max(1, at.at(-1) ?? 1);
  const lowest = Math.min(100, ...rows.map((row) => 100 * row.first_good / Math.max(1, row.first)));
  const floor = Math.max(0, Math.floor((lowest - 3) / 2) * 2);
  const canvas = el('canvas', { class: 'chart', width: CHART.left + CHART.width, height: CHART.height + 2 * CHART.margin });
  const box = el('section', { class: 'white yield-box', css: { left: '24px', top: '212px', width: '748px', height: '286px' } },
    el('div', { class: 'box-head' }, el('b', {}, t.yieldTitle()), el('span', { class: 'lesser' }, floor ? t.axisFrom(floor) : '')),
    el('div', { class: 'by' }, ['day', 'station', 'model'].map((one) => el('button', { type: 'button', tabindex: -1, class: one === by ? 'here' : '', on: { click: () => set('by', one) } }, t.by[one]))),
    el('div', { css: { position: 'absolute', left: '0', top: `${CHART.top - CHART.margin}px` } }, canvas),
    el('div', { class: 'at', css: { left: '606px', top: '70px', fontSize: t.language === 'en' ? '15px' : '18px', lineHeight: '28px' } },
      legendRow('square', t.finalYield()), legendRow('circle', t.firstYield())));
  const x = (i) => CHART.left + 20 + at[i] / last * (CHART.width - 40);
  rows.forEach((row, i) => {
    const words = by === 'day' ? (i === 0 ? day(row.key) : row.key.slice(8, 10)) : by === 'station' ? t.stationShort(row.key) : row.key;
    box.append(el('div', { class: 'at', css: { left: `${x(i)}px`, top: '233px', transform: 'translateX(-50%)', fontSize: '16.5px' } }, words),
      el('div', { class: 'at lesser', css: { left: `${x(i)}px`, top: '255px', transform: 'translateX(-50%)', fontSize: '16.5px' } }, opens(String(row.first), { list: 'first', [by === 'day' ? 'on' : by]: row.key }, t)));
  });
  box.append(el('div', { class: 'at lesser', css: { left: '38px', top: '255px', fontSize: '17px' } }, t.unitBoards === '块' ? t.unitBoards : ''));
  const worst = rows.reduce((best, row, i) => (best < 0 || row.first_good / row.first < rows[best].first_good / rows[best].first ? i : best), -1);
  if (data.series.low && rows[worst]?.key === data.series.low.key) {
    const { low } = data.series;
    const y = CHART.top + (100 - 100 * rows[worst].first_good / rows[worst].first) / (100 - floor) * CHART.height + 8;
    box.append(el('div', { class: 'at', css: { left: `${x(worst) - 28}px`, top: `${y}px`, fontSize: '19px' } }, el('b', {}, `${percent(rows[worst].first_good, rows[worst].first)} %`),
      el('span', { class: 'lesser', css: { marginLeft: '10px', fontSize: '17px' } }, opens(t.lowDay(low.not, low.some, t.stationShort(low.station), low.title?.[t.language] ?? low.cause), { list: 'first-not', on: low.key, station: low.station, cause: low.cause }, t))));
  }
  return { box, draw: () => drawChart(canvas, rows, at, last, floor, t) };
}

function legendRow(shape, words) {
  const mark = shape === 'square' ? svg('rect', { x: 4, y: 4, width: 11, height: 11, fill: 'none', stroke: 'var(--ink)', 'stroke-width': 2.6 }) : svg('circle', { cx: 9.5, cy: 9.5, r: 6, fill: 'var(--ink)' });
  return el('div', { css: { display: 'flex', alignItems: 'center', gap: '12px' } }, svg('svg', { width: 19, height: 19 }, mark), el('b', { css: { fontWeight: 400 } }, words));
}

function drawChart(canvas, rows, at, last, floor, t) {
  chart?.destroy();
  const ink = '#10181F', points = (key) => {
    const out = [];
    rows.forEach((row, i) => {
      if (i && at[i] - at[i - 1] > 1) out.push({ x: (at[i] + at[i - 1]) / 2, y: null });
      out.push({ x: at[i], y: 100 * row[key] / Math.max(1, row.first) });
    });
    return out;
  };
  const connect = data.series.by === 'day';
  chart = new Chart(canvas, {
    type: 'line',
    data: { datasets: [
      { clip: false, order: 1, data: points('final_good'), borderColor: ink, backgroundColor: '#FFFFFF', pointBorderColor: ink, pointBackgroundColor: '#FFFFFF', pointStyle: 'rect', pointRadius: 8, pointBorderWidth: 2.6, borderWidth: 2.4, borderDash: [6, 4], showLine: connect },
      { clip: false, order: 0, data: points('first_good'), borderColor: ink, pointBackgroundColor: ink, pointRadius: 5.5, borderWidth: 2.6, showLine: connect },
    ] },
    options: {
      animation: false, responsive: false, devicePixelRatio: 2, parsing: false, events: [],
      layout: { padding: { left: 0, right: 0, top: CHART.margin, bottom: CHART.margin } },
      plugins: { legend: { display: false }, tooltip: { enabled: false } },
      scales: {
        x: { type: 'linear', min: -last * 20 / (CHART.width - 40), max: last * (1 + 20 / (CHART.width - 40)), display: false },
        y: { min: floor, max: 100, afterFit: (axis) => { axis.width = CHART.left; }, ticks: { color: ink, font: { size: 17, family: 'Noto Sans CJK SC, sans-serif' }, callback: (value) => (value % 5 ? '' : `${value} %`), stepSize: 100 - floor > 40 ? 20 : 1, autoSkip: false }, grid: { color: (one) => (one.tick.value % 5 ? 'transparent' : '#AEB9C0'), drawBorder: false, drawTicks: false } },
      },
    },
  });
}

// ---- drift of the clock ------------------------------------------------------------------------

function driftBox(t) {
  const { drift } = data;
  const most = Math.max(1, ...drift.rows.filter((row) => row.value !== '0').flatMap((row) => row.counts));
  const cell = (row, count, i) => {
    if (!count) return el('td', {}, '·');
    const shade = row.value === '0' ? 0 : Math.round(60 * count / most);
    return el('td', { css: { background: `rgb(${245 - shade}, ${247 - shade}, ${248 - shade})` } }, row.value === '0' ? opens(String(count), { list: 'drift', on: drift.days[i], value: row.value }, t) : el('b', {}, opens(String(count), { list: 'drift', on: drift.days[i], value: row.value }, t)));
  };
  return el('section', { class: 'white', css: { left: '782px', top: '212px', width: '474px', height: '286px' } },
    el('div', { class: 'box-head' }, el('b', {}, t.drift()), el('span', { class: 'lesser' }, t.driftWhy())),
    el('table', { class: 'drift' }, drift.rows.map((row, i) => el('tr', { class: i === 0 ? 'limit' : '' }, el('td', { class: 'name' }, `${row.value} s`), row.counts.map((count, k) => cell(row, count, k)))),
      el('tr', {}, el('td', { class: 'name' }), drift.days.map((one) => el('td', { class: 'date' }, one.slice(8, 10))))),
    drift.from === undefined ? '' : el('div', { class: 'at', css: { left: '16px', bottom: '16px', fontSize: t.language === 'en' ? '16px' : '17.5px' } }, t.driftNote(drift.from, drift.to)));
}

// ---- Pareto of items and of causes -------------------------------------------------------------

const hatch = (width) => {
  const root = svg('svg', { width, height: 26, viewBox: `0 0 ${width} 26` }, svg('rect', { x: 1, y: 1, width: Math.max(1, width - 2), height: 24, fill: 'var(--amber)', stroke: 'var(--ink)', 'stroke-width': 2 }));
  for (let x = -26; x < width; x += 13) {
    const x1 = Math.max(2, x), x2 = Math.min(width - 2, x + 22);
    if (x2 > x1) root.append(svg('path', { d: `M${x1} ${24 - (x1 - x)}L${x2} ${24 - (x2 - x)}`, stroke: 'var(--ink)', 'stroke-width': 2.4 }));
  }
  return root;
};
const block = (width, colour) => svg('svg', { width, height: 26 }, svg('rect', { width, height: 26, fill: `var(--${colour})` }));

function itemsBox(t) {
  const { items } = data;
  const all = items.reduce((sum, item) => sum + item.fail + item.not_proven, 0), most = Math.max(1, ...items.map((item) => item.fail + item.not_proven));
  let sum = 0;
  const row = (item) => {
    const count = item.fail + item.not_proven;
    sum += count;
    return el('div', { class: 'bar-row' }, el('span', { class: 'name' }, t.step(item.name)), item.fail ? block(316 * item.fail / most, 'red') : '', item.not_proven ? hatch(Math.max(8, 316 * item.not_proven / most)) : '',
      el('span', { class: 'count' }, opens(String(count), { list: 'first-not', item: item.name }, t)), el('span', { class: 'right' }, t.cumulative(Math.round(100 * sum / all))));
  };
  const fail = items.reduce((total, item) => total + item.fail, 0);
  return el('section', { class: 'white', css: { left: '24px', top: '508px', width: '590px', height: '284px' } },
    el('div', { class: 'box-head' }, el('b', {}, t.whichItem()), el('span', { class: 'lesser' }, t.whichItemWhy())),
    el('div', { class: 'bars' }, items.slice(0, 6).map(row),
      el('div', { class: 'bar-row' }, el('span', { class: 'name' }), block(34, 'red'), el('span', { css: { margin: '0 8px' } }, t.fail()), opens(String(fail), { list: 'first-fail' }, t),
        el('span', { css: { width: '28px' } }), hatch(34), el('span', { css: { margin: '0 8px' } }, t.notProven()), opens(String(all - fail), { list: 'first-not-proven' }, t))));
}

function causesBox(t) {
  const { causes } = data;
  const most = Math.max(1, ...causes.rows.map((cause) => cause.count), causes.others.count, causes.unknown);
  const row = (name, count, colour, which, right, plain) => el('div', { class: 'bar-row' }, el('span', { class: 'name', css: { fontWeight: plain ? 400 : 700, color: plain ? 'var(--ink-2)' : '' } }, name), block(Math.max(3, 212 * count / most), colour), el('span', { class: 'count' }, opens(String(count), which, t)), right);
  const gathers = (cause) => (cause.gathers ? el('span', { class: 'right gathers marked' }, t.gatherAt(cause.gathers.station, cause.gathers.count)) : el('span', { class: 'right gathers' }, t.scattered()));
  return el('section', { class: 'white causes', css: { left: '624px', top: '508px', width: '632px', height: '284px' } },
    el('div', { class: 'box-head' }, el('b', {}, t.whichCause()), el('span', { class: 'lesser' }, data.repairs?.count ? t.repairsRight(data.repairs.first_cause, data.repairs.count) : t.whichCauseWhy()), el('span', { class: 'right lesser' }, t.gathers())),
    el('div', { class: 'bars' }, causes.rows.slice(0, 5).map((cause) => row(cause.title?.[t.language] ?? cause.cause, cause.count, 'ink-2', { list: 'first-not', cause: cause.cause }, gathers(cause))),
      causes.others.count ? row(t.otherCauses(causes.others.kinds), causes.others.count, 'line', { list: 'first-not', cause: '*' }, '', true) : '',
      causes.unknown ? row(t.unknownCause(), causes.unknown, 'line', { list: 'first-not', cause: '' }, '', true) : ''));
}

function render() {
  const t = text();
  tabs('yield', data?.index, t);
  const root = document.getElementById('yield');
  if (!data) {
    root.replaceChildren(problem ? el('div', { class: 'empty' }, t.refusal(problem)) : '');
    return;
  }
  if (!data.totals.first && !data.totals.incomplete && !data.totals.reference && !data.totals.trial) {
    root.replaceChildren(filterBar(t), el('div', { class: 'empty' }, el('div', {}, t.noBoards()), el('button', { type: 'button', class: 'link', on: { click: () => { history.replaceState(null, '', '?'); for (const name of [...filters.keys()]) filters.delete(name); load(); } } }, t.clearFilters())));
    return;
  }
  const { box, draw } = yieldBox(t);
  root.replaceChildren(filterBar(t), ...tiles(t), box, driftBox(t), itemsBox(t), causesBox(t));
  draw();
}

fit();
onLanguage(render);
scanner(() => {}, (code) => { location.href = `/board?serial=${encodeURIComponent(code)}`; });
load();
export { onPhone };
