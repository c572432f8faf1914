// Text for people, and elements that hold it. Text from the run only ever becomes text nodes.

const kSvg = "http://www.w3.org/2000/svg";

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== null && value !== undefined) element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}
function html(tag, attributes = {}, ...children) {
  return fill(document.createElement(tag), attributes, children);
}
function svg(tag, attributes = {}, ...children) {
  return fill(document.createElementNS(kSvg, tag), attributes, children);
}
function byId(id) { return document.getElementById(id); }

// "12.345 678 s"
function clockText(time) {
  const micros = String(Math.round(time) % kSecond).padStart(6, "0");
  return `${Math.floor(Math.round(time) / kSecond)}.${micros.slice(0, 3)}\u202f${micros.slice(3)} s`;
}

// "240 µs", "2.13 ms", "4.98 s", "5 min 3 s"
function durationText(time) {
  const short = (value) => String(Number(value.toPrecision(3)));
  if (time < kMillisecond) return `${Math.round(time)} µs`;
  if (time < 999.5 * kMillisecond) return `${short(time / kMillisecond)} ms`;
  if (time < 120 * kSecond) return `${short(time / kSecond)} s`;
  const seconds = Math.round(time / kSecond);
  if (seconds < 7200) return `${Math.floor(seconds / 60)} min ${seconds % 60} s`;
  return `${Math.floor(seconds / 3600)} h ${Math.round(seconds % 3600 / 60)} min`;
}

function counted(count, one, many = one + "s") { return `${count} ${count === 1 ? one : many}`; }

function shortened(name, most) { return name.length > most ? `${name.slice(0, most - 1)}…` : name; }

function listText(words, most = 4) {
  if (words.length > most) {
    return `${words.slice(0, most).join(", ")} and ${words.length - most} more`;
  }
  return words.length < 2 ? words.join("")
    : `${words.slice(0, -1).join(", ")} and ${words.at(-1)}`;
}

function messageText(run, text) {
  const origin = text.origin === null ? "" : ` of ${run.nodes[text.origin]}`;
  const ring = run.rings.length > 1 ? ` (ring ${text.ring})` : "";
  return `${text.name}${text.dnf ? " DNF" : ""}${text.marked ? " marked" : ""}${origin}${ring}`;
}

function changeText(run, {kind, subject, value, before}) {
  if (kind === kPower) {
    const node = run.nodes[subject];
    return [`${node} loses its power`, `${node} starts`, `${node} is up and configured`,
      `${node}: the protocol module is stopped`][value];
  }
  if (kind === kState) {
    const {ring, node} = run.places[subject];
    const where = run.rings.length > 1 ? ` (ring ${run.rings[ring].id})` : "";
    return `${run.nodes[node]}: ${kStates[before]} → ${kStates[value]}${where}`;
  }
  const {node, link} = run.endOf(subject);
  const peer = run.nodes[run.endOf(subject ^ 1).node];
  const {name} = run.links[link];
  if (kind === kStrand) {
    return `link ${name} ${value ? "carries again" : "fails"} from ${run.nodes[node]} to ${peer}`;
  }
  if (kind === kCarrier) {
    return `${run.nodes[node]} sees the link to ${peer} ${value ? "come up" : "go down"}`;
  }
  return `${run.nodes[node]} ${value ? "opens" : "blocks"} its port to ${peer}`;
}

function markText(run, {kind, subject, value}) {
  if (kind === kFlush) {
    const peer = run.nodes[run.endOf(subject ^ 1).node];
    return `${run.nodes[run.endOf(subject).node]} forgets ` +
      `${counted(value, "address", "addresses")} learnt from ${peer}`;
  }
  const node = run.nodes[subject];
  if (kind === kCirculating) return `${node} takes a frame off the network that went round and round`;
  if (kind === kCallFailed) return `${node}: a call to its platform fails: ${run.failedCalls[value]}`;
  if (kind === kClockStep) {
    const step = value | 0;  // a negative number came as a large one
    return `${node}: its clock is set ${step < 0 ? "back" : "forth"} by ${Math.abs(step)} s`;
  }
  if (kind === kSlowed) return `${node} ${value > 1 ? `is ${value} times slower than usual` : "has its usual speed"}`;
  if (kind === kStalled) return `${node} has no processor for ${value} ms`;
  const command = run.commands[value & 0xFF] || `command ${value & 0xFF}`;
  return kind === kCommand ? `operator at ${node}: ${command}, ring ${value >> 8}`
    : `${node} refuses: ${command} (code ${value >> 8})`;
}

