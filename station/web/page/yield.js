// The Yield page: first-pass and final yield, what failed and why, drift. Every number opens the
// list of boards behind it.

import { button, day, el, fit, get, minute, onLanguage, scanner, text } from './common.js';
import { box, disc, line, stateSign, svg, token } from './signs.js';
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
const opens = (words, which, t) =>
  button({ class: 'opens', 'data-list': JSON.stringify(which) }, () => list(which, t), words);

async function list(which, t) {
  const query = new URLSearchParams(filters);
  for (const [name, value] of Object.entries(which)) query.set(name, value);
  let boards = [], failed = '';
  try {
    boards = (await get(`/api/list?${query}`)).boards;
  } catch (error) {
    failed = t.refusal(error.code ?? 'offline');
  }
  const close = () => document.getElementById('list')?.remove();
  close();
  document.getElementById('page').append(el('section', { id: 'list' },
    el('div', { class: 'top' }, el('b', {}, failed || t.boardsBehind(boards.length)),
      button({ class: 'link' }, close, t.close())),
    el('div', { class: 'rows' }, el('table', {}, boards.map((one) => boardRow(one, t))))));
}

function boardRow({ serial, id, time, station, number, verdict, item }, t) {
  const href = `/board?serial=${encodeURIComponent(serial)}&id=${encodeURIComponent(id)}`;
  const sign = el('span', { class: 'with-sign' }, stateSign(verdict, 22), t.verdicts[verdict]);
  const cells = [el('a', { href }, serial), `${day(time)} ${minute(time)}`, t.station(station),
    t.attempt(number), sign, item ? t.step(item) : ''];
  return el('tr', {}, cells.map((cell) => el('td', {}, cell)));
}

// ---- filters and totals ------------------------------------------------------------------------

function filterBar(t) {
  const { choices } = data;
  const change = (name) => (event) => { set(name, event.target.value); event.target.blur(); };
  const filter = (name, shown, options) => el('label', { class: 'filter' },
    el('span', { class: 'name' }, t.filters[name]), el('b', {}, shown),
    svg('svg', { width: 14, height: 10 }, line('M1 2L7 8L13 2', 'ink', 2.4)),
    el('select', { 'data-typed': true, tabindex: -1, on: { change: change(name) } },
      options.map(([value, words]) =>
        el('option', { value, selected: (filters.get(name) ?? '') === value }, words))));
  const named = (name, all, values, words = (value) => value) => {
    const chosen = filters.get(name);
    return filter(name, chosen ? words(chosen) : all,
      [['', all], ...values.map((value) => [value, words(value)])]);
  };
  return el('div', { class: 'filters' },
    filter('date', `${day(data.from)} — ${day(data.to)}`,
      choices.periods.map((days) => [String(days), `${days}`])),
    named('model', data.model ?? t.all(), choices.models),
    named('plan', data.plan ? `r${data.plan}` : t.all(), choices.plans, (value) => `r${value}`),
    named('station', t.allStations(choices.stations.length), choices.stations, t.stationShort),
    named('item', t.all(), choices.items, t.step), el('span', { class: 'rule' }, t.firstRule()));
}

function tiles(t) {
  const all = data.totals;
  const not = all.first - all.first_good, notFinal = all.first - all.final_good;
  const tile = (name, value, under) => el('div', { class: 'tile' },
    el('div', { class: 'name' }, t.tiles[name]), el('div', { class: 'value' }, value),
    el('div', { class: 'under' }, under));
  const count = (number, which, unit) =>
    [opens(String(number), { list: which }, t), ` ${unit}`];
  const parts = (good, bad, kind) => t.goodNot(good, bad).map((part) =>
    (Array.isArray(part) ? opens(part[0], { list: `${kind}-${part[1]}` }, t) : part));
  const first = t.boards(all.first).replace(/ 块$/, '');
  return el('div', { class: 'tiles' },
    tile('first', count(first, 'first', t.unitBoards), t.daysStations(all.days, all.stations)),
    tile('firstYield', `${percent(all.first_good, all.first)} %`,
      parts(all.first_good, not, 'first')),
    tile('finalYield', `${percent(all.final_good, all.first)} %`,
      parts(all.final_good, notFinal, 'final')),
    tile('notProven', count(all.first_not_proven, 'first-not-proven', t.unitBoards), t.within(not)),
    tile('incomplete', count(all.incomplete, 'incomplete', t.unitAttempts), t.neither()),
    tile('leftOut', count(all.reference + all.trial, 'left-out', t.unitAttempts),
      t.leftOutWhy(all.reference, all.trial)));
}

