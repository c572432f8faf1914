// What the time line consists of, for the screen and for paper: each function makes the elements of
// one thing in a window of time. `at` tells where a moment stands.

function stretchesIn(axis, window) {
  return {first: axis.stretchAt(window.from), last: axis.stretchAt(window.to)};
}

// Ticks: at the start of a stretch the moment itself, then the time since.
function axisParts(axis, window, at) {
  const parts = [];
  const {first, last} = stretchesIn(axis, window);
  const step = tickStep(window.view.scale, 74);
  let free = -Infinity;
  for (let i = first; i <= last; ++i) {
    const {from, to} = axis.stretches[i];
    const x = at(from);
    if (x >= free && x <= window.width) {
      const text = clockText(from);
      parts.push(svg("text", {class: "tick-text strong", x, y: 40}, text));
      free = x + text.length * 7.4 + 12;
    }
    parts.push(svg("path", {class: "scale", d: `M${Math.max(x, 0)} 46H${Math.min(at(to), window.width)}`}));
    if ((to - from) / step > 20000) continue;
    const start = Math.max(1, Math.floor((window.from - from) / step));
    for (let tick = start; from + tick * step <= Math.min(to, window.to); ++tick) {
      const tickX = at(from + tick * step);
      parts.push(svg("path", {class: "scale", d: `M${tickX} 43v6`}));
      const text = `+${durationText(tick * step)}`;
      const half = text.length * 6.6 / 2;
      if (tickX - half >= free) {
        parts.push(svg("text", {class: "tick-text", x: tickX, y: 40, "text-anchor": "middle"}, text));
        free = tickX + half + 8;
      }
    }
  }
  return parts;
}

// The cuts in the axis, and how much time each leaves out.
function gapParts(axis, window, at, height) {
  const parts = [];
  const {first, last} = stretchesIn(axis, window);
  for (let i = Math.max(first, 0); i <= last && i + 1 < axis.stretches.length; ++i) {
    const {to} = axis.stretches[i], next = axis.stretches[i + 1].from;
    const pad = Math.min(kGapPadding, window.view.gap / 4);
    const x = at(to) + pad, width = window.view.gap - 2 * pad;
    if (x + width < 0 || x > window.width || width < 1) continue;
    parts.push(svg("rect", {class: "gap", x, y: 0, width, height}));
    if (width >= 16) {
      for (let y = 60; y < height + 60; y += 260) {
        parts.push(svg("text", {class: "gap-text", "text-anchor": "middle",
          transform: `translate(${x + width / 2 + 4} ${Math.min(y, height - 40)}) rotate(-90)`},
        durationText(next - to)));
      }
    }
  }
  return parts;
}

function laneParts(run, lanes, lane, window, at) {
  const parts = [];
  const {sizes} = lanes;
  parts.push(svg("path", {class: "lane-line",
    d: `M0 ${lane.y + (lane.again ? 20 : sizes.lane) - 1.5}H${window.width}`}));
  if (lane.again) {
    parts.push(svg("path", {class: "again", d: `M0 ${lane.y + 9}H${window.width}`}));
    return parts;
  }
  for (const {start, end, word} of stateSpans(run, lane, window)) {
    const x = Math.max(at(start), 0), right = Math.min(at(end), window.width);
    const y = lane.y + sizes.bandTop;
    parts.push(svg("rect", {class: `fill ${word}`, x, y, width: Math.max(right - x, 0.5), height: sizes.band},
      svg("title", {}, `${run.nodes[lane.node]}: ${word} from ${clockText(start)} to ${clockText(end)}`)));
    const from = Math.max(x, window.labels);
    if (sizes.text && right - from > word.length * 6.5 + 8) {
      parts.push(svg("text", {class: `state ${word}`, x: from + 5, y: y + sizes.band - 5}, word));
    }
  }
  lane.ends.forEach((end, i) => parts.push(...portParts(run, lane, end, lane.y + sizes.ports[i], window, at)));
  parts.push(...timerParts(run, lanes, lane, window, at), ...flushParts(run, lane, sizes, window, at));
  return parts;
}

// A notch on the port's line where learnt addresses were forgotten.
function flushParts(run, lane, sizes, window, at) {
  return run.flushesBetween(window.from, window.to).filter(({subject}) => lane.ends.includes(subject))
    .map((flush) => {
      const y = lane.y + sizes.ports[lane.ends.indexOf(flush.subject)];
      return svg("path", {class: "flush", d: `M${at(flush.time)} ${y}l-3.5 -5h7Z`},
        svg("title", {}, markText(run, flush)));
    });
}

// Of equal words, with power and state together.
function stateSpans(run, lane, window) {
  const spans = [];
  const add = (start, end) => {
    const word = run.stateWord(lane.place, start);
    const last = spans.at(-1);
    if (last && last.word === word) last.end = end; else spans.push({start, end, word});
  };
  run.histories[kPower][lane.node].spans(window.from, window.to, (start, end) =>
    run.histories[kState][lane.place].spans(start, end, add));
  return spans;
}

