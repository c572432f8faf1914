// A time axis that is cut where nothing happens: stretches of time to scale, with gaps of one width
// between them however long they last.

const kLongestQuiet = 6 * kMillisecond;  // longer ones are cut out
const kGapPadding = 10;  // pixels to scale's sides that belong to a gap

class Axis {
  constructor(times) {
    this.stretches = [];
    let length = 0;
    for (const time of times) {
      const last = this.stretches.at(-1);
      if (last && time - last.to <= kLongestQuiet) {
        length += time - last.to;
        last.to = time;
      } else {
        this.stretches.push({from: time, to: time, before: length});
      }
    }
    this.length = length;  // of all stretches, in microseconds
    this.starts = this.stretches.map(({from}) => from);
  }

  // view: {scale: pixels a microsecond, gap: pixels a gap}
  width(view) { return this.stretches.length * view.gap + this.length * view.scale; }

  stretchAt(time) { return Math.max(0, countUntil(this.starts, time) - 1); }

  x(time, view) {
    const index = this.stretchAt(time);
    const {from, to, before} = this.stretches[index];
    const start = (index + 0.5) * view.gap + before * view.scale;
    if (time <= to) return start + (Math.max(time, from) - from) * view.scale;
    const end = start + (to - from) * view.scale;
    const next = this.stretches[index + 1];
    return next ? end + view.gap * (time - to) / (next.from - to) : end;
  }

  time(x, view) {
    let low = 0, high = this.stretches.length - 1;
    const startOf = (index) => (index + 0.5) * view.gap + this.stretches[index].before * view.scale;
    while (low < high) {
      const middle = (low + high + 1) >> 1;
      if (startOf(middle) <= x) low = middle; else high = middle - 1;
    }
    const {from, to} = this.stretches[low];
    const within = (x - startOf(low)) / view.scale;
    if (within <= to - from) return from + Math.max(0, within);
    const next = this.stretches[low + 1];
    if (!next) return to;
    const beyond = (x - startOf(low) - (to - from) * view.scale) / view.gap;
    return Math.min(next.from, to + beyond * (next.from - to));
  }
}

// The end of what a fault leads to: the last stretch before the next fault, as far as it can be
// shown at once.
function storyEnd(run, axis, fault) {
  const kMostStretches = 9, kMostLength = 60 * kMillisecond;
  const next = run.faults.find(({at}) => at > fault.at);
  const until = Math.min(next ? next.at : run.end, run.end) - 1;
  const first = axis.stretchAt(fault.at);
  let last = Math.max(first, Math.min(axis.stretchAt(until), first + kMostStretches - 1));
  const length = () => axis.stretches[last].before + axis.stretches[last].to - axis.stretches[last].from -
    axis.stretches[first].before - (fault.at - axis.stretches[first].from);
  while (last > first && length() > kMostLength) --last;
  const end = Math.min(axis.stretches[last].to, Math.max(until, fault.at + 1));
  return last === first ? Math.min(end, fault.at + kMostLength) : end;
}

// The step of a scale so that its ticks stand at least so many pixels apart: 1, 2 or 5 times a
// power of ten.
function tickStep(scale, apart) {
  const least = Math.max(apart / scale, 1);
  const power = 10 ** Math.floor(Math.log10(least));
  return [1, 2, 5, 10].map((factor) => factor * power).find((step) => step >= least * 0.999);
}
