// Signs and grounds of the states. Each is an SVG element; colours are tokens of style.css.

export function svg(tag, attributes = {}, ...children) {
  const node = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(attributes)) node.setAttribute(name, value);
  node.append(...children);
  return node;
}

const token = (name) => `var(--${name})`;
const path = (d, attributes) => svg('path', { d, fill: 'none', ...attributes });
const stroke = (d, colour, width) =>
  path(d, { stroke: token(colour), 'stroke-width': width, 'stroke-linecap': 'round', 'stroke-linejoin': 'round' });
const octagon = 'M15 2H33L46 15V33L33 46H15L2 33V15Z';

const questionMark = (colour, width = 4) => [
  stroke('M18.2 18.6a5.9 5.9 0 1 1 8.6 5.2c-2 1-2.8 2-2.8 4.2', colour, width),
  svg('circle', { cx: 24, cy: 34.4, r: width * 0.62, fill: token(colour) }),
];

// Drawn in 48x48; `fg` is the body, `bg` what is cut out of it.
const shapes = {
  pass: (fg, bg) => [svg('circle', { cx: 24, cy: 24, r: 22, fill: token(fg) }), stroke('M13.5 25.5L21 33.5L34.5 15.5', bg, 5.4)],
  fail: (fg, bg) => [path(octagon, { fill: token(fg) }), stroke('M15.5 15.5L32.5 32.5M32.5 15.5L15.5 32.5', bg, 6)],
  'not-proven': (fg, bg) => [path('M24 1L47 24L24 47L1 24Z', { fill: token(fg), 'stroke-linejoin': 'round' }), ...questionMark(bg)],
  waits: () => [path('M24 2L46 24L24 46L2 24Z', { fill: token('amber'), stroke: token('ink'), 'stroke-width': 2.4, 'stroke-linejoin': 'round' }), ...questionMark('ink')],
  incomplete: (fg) => [path('M3 5H25L16 43H3Z', { fill: token(fg) }), path('M32 5H45V43H23Z', { fill: token(fg) })],
  running: (fg) => [path('M4 8H32L45 24L32 40H4Z', { fill: token(fg) })],
  'not-yet': (fg) => [svg('circle', { cx: 24, cy: 24, r: 18, fill: 'none', stroke: token(fg), 'stroke-width': 4, 'stroke-dasharray': '6.4 4.9' })],
  scan: (fg) => [
    path('M3 13V3H15M33 3H45V13M45 35V45H33M15 45H3V35', { stroke: token(fg), 'stroke-width': 5 }),
    path('M12.5 13.5V34.5M20 13.5V34.5M31 13.5V34.5', { stroke: token(fg), 'stroke-width': 3.4 }), path('M16 13.5V34.5M24 13.5V34.5M27 13.5V34.5M35 13.5V34.5', { stroke: token(fg), 'stroke-width': 1.7 }),
  ],
  yes: (fg) => [svg('circle', { cx: 24, cy: 24, r: 20, fill: 'none', stroke: token(fg), 'stroke-width': 5 })],
  no: (fg) => [path('M6 6L42 42M42 6L6 42', { stroke: token(fg), 'stroke-width': 6 })],
  unknown: (fg) => [path('M24 4L44 24L24 44L4 24Z', { stroke: token(fg), 'stroke-width': 5 })],
  arrow: (fg) => [path('M2 24H40M25 7L42 24L25 41', { stroke: token(fg), 'stroke-width': 6 })],
  eye: (fg) => [
    path('M2 24Q24 -2 46 24Q24 50 2 24Z', { stroke: token(fg), 'stroke-width': 4 }),
    svg('circle', { cx: 24, cy: 24, r: 8, fill: token(fg) }),
  ],
  link: (fg) => [svg('circle', { cx: 9, cy: 24, r: 8, fill: token(fg) }), svg('circle', { cx: 39, cy: 24, r: 8, fill: token(fg) }), path('M9 24H39', { stroke: token(fg), 'stroke-width': 5 })],
  'no-link': (fg) => [svg('circle', { cx: 9, cy: 24, r: 7, fill: 'none', stroke: token(fg), 'stroke-width': 4 }), svg('circle', { cx: 37, cy: 24, r: 7, fill: 'none', stroke: token(fg), 'stroke-width': 4 })],
};

