// Signs and grounds of the states. Each is an SVG element; colours are tokens of style.css.

export function svg(tag, attributes = {}, ...children) {
  const node = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
  node.append(...children.flat(Infinity));
  return node;
}

export const token = (name) => `var(--${name})`;
export const round = { 'stroke-linecap': 'round', 'stroke-linejoin': 'round' };
const stroke = (colour, width) => ({ fill: 'none', stroke: token(colour), 'stroke-width': width });
export const line = (d, colour, width, more = {}) =>
  svg('path', { d, ...stroke(colour, width), ...more });
export const solid = (d, colour) => svg('path', { d, fill: token(colour) });
export const box = (x, y, width, height, colour, thick, more = {}) =>
  svg('rect', { x, y, width, height, ...stroke(colour, thick), ...more });
export const ring = (cx, cy, r, colour, width, more = {}) =>
  svg('circle', { cx, cy, r, ...stroke(colour, width), ...more });
export const disc = (cx, cy, r, colour) => svg('circle', { cx, cy, r, fill: token(colour) });

const questionMark = (colour) => [
  line('M18.2 18.6a5.9 5.9 0 1 1 8.6 5.2c-2 1-2.8 2-2.8 4.2', colour, 4, round),
  disc(24, 34.4, 2.48, colour),
];

// Drawn in 48x48; `fg` is the body, `bg` what is cut out of it.
const shapes = {
  pass: (fg, bg) => [disc(24, 24, 22, fg), line('M13.5 25.5L21 33.5L34.5 15.5', bg, 5.4, round)],
  fail: (fg, bg) => [
    solid('M15 2H33L46 15V33L33 46H15L2 33V15Z', fg),
    line('M15.5 15.5L32.5 32.5M32.5 15.5L15.5 32.5', bg, 6, round),
  ],
  'not-proven': (fg, bg) => [solid('M24 1L47 24L24 47L1 24Z', fg), questionMark(bg)],
  waits: () => [
    line('M24 2L46 24L24 46L2 24Z', 'ink', 2.4, { ...round, fill: token('amber') }),
    questionMark('ink'),
  ],
  incomplete: (fg) => [solid('M3 5H25L16 43H3Z', fg), solid('M32 5H45V43H23Z', fg)],
  running: (fg) => [solid('M4 8H32L45 24L32 40H4Z', fg)],
  'not-yet': (fg) => [ring(24, 24, 18, fg, 4, { 'stroke-dasharray': '6.4 4.9' })],
  scan: (fg) => [
    line('M3 13V3H15M33 3H45V13M45 35V45H33M15 45H3V35', fg, 5),
    line('M12.5 13.5V34.5M20 13.5V34.5M31 13.5V34.5', fg, 3.4),
    line('M16 13.5V34.5M24 13.5V34.5M27 13.5V34.5M35 13.5V34.5', fg, 1.7),
  ],
  yes: (fg) => [ring(24, 24, 20, fg, 5)],
  no: (fg) => [line('M6 6L42 42M42 6L6 42', fg, 6)],
  unknown: (fg) => [line('M24 4L44 24L24 44L4 24Z', fg, 5)],
  arrow: (fg) => [line('M2 24H40M25 7L42 24L25 41', fg, 6)],
  eye: (fg) => [line('M2 24Q24 -2 46 24Q24 50 2 24Z', fg, 4), disc(24, 24, 8, fg)],
  link: (fg) => [disc(9, 24, 8, fg), disc(39, 24, 8, fg), line('M9 24H39', fg, 5)],
  'no-link': (fg) => [ring(9, 24, 7, fg, 4), ring(37, 24, 7, fg, 4)],
};

export function sign(kind, size, fg = 'ink', bg = 'white') {
  const attributes = { width: size, height: size, viewBox: '0 0 48 48', 'aria-hidden': 'true' };
  return svg('svg', attributes, shapes[kind](fg, bg));
}

