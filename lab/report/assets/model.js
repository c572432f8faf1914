// The run: what is known of it, and what was the case at a moment. Times are in microseconds.

const kStrand = 0, kCarrier = 1, kPort = 2, kPower = 3, kState = 4;
const kFlush = 0, kCommand = 1, kRefused = 2, kCirculating = 3, kCallFailed = 4, kClockStep = 5,
  kSlowed = 6, kStalled = 7;
const kOff = 0, kBooting = 1, kRunning = 2, kStopped = 3;
const kArrived = 1, kLost = 2, kRepeated = 4;
const kStates = ["init", "idle", "protection", "manual", "forced", "pending"];
const kTimers = ["guard", "WTR", "WTB", "hold-off"];
const kMillisecond = 1000, kSecond = 1000000;

// The number of entries of a sorted array that are not beyond a value.
function countUntil(sorted, value) {
  let low = 0, high = sorted.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (sorted[middle] <= value) low = middle + 1; else high = middle;
  }
  return low;
}

// A value that holds until the next change.
class History {
  constructor(first) { this.first = first; this.times = []; this.values = []; }
  add(time, value) { this.times.push(time); this.values.push(value); }
  at(time) {
    const count = countUntil(this.times, time);
    return count === 0 ? this.first : this.values[count - 1];
  }
  // Calls back with the spans of equal value between two moments.
  spans(from, to, call) {
    let start = from;
    let index = countUntil(this.times, from);
    let value = index === 0 ? this.first : this.values[index - 1];
    for (; index < this.times.length && this.times[index] < to; ++index) {
      if (this.times[index] > start) call(start, this.times[index], value);
      start = this.times[index];
      value = this.values[index];
    }
    if (to > start) call(start, to, value);
  }
}

function absoluteTimes(differences) {
  let time = 0;
  return differences.map((difference) => (time += difference));
}

function histories(count, first) {
  return Array.from({length: count}, () => new History(first));
}

function distinctTimes(times) {
  times.sort((one, other) => one - other);
  return times.filter((time, i) => i === 0 || time !== times[i - 1]);
}

class Run {
  constructor(data) {
    Object.assign(this, {
      name: data.name, seed: data.seed, command: data.command, nodes: data.nodes,
      links: data.links, rings: data.rings, texts: data.texts, faults: data.faults,
      findings: data.findings, commands: data.commands,
      failedCalls: data.failed_calls, totals: data.totals, cutOff: data.cut_off,
    });
    this.places = data.places.map(([ring, node]) => ({ring, node}));
    this.placesOfNode = this.nodes.map(() => []);
    this.places.forEach(({node}, place) => this.placesOfNode[node].push(place));
    // What is beyond the first change that is missing would be shown wrongly.
    this.end = data.cut_off.changes === null ? data.end : Math.min(data.end, data.cut_off.changes);
    this.readChanges(data.changes);
    this.readMarks(data.marks);
    this.readMessages(data.messages);
    this.timers = data.timers.map(([place, kind, from, to, end]) =>
      ({place, kind, from, to: to === null ? this.end : to, end}));
    this.timersOfPlace = this.places.map(() => []);
    for (const timer of this.timers) this.timersOfPlace[timer.place].push(timer);
    this.collectMoments();
  }

  readChanges(columns) {
    const ends = 2 * this.links.length;
    this.histories = [histories(ends, 1), histories(ends, 0), histories(ends, 0),
      histories(this.nodes.length, kOff), histories(this.places.length, 0)];
    this.changes = absoluteTimes(columns.t).map((time, i) =>
      ({time, kind: columns.kind[i], subject: columns.subject[i], value: columns.value[i]}));
    for (const change of this.changes) {
      const history = this.histories[change.kind][change.subject];
      change.before = history.values.length ? history.values.at(-1) : history.first;
      history.add(change.time, change.value);
    }
  }

  readMarks(columns) {
    this.marks = absoluteTimes(columns.t).map((time, i) =>
      ({time, kind: columns.kind[i], subject: columns.subject[i], value: columns.value[i]}));
    this.flushes = this.marks.filter(({kind}) => kind === kFlush);
    this.flushTimes = this.flushes.map(({time}) => time);
  }

