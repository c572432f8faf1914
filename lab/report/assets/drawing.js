// The network as a picture that follows the time.

const kLetters = {init: "N", idle: "I", protection: "P", manual: "M", forced: "F", pending: "W",
  off: "×", booting: "…", stopped: "■"};

function between(one, other, share) {
  return {x: one.x + (other.x - one.x) * share, y: one.y + (other.y - one.y) * share};
}

class Drawing {
  constructor(run, layout, host) {
    Object.assign(this, {run, layout});
    const {left, top, width, height} = layout.box;
    this.links = run.links.map((link, index) => this.makeLink(link, index));
    this.flights = svg("g", {class: "flights"});
    this.nodes = run.nodes.map((name, node) => this.makeNode(name, node));
    this.label = svg("title");
    this.root = svg("svg", {class: `network ${layout.sizes.tier}`, role: "img",
      viewBox: `${left} ${top} ${width} ${height}`}, this.label,
      svg("g", {}, ...this.links.map(({group}) => group)),
      svg("g", {}, ...this.nodes.map(({group}) => group)),
      svg("g", {}, ...this.links.map(({above}) => above)), this.flights);
    host.append(this.root);
  }

  // Where a line from a node towards another one leaves the node's shape.
  rim(node, towards) {
    const from = this.layout.points[node], to = this.layout.points[towards];
    const {height, tier} = this.layout.sizes;
    const width = this.layout.widthOf(node);
    const dx = to.x - from.x, dy = to.y - from.y, length = Math.hypot(dx, dy) || 1;
    const reach = tier === "small" || tier === "tiny" ? width / 2
      : Math.min(width / 2 / (Math.abs(dx / length) || 1e-9), height / 2 / (Math.abs(dy / length) || 1e-9));
    const share = Math.min(0.45, (reach + 1) / length);
    return between(from, to, share);
  }

  makeLink(link, index) {
    const {sizes} = this.layout;
    const [a, b] = link.nodes;
    const one = this.rim(a, b), other = this.rim(b, a);
    const length = Math.hypot(other.x - one.x, other.y - one.y) || 1;
    const unit = {x: (other.x - one.x) / length, y: (other.y - one.y) / length};
    const middle = between(one, other, 0.5);
    const bar = {large: 9, medium: 7, small: 6, tiny: 4}[sizes.tier];
    const inset = Math.min(length * 0.22, bar + 3);
    const bars = [one, other].map((end, i) => {
      const sign = i === 0 ? 1 : -1;
      const x = end.x + sign * unit.x * inset, y = end.y + sign * unit.y * inset;
      return svg("line", {class: "bar", x1: x - unit.y * bar, y1: y + unit.x * bar,
        x2: x + unit.y * bar, y2: y - unit.x * bar});
    });
    const arm = sizes.tier === "tiny" ? 6 : Math.min(bar, 8);
    const cross = svg("path", {class: "cross",
      d: `M${middle.x - arm} ${middle.y - arm}l${2 * arm} ${2 * arm}m0 ${-2 * arm}l${-2 * arm} ${2 * arm}`});
    const isRpl = this.run.rings.some(({rpl}) => rpl === index);
    const label = this.makeLinkLabel(middle, unit, bar);
    const title = svg("title");
    const group = svg("g", {class: "link"},
      svg("line", {class: "wire", x1: one.x, y1: one.y, x2: other.x, y2: other.y}), title);
    const above = svg("g", {class: "link"}, ...bars, cross, label);
    return {group, above, bars, title, label, isRpl, one, other, unit};
  }

  // Beside the link, towards the middle of the picture.
  makeLinkLabel(middle, unit, bar) {
    const centre = centreOf(this.layout.points);
    let normal = {x: -unit.y, y: unit.x};
    if ((middle.x - centre.x) * normal.x + (middle.y - centre.y) * normal.y > 0) {
      normal = {x: -normal.x, y: -normal.y};
    }
    const away = bar + 8;
    const anchor = normal.x > 0.4 ? "start" : normal.x < -0.4 ? "end" : "middle";
    return svg("text", {class: "rpl", x: middle.x + normal.x * away,
      y: middle.y + normal.y * (away + 5) + 4, "text-anchor": anchor});
  }