const boxHead = (head, ...rest) => el('div', { class: 'box-head' }, el('b', {}, head), rest);
const lesser = (words) => el('span', { class: 'lesser' }, words);

// ---- yield over days, stations or models -------------------------------------------------------

// Where the chart's area lies in its box; 100 % is its upper edge.
const CHART = { left: 62, width: 546, top: 61, height: 164, margin: 12 };
const DAY_MS = 86400000;

// Places of the points: days without a test leave a gap as wide as they are, up to a weekend.
function places(rows, by) {
  let x = 0;
  return rows.map((row, i) => {
    if (i === 0) return x;
    const days = (Date.parse(row.key) - Date.parse(rows[i - 1].key)) / DAY_MS;
    x += by === 'day' ? Math.min(3, Math.round(days)) : 1;
    return x;
  });
}

const firstYield = (row) => row.first_good / row.first;

function yieldBox(t) {
  const { rows, by } = data.series;
  const at = places(rows, by), last = Math.max(1, at.at(-1) ?? 1);
  const lowest = Math.min(100, ...rows.map((row) => 100 * row.first_good / Math.max(1, row.first)));
  const floor = Math.max(0, Math.floor((lowest - 3) / 2) * 2);
  const x = (i) => CHART.left + 20 + at[i] / last * (CHART.width - 40);
  const canvas = el('canvas', { class: 'chart', css: { top: `${CHART.top - CHART.margin}px` },
    width: CHART.left + CHART.width, height: CHART.height + 2 * CHART.margin });
  const node = el('section', { class: 'white yield-box' },
    boxHead(t.yieldTitle(), lesser(floor ? t.axisFrom(floor) : '')),
    el('div', { class: 'by' }, ['day', 'station', 'model'].map((one) =>
      button({ class: one === by ? 'here' : '' }, () => set('by', one), t.by[one]))),
    canvas,
    el('div', { class: 'at lines' },
      lineName(box(4, 4, 11, 11, 'ink', 2.6), t.finalYield()),
      lineName(disc(9.5, 9.5, 6, 'ink'), t.firstYield())),
    rows.map((row, i) => pointNames(t, row, by, i, x(i))),
    el('div', { class: 'at lesser unit' }, t.unitBoards === '块' ? t.unitBoards : ''),
    lowPoint(t, data.series, floor, x));
  return { node, draw: () => drawChart(canvas, rows, at, last, floor) };
}

const lineName = (mark, words) =>
  el('div', {}, svg('svg', { width: 19, height: 19 }, mark), el('span', {}, words));

// Below a point: what it stands for, and how many boards.
function pointNames(t, row, by, i, x) {
  const words = by === 'station' ? t.stationShort(row.key)
    : by === 'model' ? row.key : i === 0 ? day(row.key) : row.key.slice(8, 10);
  const which = { list: 'first', [by === 'day' ? 'on' : by]: row.key };
  const css = { left: `${x}px` };
  return [el('div', { class: 'at point', css }, words),
    el('div', { class: 'at point boards lesser', css }, opens(String(row.first), which, t))];
}

// What stands out at the lowest point.
function lowPoint(t, { rows, low }, floor, x) {
  const worst = rows.reduce(
    (best, row, i) => (best < 0 || firstYield(row) < firstYield(rows[best]) ? i : best), -1);
  if (!low || rows[worst]?.key !== low.key) return '';
  const { key, station, cause, not, some } = low;
  const share = 100 * firstYield(rows[worst]);
  const top = CHART.top + (100 - share) / (100 - floor) * CHART.height + 8;
  const words = t.lowDay(not, some, t.stationShort(station), low.title?.[t.language] ?? cause);
  const css = { left: `${x(worst) - 28}px`, top: `${top}px` };
  return el('div', { class: 'at low', css },
    el('b', {}, `${percent(rows[worst].first_good, rows[worst].first)} %`),
    el('span', { class: 'lesser' },
      opens(words, { list: 'first-not', on: key, station, cause }, t)));
}