// What happens between two moments, in words, in order; of both strands of a link at once.
function eventsBetween(run, from, to, withRepeats) {
  const events = [];
  const within = (time) => time >= from && time <= to;
  for (const fault of run.faults) {
    if (within(fault.at)) events.push({time: fault.at, order: 0, kind: "fault", text: fault.text});
  }
  for (const change of run.changes) {
    if (!within(change.time) || !run.isNews(change)) continue;
    const last = events.at(-1);
    if (change.kind === kStrand && last && last.strand === (change.subject ^ 1) &&
        last.time === change.time) {
      last.text = `link ${run.links[change.subject >> 1].name} ` +
        (change.value ? "carries again, both ways" : "fails, both ways");
      continue;
    }
    const kind = ["link", "link", "port", "node", "state"][change.kind];
    events.push({time: change.time, order: 1, kind, text: changeText(run, change),
      strand: change.kind === kStrand ? change.subject : null});
  }
  for (const mark of run.marks) {
    if (within(mark.time) && !(mark.kind === kFlush && mark.value === 0)) {
      const kind = mark.kind === kFlush ? "flush" : mark.kind === kCirculating ? "loop"
        : mark.kind >= kCallFailed ? "mishap" : "command";
      events.push({time: mark.time, order: 2, kind, text: markText(run, mark)});
    }
  }
  for (const timer of run.timers) {
    const {ring, node} = run.places[timer.place];
    const what = `${run.nodes[node]}: ${kTimers[timer.kind]} timer` +
      (run.rings.length > 1 ? ` of ring ${run.rings[ring].id}` : "");
    if (within(timer.from)) {
      events.push({time: timer.from, order: 3, kind: "timer", text: `${what} starts`});
    }
    if (timer.end !== 0 && within(timer.to)) {
      const how = timer.end === 1 ? "expires" : "is stopped";
      events.push({time: timer.to, order: 1, kind: "timer", text: `${what} ${how}`});
    }
  }
  for (const message of run.messagesBetween(from, to)) {
    if (message.repeated && !withRepeats) continue;
    const what = messageText(run, message.text);
    const sender = run.nodes[message.sender], receiver = run.nodes[message.receiver];
    if (within(message.from)) {
      const fate = message.fate === kLost ? ": lost" : "";
      events.push({time: message.from, order: 4, kind: "message",
        text: `${sender} sends ${what} to ${receiver}${fate}`});
    }
    if (message.fate === kArrived && within(message.to)) {
      events.push({time: message.to, order: 0.5, kind: "message",
        text: `${receiver} receives ${what} from ${sender}`});
    }
  }
  return events.sort((one, other) => one.time - other.time || one.order - other.order);
}

// What the network is like at a moment: a sentence a ring.
function situationTexts(run, time) {
  return run.rings.map((ring, index) => {
    const words = new Map();
    run.places.forEach((place, i) => {
      if (place.ring !== index) return;
      const word = run.stateWord(i, time);
      words.set(word, (words.get(word) || []).concat(run.nodes[place.node]));
    });
    const states = words.size === 1 ? `every node is ${statePhrase([...words.keys()][0])}`
      : [...words].sort((one, other) => one[1].length - other[1].length)
        .map(([word, nodes]) => `${listText(nodes, 3)} ${statePhrase(word)}`).join("; ");
    const cut = [], blocked = [];
    for (const link of ring.links) {
      const {name} = run.links[link];
      const condition = run.linkCondition(link, time);
      const rpl = link === ring.rpl ? " (the RPL)" : "";
      if (condition === "cut") cut.push(name + rpl);
      if (condition === "half") cut.push(`${name}${rpl}, one way only`);
      if (condition === "blocked") blocked.push(name + rpl);
    }
    const parts = [states];
    if (cut.length) parts.push(`cut: ${listText(cut)}`);
    parts.push(blocked.length ? `blocked: ${listText(blocked)}`
      : cut.length ? "nothing else is blocked" : "nothing is blocked");
    return {ring: `Ring ${ring.id}`, text: parts.join(" · ")};
  });
}

function statePhrase(word) {
  return {protection: "in protection", pending: "pending", idle: "idle", manual: "in manual switch",
    forced: "in forced switch", init: "in init", off: "without power", booting: "starting",
    stopped: "stopped"}[word];
}