  readMessages(columns) {
    this.longestFlight = 0;
    this.messages = absoluteTimes(columns.t).map((from, i) => {
      const lasts = columns.lasts[i], fate = columns.fate[i] & 3, strand = columns.strand[i];
      if (fate !== kLost) this.longestFlight = Math.max(this.longestFlight, lasts);
      return {from, to: from + lasts, strand, link: strand >> 1, fate, text: this.texts[columns.text[i]],
        repeated: (columns.fate[i] & kRepeated) !== 0,
        sender: this.endOf(strand).node, receiver: this.endOf(strand ^ 1).node};
    });
    this.messages.sort((one, other) => one.from - other.from);
    this.messageTimes = this.messages.map((message) => message.from);
  }

  // The moments at which something changes, without and with messages.
  collectMoments() {
    const times = [0, this.end];
    for (const {time} of this.changes) times.push(time);
    for (const {time, kind} of this.marks) if (kind !== kFlush) times.push(time);
    for (const {at} of this.faults) times.push(at);
    for (const {from, to} of this.timers) times.push(from, to);
    const within = (time) => time <= this.end;
    this.moments = distinctTimes(times.filter(within));
    const news = this.messages.filter(({repeated}) => !repeated);
    const withNews = times.concat(news.map(({from}) => from), news.map(({to}) => to));
    this.momentsWithMessages = distinctTimes(withNews.filter(within));
  }

  endOf(end) {
    const link = this.links[end >> 1];
    return {node: link.nodes[end & 1], port: link.ports[end & 1], link: end >> 1};
  }
  value(kind, subject, time) { return this.histories[kind][subject].at(time); }
  strandCarries(strand, time) { return this.value(kStrand, strand, time) === 1; }
  hasCarrier(end, time) { return this.value(kCarrier, end, time) === 1; }
  forwards(end, time) { return this.value(kPort, end, time) === 1; }
  power(node, time) { return this.value(kPower, node, time); }
  // What a node loses along with its power goes without saying.
  isNews({kind, subject, time}) {
    const node = kind === kState ? this.places[subject].node
      : kind === kCarrier || kind === kPort ? this.endOf(subject).node : null;
    return node === null || this.power(node, time) !== kOff;
  }
  // Of a place: one of kStates, or what keeps the node from having one.
  stateWord(place, time) {
    const power = this.power(this.places[place].node, time);
    if (power === kRunning) return kStates[this.value(kState, place, time)] || "init";
    return power === kOff ? "off" : power === kBooting ? "booting" : "stopped";
  }

  // "open", "blocked", "cut" (both ways), "half" (one way) or "dark" (a node without power).
  linkCondition(link, time) {
    const {nodes} = this.links[link];
    if (nodes.some((node) => this.power(node, time) === kOff)) return "dark";
    const works = [0, 1].filter((end) => this.strandCarries(2 * link + end, time)).length;
    if (works < 2) return works === 0 ? "cut" : "half";
    const open = [0, 1].every((end) => this.forwards(2 * link + end, time));
    return open ? "open" : "blocked";
  }

  // Messages that are on a link between two moments.
  messagesBetween(from, to) {
    const found = [];
    const first = countUntil(this.messageTimes, from - this.longestFlight - 1);
    for (let i = first; i < this.messages.length && this.messages[i].from <= to; ++i) {
      if (this.messages[i].to >= from) found.push(this.messages[i]);
    }
    return found;
  }

  timersOf(place, from, to) {
    return this.timersOfPlace[place].filter((timer) => timer.to >= from && timer.from <= to);
  }
  flushesBetween(from, to) {
    return this.flushes.slice(Math.max(0, countUntil(this.flushTimes, from - 1)), countUntil(this.flushTimes, to));
  }
  faultBefore(time) {
    let last = null;
    for (const fault of this.faults) if (fault.at <= time) last = fault;
    return last;
  }
  findingsAt(time) {
    return this.findings.filter(({from, to}) => from <= time && time < Math.max(to, from + 1));
  }
}