  makeNode(name, node) {
    const {sizes, points} = this.layout;
    const {x, y} = points[node];
    const places = this.run.placesOfNode[node];
    const owner = this.run.rings.some((ring) => ring.owner === node);
    const group = svg("g", {class: "node", transform: `translate(${x} ${y})`});
    const parts = [];
    if (sizes.tier === "large" || sizes.tier === "medium") {
      const {height} = sizes, width = this.layout.widthOf(node);
      const shared = places.length > 1;
      group.append(svg("rect", {class: shared ? "case shared" : "case", x: -width / 2, y: -height / 2,
        width, height, rx: 8}));
      const share = width / Math.max(places.length, 1);
      places.forEach((place, i) => {
        const shape = svg("path", {class: "fill", d: roundedPart(width, height, i, places.length)});
        const text = svg("text", {class: "state", x: -width / 2 + share * (i + 0.5),
          y: sizes.tier === "large" ? 15 : 12.5, "text-anchor": "middle"});
        parts.push({place, shape, text});
        group.append(shape, text);
        if (shared) {
          const ring = this.run.rings[this.run.places[place].ring].id, long = name.length > 5;
          group.append(svg("text", {class: "ring-of", y: -7, "text-anchor": "middle",
            x: (long ? 0.86 : 0.64) * (-width + 2 * share * (i + 0.5))}, long ? ring : `ring ${ring}`));
        }
      });
      const label = shortened(name, sizes.tier === "large" ? 11 : 9);
      group.append(svg("text", {class: "name", "text-anchor": "middle",
        y: (sizes.tier === "large" ? -4 : -2) - (shared ? 3 : 0)}, label));
      if (owner) {
        const out = this.layout.outward[node];
        const beside = Math.abs(out.x) > Math.abs(out.y) * 1.5, side = Math.sign(out.x) || 1;
        group.append(svg("text", {class: "owner", x: beside ? side * (width / 2 + 6) : 0,
          y: beside ? 4 : out.y > 0.3 ? height / 2 + 14 : -height / 2 - 6,
          "text-anchor": beside ? side > 0 ? "start" : "end" : "middle"}, "owner"));
      }
    } else {
      this.makeSmallNode(group, parts, name, node, places, owner);
    }
    const title = svg("title");
    group.append(title);
    return {group, parts, title, name, node};
  }

  makeSmallNode(group, parts, name, node, places, owner) {
    const {sizes, outward} = this.layout;
    const small = sizes.tier === "small";
    places.forEach((place, i) => {
      const shape = svg("circle", {class: "fill", r: sizes.width / 2 - (small ? 2.5 * i : i)});
      const text = svg("text", {class: "state", y: 4, "text-anchor": "middle"});
      parts.push({place, shape, text, letter: true, hidden: i > 0 || !small});
      group.append(shape, text);
    });
    const out = outward[node], reach = sizes.width / 2 + 5;
    const often = small ? 1 : 10;
    if (node % often === 0 || owner) {
      const angle = Math.atan2(out.y, out.x) * 180 / Math.PI;
      const flip = Math.abs(angle) > 90;
      group.append(svg("text", {class: owner ? "name strong" : "name",
        transform: `translate(${out.x * reach} ${out.y * reach}) rotate(${flip ? angle + 180 : angle})`,
        y: 3.5, "text-anchor": flip ? "end" : "start"}, owner ? `${name} owner` : name));
    }
  }