// A thin line where the port forwards, a thick broken one where it blocks, dots without a link.
function portParts(run, lane, end, y, window, at) {
  const parts = [];
  const peer = run.nodes[run.endOf(end ^ 1).node];
  const add = (start, to, open) => run.histories[kCarrier][end].spans(start, to, (a, b, carrier) => {
    if (run.power(lane.node, a) === kOff) return;
    const kind = open ? carrier ? "open" : "open no-carrier" : carrier ? "shut" : "shut no-carrier";
    const x = Math.max(at(a), 0), right = Math.min(at(b), window.width);
    if (right <= x) return;
    parts.push(svg("path", {class: `port ${kind}`, d: `M${x} ${y}H${right}`},
      svg("title", {}, `${run.nodes[lane.node]}, port to ${peer}: ${open ? "forwards" : "blocks"}` +
        (carrier ? "" : ", no link"))));
  });
  run.histories[kPort][end].spans(window.from, window.to, add);
  return parts;
}

// Guard and hold-off above, WTR and WTB below: they run side by side.
function timerParts(run, lanes, lane, window, at) {
  const parts = [];
  const {sizes} = lanes;
  for (const timer of run.timersOf(lane.place, window.from, window.to)) {
    const x = Math.max(at(timer.from), 0), right = Math.min(at(timer.to), window.width);
    const word = kTimers[timer.kind];
    const y = lane.y + sizes.timers[word === "WTR" || word === "WTB" ? 1 : 0];
    const how = ["still running", "expired", "stopped"][timer.end];
    parts.push(svg("rect", {class: `timer timer-${timer.kind}`, x, y, width: Math.max(right - x, 1),
      height: sizes.timer}, svg("title", {}, `${run.nodes[lane.node]}: ${word} timer, ` +
        `${durationText(timer.to - timer.from)}, ${how}`)));
    const from = Math.max(x, window.labels);
    if (sizes.timer >= 9 && right - from > word.length * 6 + 6) {
      parts.push(svg("text", {class: "timer-text", x: from + 4, y: y + 8}, word));
    }
  }
  return parts;
}

function messageParts(run, lanes, window, at, withRepeats) {
  const messages = run.messagesBetween(window.from, window.to)
    .filter(({repeated}) => withRepeats || !repeated);
  if (messages.length > kMostArrows) {
    return [svg("text", {class: "too-many", x: window.labels + 12, y: 16},
      `${messages.length} messages here: zoom in to see them`)];
  }
  const parts = [];
  const {sizes} = lanes;
  let texts = 0;
  for (const message of messages) {
    const between = lanes.ofMessage(run, message);
    if (!between) continue;
    const [from, to] = between;
    const down = to.y > from.y;
    const edge = (lane, low) => lane.y + (lane.again ? 9 : sizes.bandTop + (low ? sizes.band : 0));
    const x1 = at(message.from), y1 = edge(from, down);
    let x2 = at(message.to), y2 = edge(to, !down);
    const lost = message.fate === kLost;
    if (lost) {
      x2 = Math.max(x2, x1 + 6);
      y2 = (y1 + y2) / 2;
    }
    const kind = messageClass(message.text.name);
    const group = svg("g", {class: `message ${kind}${message.repeated ? " repeated" : ""}${lost ? " lost" : ""}`},
      svg("path", {class: "shaft", d: `M${x1} ${y1}L${x2} ${y2}`}),
      svg("title", {}, `${messageText(run, message.text)}: ${run.nodes[message.sender]} to ` +
        `${run.nodes[message.receiver]}, ${lost ? "lost" : durationText(message.to - message.from)}`));
    const angle = Math.atan2(y2 - y1, x2 - x1) * 180 / Math.PI;
    group.append(svg("path", {class: "tip", transform: `translate(${x2} ${y2}) rotate(${angle})`,
      d: lost ? "M-5 -5L5 5M5 -5L-5 5" : sizes.text ? "M0 0L-8 -3.5V3.5Z" : "M0 0L-6 -2.5V2.5Z"}));
    if (sizes.text && !message.repeated && texts < 300 && x1 > window.labels - 30) {
      ++texts;
      group.append(svg("text", {class: "message-text", x: (x1 + x2) / 2 + 5, y: (y1 + y2) / 2 + 4},
        message.text.name));
    }
    parts.push(group);
  }
  return parts;
}

// The names at the left, above everything that passes beneath them.
function labelParts(run, lanes, window) {
  const {sizes} = lanes;
  const parts = [svg("rect", {class: "paper", width: window.labels - 1, height: lanes.height + 4}),
    svg("path", {class: "scale", d: `M${window.labels - 0.5} 0V${lanes.height}`})];
  for (const {y, text} of lanes.titles) {
    parts.push(svg("text", {class: "ring-title", x: 4, y: y + 16}, text));
  }
  for (const lane of lanes.list) {
    const label = shortened(run.nodes[lane.node], 12);
    if (lane.again) {
      parts.push(svg("text", {class: "lane-again", x: 4, y: lane.y + 13}, `${label} again`));
      continue;
    }
    parts.push(svg("text", {class: sizes.text ? "lane-name" : "lane-name narrow", x: 4, y: lane.y + sizes.bandTop + sizes.band - 4},
      label, svg("tspan", {class: "role", dx: 5}, sizes.text ? lane.role : "")));
    if (sizes.lane >= 50) {
      const peers = lane.ends.map((end) => run.nodes[run.endOf(end ^ 1).node]);
      parts.push(...peers.map((peer, i) => svg("text", {class: "port-name", x: window.labels - 6,
        y: lane.y + sizes.ports[i] + (i === 0 ? 1 : 5), "text-anchor": "end"},
      `to ${shortened(peer, 12)}`)));
    }
  }
  return parts;
}