// The sign in the colour of its state, on white.
const ownColours = {
  pass: ['green', 'white'], fail: ['red', 'white'], incomplete: ['ink-2'], running: ['blue'],
  'not-yet': ['grey'],
};
export function stateSign(state, size) {
  if (state === 'not-proven') return sign('waits', size);
  return sign(state, size, ...(ownColours[state] ?? ['ink']));
}

// The sign of a step, or of a frame of the drawing, on the colour of its state.
const stepColours = {
  pass: ['green', 'white'], fail: ['white', 'red'], 'not-proven': ['ink', 'amber'],
  incomplete: ['white'], running: ['white'], 'not-yet': ['grey'],
};
export function stepSign(state, size) {
  const kind = state === 'waits' ? 'not-proven' : state;
  return sign(kind, size, ...stepColours[kind]);
}

// The sign on a ground that is flooded with the verdict's colour.
export function floodSign(verdict, size) {
  return verdict === 'pass' ? sign('pass', size, 'white', 'green-panel') : stepSign(verdict, size);
}

// ---- grounds -----------------------------------------------------------------------------------

// A warning's stripes, from edge to edge.
function stripes(width, y, height) {
  const group = svg('g', {}, svg('rect', { x: 0, y, width, height, fill: token('ink') }));
  const inside = (x) => Math.min(Math.max(x, 0), width);
  for (let x = -height; x < width; x += 36) {
    const corners = [[x, y + height], [x + height, y], [x + height + 18, y], [x + 18, y + height]];
    const points = corners.map(([px, py]) => `${inside(px)},${py}`).join(' ');
    group.append(svg('polygon', { points, fill: token('amber') }));
  }
  return group;
}

function octagon(width, height, inset) {
  const cut = Math.min(60, height * 0.19 + 0.1) * (height > 200 ? 1 : 1.3) - inset * 0.1;
  const l = inset, t = inset, r = width - inset, b = height - inset;
  return `M${l + cut} ${t}H${r - cut}L${r} ${t + cut}V${b - cut}L${r - cut} ${b}H${l + cut}`
    + `L${l} ${b - cut}V${t + cut}Z`;
}

const grounds = {
  pass(w, h, rim, look) {
    const width = w - rim, height = h - rim;
    const place = { x: rim / 2, y: rim / 2, width, height, rx: height / 2 };
    return [svg('rect', { ...place, ...look('green-panel', 'green') })];
  },
  fail(w, h, rim, look) {
    const body = svg('path', { d: octagon(w, h, rim / 2), ...look('red') });
    return rim ? [body] : [body, line(octagon(w, h, 9), 'white', 3)];
  },
  'not-proven'(w, h, rim, look) {
    const stripe = h > 200 ? 20 : 15;
    return [svg('rect', { width: w, height: h, fill: look('amber').fill }), stripes(w, 0, stripe),
      stripes(w, h - stripe, stripe), box(2, 2, w - 4, h - 4, 'ink', 4)];
  },
  // Cut through, three quarters from the left.
  incomplete(w, h, rim, look) {
    const t = rim / 2, b = h - t, l = t, r = w - t;
    const top = w * 0.75 + h * 0.175, bottom = w * 0.75 - h * 0.175, gap = 24;
    return [svg('path', { d: `M${l} ${t}H${top}L${bottom} ${b}H${l}Z`, ...look('ink-2') }),
      svg('path', { d: `M${top + gap} ${t}H${r}V${b}H${bottom + gap}Z`, ...look('ink-2') })];
  },
};

// The outline of a verdict's panel. `flooded`: of the board on the fixture; else of the last board.
export function ground(verdict, width, height, flooded) {
  const rim = flooded ? 0 : height > 200 ? 10 : 8;
  const look = (fill, edge = fill) =>
    ({ fill: token(flooded ? fill : 'white'), stroke: token(edge), 'stroke-width': rim });
  const attributes = { width, height, viewBox: `0 0 ${width} ${height}`, 'aria-hidden': 'true' };
  return svg('svg', { class: 'ground', ...attributes },
    grounds[verdict](width, height, rim, look));
}