  show(time) {
    const {run} = this;
    run.links.forEach((link, index) => {
      const condition = run.linkCondition(index, time);
      const {group, above, bars, title, label, isRpl} = this.links[index];
      group.setAttribute("class", `link ${condition}`);
      above.setAttribute("class", `link ${condition}`);
      group.dataset.condition = condition;
      // Where nodes are many, a link that is not open is too short to be seen without its name.
      const many = this.layout.sizes.tier === "small" || this.layout.sizes.tier === "tiny";
      label.textContent = !many || condition === "open" ? isRpl ? "RPL" : ""
        : `${link.name}${isRpl ? " (RPL)" : ""} ${condition === "half" ? "cut one way" : condition}`;
      const ends = [];
      bars.forEach((bar, end) => {
        const blocked = run.power(link.nodes[end], time) !== kOff && !run.forwards(2 * index + end, time);
        bar.setAttribute("class", blocked ? "bar shut" : "bar");
        if (blocked) ends.push(run.nodes[link.nodes[end]]);
      });
      title.textContent = `${link.name}: ${conditionWords(condition)}` +
        (ends.length ? `, blocked at ${listText(ends)}` : "");
    });
    for (const {group, parts, title, name, node} of this.nodes) {
      const words = [];
      for (const {place, shape, text, letter, hidden} of parts) {
        const word = run.stateWord(place, time);
        shape.setAttribute("class", `fill ${word}`);
        text.setAttribute("class", `state ${word}`);
        text.textContent = hidden ? "" : letter ? kLetters[word] : word;
        words.push(run.rings.length > 1 ? `ring ${run.rings[run.places[place].ring].id} ${word}` : word);
      }
      group.dataset.state = words.join(" / ");
      group.setAttribute("class", run.power(node, time) === kOff ? "node off" : "node");
      title.textContent = `${name}: ${words.join(", ")}`;
    }
    this.showFlights(time);
    this.label.textContent = `The network at ${clockText(time)}. ` +
      situationTexts(run, time).map(({ring, text}) => `${ring}: ${text}.`).join(" ");
  }

  // Messages on their way, one of each kind on a strand.
  showFlights(time) {
    const shown = new Map();
    for (const message of this.run.messagesBetween(time, time)) {
      if (message.to > time) shown.set(`${message.strand} ${message.text.name}`, message);
    }
    const marks = [...shown.values()].slice(0, 400).map((message) => {
      const {one, other, unit} = this.links[message.link];
      const back = message.strand & 1;
      const share = Math.min(0.8, Math.max(0.2, (time - message.from) / (message.to - message.from)));
      const at = between(back ? other : one, back ? one : other, share);
      const angle = Math.atan2(unit.y, unit.x) * 180 / Math.PI + (back ? 180 : 0);
      const mark = svg("g", {class: `flight ${messageClass(message.text.name)}`,
        transform: `translate(${at.x} ${at.y})`},
        svg("path", {d: "M-6 -5L7 0L-6 5Z", transform: `rotate(${angle})`}));
      if (this.layout.sizes.tier === "large") {
        mark.append(svg("text", {x: -unit.y * 16, y: unit.x * 16 + 4, "text-anchor": "middle"},
          message.text.name));
      }
      return mark;
    });
    this.flights.replaceChildren(...marks);
  }
}

// Column i of a rounded box that stands around the origin; of several, below the box's name.
function roundedPart(width, height, i, count) {
  const left = -width / 2 + width * i / count, right = left + width / count;
  const top = count > 1 ? -2 : -height / 2, bottom = height / 2;
  const upper = count > 1 ? 0 : 8, lowerLeft = i === 0 ? 8 : 0, lowerRight = i === count - 1 ? 8 : 0;
  return `M${left + upper} ${top}H${right - upper}q${upper} 0 ${upper} ${upper}V${bottom - lowerRight}` +
    `q0 ${lowerRight} ${-lowerRight} ${lowerRight}H${left + lowerLeft}` +
    `q${-lowerLeft} 0 ${-lowerLeft} ${-lowerLeft}V${top + upper}q0 ${-upper} ${upper} ${-upper}Z`;
}

function conditionWords(condition) {
  return {open: "open", blocked: "blocked", cut: "cut", half: "cut one way",
    dark: "dark, a node is without power"}[condition];
}

function messageClass(name) {
  return {"SF": "sf", "NR": "nr", "NR,RB": "rb", "FS": "fs", "MS": "ms"}[name] || "other";
}