const INK = '#10181F', WHITE = '#FFFFFF', LINE = '#AEB9C0';
const finalLine = {
  clip: false, order: 1, borderColor: INK, borderWidth: 2.4, borderDash: [6, 4],
  backgroundColor: WHITE, pointBorderColor: INK, pointBackgroundColor: WHITE, pointStyle: 'rect',
  pointRadius: 8, pointBorderWidth: 2.6,
};
const firstLine = {
  clip: false, order: 0, borderColor: INK, borderWidth: 2.6, pointBackgroundColor: INK,
  pointRadius: 5.5,
};

// A gap of several days has a point without a value in its middle, which breaks the line.
function pointsOf(rows, at, key) {
  const points = [];
  rows.forEach((row, i) => {
    if (i && at[i] - at[i - 1] > 1) points.push({ x: (at[i] + at[i - 1]) / 2, y: null });
    points.push({ x: at[i], y: 100 * row[key] / Math.max(1, row.first) });
  });
  return points;
}

function drawChart(canvas, rows, at, last, floor) {
  chart?.destroy();
  const showLine = data.series.by === 'day';
  const edge = last * 20 / (CHART.width - 40);
  chart = new Chart(canvas, {
    type: 'line',
    data: { datasets: [
      { ...finalLine, data: pointsOf(rows, at, 'final_good'), showLine },
      { ...firstLine, data: pointsOf(rows, at, 'first_good'), showLine },
    ] },
    options: {
      animation: false, responsive: false, devicePixelRatio: 2, parsing: false, events: [],
      layout: { padding: { left: 0, right: 0, top: CHART.margin, bottom: CHART.margin } },
      plugins: { legend: { display: false }, tooltip: { enabled: false } },
      scales: {
        x: { type: 'linear', min: -edge, max: last + edge, display: false },
        y: percentAxis(floor),
      },
    },
  });
}

// The axis from `floor` to 100 %, with a line each 5 %.
const percentAxis = (floor) => ({
  min: floor, max: 100,
  afterFit: (axis) => { axis.width = CHART.left; },
  ticks: {
    color: INK, font: { size: 17, family: 'Noto Sans CJK SC, sans-serif' }, autoSkip: false,
    stepSize: 100 - floor > 40 ? 20 : 1, callback: (value) => (value % 5 ? '' : `${value} %`),
  },
  grid: {
    color: (one) => (one.tick.value % 5 ? 'transparent' : LINE),
    drawBorder: false, drawTicks: false,
  },
});

// ---- drift of the clock ------------------------------------------------------------------------

function driftBox(t) {
  const { drift } = data;
  const off = drift.rows.filter((row) => row.value !== '0').flatMap((row) => row.counts);
  const most = Math.max(1, ...off);
  const cell = ({ value }, count, i) => {
    if (!count) return el('td', {}, '·');
    const shade = value === '0' ? 0 : Math.round(60 * count / most);
    const number = opens(String(count), { list: 'drift', on: drift.days[i], value }, t);
    return el('td', { css: { background: `rgb(${245 - shade}, ${247 - shade}, ${248 - shade})` } },
      value === '0' ? number : el('b', {}, number));
  };
  return el('section', { class: 'white drift-box' }, boxHead(t.drift(), lesser(t.driftWhy())),
    el('table', { class: 'drift' }, drift.rows.map((row, i) =>
      el('tr', { class: i === 0 ? 'limit' : '' }, el('td', { class: 'name' }, `${row.value} s`),
        row.counts.map((count, k) => cell(row, count, k)))),
    el('tr', {}, el('td', { class: 'name' }),
      drift.days.map((one) => el('td', { class: 'date' }, one.slice(8, 10))))),
    drift.from === undefined ? ''
      : el('div', { class: 'at note' }, t.driftNote(drift.from, drift.to)));
}

// ---- Pareto of items and of causes -------------------------------------------------------------