export function sign(kind, size, fg = 'ink', bg = 'white') {
  return svg('svg', { width: size, height: size, viewBox: '0 0 48 48', 'aria-hidden': 'true' }, ...shapes[kind](fg, bg));
}

// The sign in the colour of its state, on white.
const ownColours = { pass: ['green', 'white'], fail: ['red', 'white'], 'not-proven': ['ink', 'amber'], incomplete: ['ink-2'], running: ['blue'], 'not-yet': ['grey'] };
export function stateSign(state, size) {
  return state === 'not-proven' ? sign('waits', size) : sign(state, size, ...(ownColours[state] ?? ['ink']));
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

function bands(width, y, height) {
  const group = svg('g');
  group.append(svg('rect', { x: 0, y, width, height, fill: token('ink') }));
  for (let x = -height; x < width + height; x += 36) {
    const left = Math.max(x, 0), slant = height;
    const points = [[x, y + height], [x + slant, y], [x + slant + 18, y], [x + 18, y + height]].map(([px, py]) => `${Math.min(Math.max(px, 0), width)},${py}`);
    if (left < width) group.append(svg('polygon', { points: points.join(' '), fill: token('amber') }));
  }
  return group;
}

// The outline of a verdict's panel. `flooded`: of the board on the fixture; else of the last board.
export function ground(verdict, width, height, flooded) {
  const root = svg('svg', { class: 'ground', width, height, viewBox: `0 0 ${width} ${height}`, 'aria-hidden': 'true' });
  const rim = flooded ? 0 : height > 200 ? 10 : 8;
  const fill = (colour) => (flooded ? token(colour) : token('white'));
  const inset = rim / 2;
  if (verdict === 'pass') {
    const w = width - rim, h = height - rim;
    root.append(svg('rect', { x: inset, y: inset, width: w, height: h, rx: h / 2, fill: fill('green-panel'), stroke: token('green'), 'stroke-width': rim }));
  } else if (verdict === 'fail') {
    const cut = Math.min(60, height * 0.19 + 0.1);
    const corner = (d) => {
      const c = cut * (height > 200 ? 1 : 1.3) - d * 0.1;
      const l = d, t = d, r = width - d, b = height - d;
      return `M${l + c} ${t}H${r - c}L${r} ${t + c}V${b - c}L${r - c} ${b}H${l + c}L${l} ${b - c}V${t + c}Z`;
    };
    root.append(path(corner(inset), { fill: fill('red'), stroke: token('red'), 'stroke-width': rim }));
    if (flooded) root.append(path(corner(9), { stroke: token('white'), 'stroke-width': 3 }));
  } else if (verdict === 'not-proven') {
    root.append(svg('rect', { width, height, fill: fill('amber') }), bands(width, 0, height > 200 ? 20 : 15),
      bands(width, height - (height > 200 ? 20 : 15), height > 200 ? 20 : 15),
      svg('rect', { x: 2, y: 2, width: width - 4, height: height - 4, fill: 'none', stroke: token('ink'), 'stroke-width': 4 }));
  } else {
    const gap = 24, end = width * 0.25, slant = height * 0.35;
    const attributes = { fill: fill('ink-2'), stroke: token('ink-2'), 'stroke-width': rim };
    root.append(path(`M${inset} ${inset}H${width - end + slant / 2}L${width - end - slant / 2} ${height - inset}H${inset}Z`, attributes),
      path(`M${width - end + slant / 2 + gap} ${inset}H${width - inset}V${height - inset}H${width - end - slant / 2 + gap}Z`, attributes));
  }
  return root;
}
