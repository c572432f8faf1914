// Where the nodes of a network stand in its drawing: each ring on an ellipse, its RPL at the left;
// each sub-ring as an arc outside of the ring that it hangs at.

// Sizes by the number of nodes: of a node, of one in several rings, and from node to node.
function nodeSizes(count) {
  if (count <= 8) return {tier: "large", width: 104, wide: 150, height: 46, spacing: 166, aspect: 1};
  if (count <= 20) return {tier: "medium", width: 78, wide: 132, height: 36, spacing: 98, aspect: 1.3};
  if (count <= 80) return {tier: "small", width: 21, wide: 21, height: 21, spacing: 28, aspect: 1.2};
  return {tier: "tiny", width: 8, wide: 8, height: 8, spacing: 9.5, aspect: 1.2};
}

// Points at equal distances along an ellipse, clockwise, the middle between the last and the first
// at the left.
function ellipsePoints(count, radiusX, radiusY) {
  const kSamples = 1440;
  const lengths = [0];
  const at = (i) => {
    const angle = Math.PI + 2 * Math.PI * i / kSamples;
    return {x: radiusX * Math.cos(angle), y: radiusY * Math.sin(angle)};
  };
  for (let i = 1; i <= kSamples; ++i) {
    const one = at(i - 1), other = at(i);
    lengths.push(lengths[i - 1] + Math.hypot(other.x - one.x, other.y - one.y));
  }
  return Array.from({length: count}, (_, i) => {
    const along = lengths[kSamples] * (i + 0.5) / count;
    const before = countUntil(lengths, along) - 1;
    return at(before + (along - lengths[before]) / (lengths[before + 1] - lengths[before]));
  });
}

function centreOf(points) {
  const sum = points.reduce((total, {x, y}) => ({x: total.x + x, y: total.y + y}), {x: 0, y: 0});
  return {x: sum.x / points.length, y: sum.y / points.length};
}

class Layout {
  constructor(run) {
    this.run = run;
    this.sizes = nodeSizes(run.nodes.length);
    this.points = new Array(run.nodes.length).fill(null);
    this.outward = new Array(run.nodes.length).fill(null);  // unit vector away from the ring
    let right = null;
    for (const ring of run.rings.filter(({open}) => !open)) right = this.placeRing(ring, right);
    // A sub-ring may hang at a sub-ring.
    const open = run.rings.filter(({open: isOpen}) => isOpen);
    for (let turn = 0; turn < open.length; ++turn) {
      for (const ring of open) this.placeSubRing(ring);
    }
    this.placeRest();
    this.frame();
  }

  placeRing(ring, right) {
    const count = ring.nodes.length;
    const {spacing, aspect} = this.sizes;
    const circumference = Math.max(count * spacing, count <= 8 ? 940 : 760);
    const radiusY = circumference / (Math.PI * (1 + aspect));
    const first = (ring.links.indexOf(ring.rpl) + 1) % count;
    const points = ellipsePoints(count, radiusY * aspect, radiusY);
    const centreX = right === null ? 0 : right + radiusY * aspect + 2 * this.sizes.width + 40;
    points.forEach((point, i) => {
      const node = ring.nodes[(first + i) % count];
      if (this.points[node] !== null) return;
      const length = Math.hypot(point.x, point.y);
      this.outward[node] = {x: point.x / length, y: point.y / length};
      this.points[node] = {x: point.x + centreX, y: point.y};
    });
    return centreX + radiusY * aspect;
  }

  placeSubRing(ring) {
    const inner = ring.nodes.slice(1, -1);
    const one = this.points[ring.nodes[0]], other = this.points[ring.nodes.at(-1)];
    if (one === null || other === null || inner.some((node) => this.points[node] !== null)) return;
    const major = this.run.rings[ring.major];
    const around = major.nodes.map((node) => this.points[node]).filter((point) => point !== null);
    const centre = centreOf(around), middle = centreOf([one, other]);
    let out = {x: middle.x - centre.x, y: middle.y - centre.y};
    const length = Math.hypot(out.x, out.y);
    const along = {x: (one.x - other.x) / 2, y: (one.y - other.y) / 2};
    const half = Math.hypot(along.x, along.y) || 1;
    out = length > 1 ? {x: out.x / length, y: out.y / length}
      : {x: -along.y / half, y: along.x / half};
    // Beyond whatever of the ring lies between the two ends.
    const beyond = Math.max(...around.map((point) =>
      (point.x - middle.x) * out.x + (point.y - middle.y) * out.y));
    const bulge = Math.max(beyond, 0) + Math.max(this.sizes.spacing * 1.3,
      this.sizes.spacing * (inner.length + 1) / Math.PI);
    const widen = Math.max(1, this.sizes.spacing * (inner.length - 1) / (2 * half));
    inner.forEach((node, i) => {
      const angle = Math.PI * (i + 1) / (inner.length + 1);
      const flat = (value) => Math.sign(value) * Math.sqrt(Math.abs(value));
      const side = flat(Math.cos(angle)) * widen * (inner.length === 2 ? Math.SQRT2 : 1);
      const away = flat(Math.sin(angle)) * bulge;
      this.points[node] = {x: middle.x + along.x * side + out.x * away,
        y: middle.y + along.y * side + out.y * away};
      this.outward[node] = out;
    });
  }

  // Nodes of no ring stand in a row below.
  placeRest() {
    const placed = this.points.filter((point) => point !== null);
    const bottom = placed.length ? Math.max(...placed.map(({y}) => y)) : 0;
    let column = 0;
    this.points.forEach((point, node) => {
      if (point !== null) return;
      this.points[node] = {x: (column++) * this.sizes.spacing, y: bottom + this.sizes.spacing};
      this.outward[node] = {x: 0, y: 1};
    });
  }

  widthOf(node) {
    return this.run.placesOfNode[node].length > 1 ? this.sizes.wide : this.sizes.width;
  }

  frame() {
    const labels = {large: 0, medium: 20, small: 44, tiny: 40}[this.sizes.tier];
    const marginX = this.sizes.wide / 2 + 22 + labels, marginY = this.sizes.height / 2 + 24 + labels;
    const xs = this.points.map(({x}) => x), ys = this.points.map(({y}) => y);
    const left = Math.min(...xs) - marginX, top = Math.min(...ys) - marginY;
    this.box = {left, top, width: Math.max(...xs) + marginX - left,
      height: Math.max(...ys) + marginY - top};
  }
}