function hatch(width) {
  const root = svg('svg', { width, height: 26, viewBox: `0 0 ${width} 26` },
    box(1, 1, Math.max(1, width - 2), 24, 'ink', 2, { fill: token('amber') }));
  for (let x = -26; x < width; x += 13) {
    const x1 = Math.max(2, x), x2 = Math.min(width - 2, x + 22);
    const d = `M${x1} ${24 - (x1 - x)}L${x2} ${24 - (x2 - x)}`;
    if (x2 > x1) root.append(line(d, 'ink', 2.4));
  }
  return root;
}
const block = (width, colour) => svg('svg', { width, height: 26 },
  svg('rect', { width, height: 26, fill: token(colour) }));
const barRow = (...children) => el('div', { class: 'bar-row' }, children);
const bars = (...rows) => el('div', { class: 'bars' }, rows);
const span = (name, words) => el('span', { class: name }, words);

function itemsBox(t) {
  const { items } = data;
  const countOf = (item) => item.fail + item.not_proven;
  const all = items.reduce((sum, item) => sum + countOf(item), 0);
  const fail = items.reduce((sum, item) => sum + item.fail, 0);
  const most = Math.max(1, ...items.map(countOf));
  let sum = 0;
  const row = (item) => {
    sum += countOf(item);
    const { name, fail: failed, not_proven } = item;
    return barRow(span('name', t.step(name)),
      failed ? block(316 * failed / most, 'red') : '',
      not_proven ? hatch(Math.max(8, 316 * not_proven / most)) : '',
      span('count', opens(String(countOf(item)), { list: 'first-not', item: name }, t)),
      span('right', t.cumulative(Math.round(100 * sum / all))));
  };
  return el('section', { class: 'white items-box' },
    boxHead(t.whichItem(), lesser(t.whichItemWhy())),
    bars(items.slice(0, 6).map(row),
      barRow(span('name'), block(34, 'red'), span('kind', t.fail()),
        opens(String(fail), { list: 'first-fail' }, t), hatch(34), span('kind', t.notProven()),
        opens(String(all - fail), { list: 'first-not-proven' }, t))));
}

function causesBox(t) {
  const { causes: { rows, others, unknown }, repairs } = data;
  const most = Math.max(1, ...rows.map((cause) => cause.count), others.count, unknown);
  const row = (kind, name, count, colour, cause, right) => barRow(span(kind, name),
    block(Math.max(3, 212 * count / most), colour),
    span('count', opens(String(count), { list: 'first-not', cause }, t)), right);
  const rest = (name, count, cause) =>
    (count ? row('name plain', name, count, 'line', cause, '') : '');
  const gathers = ({ gathers: at }) => (at
    ? span('right gathers marked', t.gatherAt(at.station, at.count))
    : span('right gathers', t.scattered()));
  const why = repairs?.count ? t.repairsRight(repairs.first_cause, repairs.count)
    : t.whichCauseWhy();
  return el('section', { class: 'white causes' },
    boxHead(t.whichCause(), lesser(why), span('right lesser', t.gathers())),
    bars(rows.slice(0, 5).map((one) => row('name', one.title?.[t.language] ?? one.cause,
      one.count, 'ink-2', one.cause, gathers(one))),
    rest(t.otherCauses(others.kinds), others.count, '*'), rest(t.unknownCause(), unknown, '')));
}

// ---- the page ----------------------------------------------------------------------------------

function clearFilters() {
  history.replaceState(null, '', '?');
  for (const name of [...filters.keys()]) filters.delete(name);
  load();
}

function render() {
  const t = text();
  tabs('yield', data?.index, t);
  const root = document.getElementById('yield');
  const empty = (...children) => el('div', { class: 'empty' }, children);
  if (!data) {
    root.replaceChildren(problem ? empty(t.refusal(problem)) : '');
    return;
  }
  const { first, incomplete, reference, trial } = data.totals;
  if (!first && !incomplete && !reference && !trial) {
    const clear = button({ class: 'link' }, clearFilters, t.clearFilters());
    root.replaceChildren(filterBar(t), empty(el('div', {}, t.noBoards()), clear));
    return;
  }
  const { node, draw } = yieldBox(t);
  root.replaceChildren(filterBar(t), tiles(t), node, driftBox(t), itemsBox(t), causesBox(t));
  draw();
}

fit();
onLanguage(render);
scanner(() => {}, (code) => { location.href = `/board?serial=${encodeURIComponent(code)}`; });
load();
