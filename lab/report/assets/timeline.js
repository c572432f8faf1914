// The time line: what every node did, to the microsecond. Only what is in sight is drawn.

const kMostArrows = 2500;
const kMostScale = 2;  // pixels a microsecond
const kMostWidth = 8e6;
const kGap = 46;  // of the cuts in the axis at most, in pixels

class Timeline {
  constructor(run, onSeek) {
    Object.assign(this, {run, onSeek, now: 0, withRepeats: false, drawing: false});
    this.lanes = new Lanes(run);
    this.axis = new Axis(run.momentsWithMessages);
    this.host = byId("lanes");
    this.space = byId("lanes-space");
    this.head = byId("lanes-head");
    this.body = byId("lanes-body");
    this.headHeight = 58;
    const longest = Math.max(...run.nodes.map((name) => Math.min(name.length, 12)));
    this.labelWidth = (this.lanes.sizes.text ? 72 : 20) + 8 * longest;
    this.view = {scale: 0.1, gap: kGap};
    this.mostScale = Math.min(kMostScale, kMostWidth / Math.max(this.axis.length, 1));
    this.host.addEventListener("scroll", () => this.drawSoon());
    new ResizeObserver(() => this.drawSoon()).observe(this.host);
    for (const part of [this.head, this.body]) part.addEventListener("click", (event) => this.clicked(event));
    this.host.addEventListener("keydown", (event) => this.keyPressed(event));
    this.host.addEventListener("wheel", (event) => this.wheeled(event), {passive: false});
  }

  get width() { return Math.max(200, this.host.clientWidth); }
  get room() { return this.width - this.labelWidth; }

  clicked(event) {
    const x = event.clientX - this.host.getBoundingClientRect().left - this.labelWidth;
    if (x >= 0) this.onSeek(this.axis.time(x + this.host.scrollLeft, this.view));
  }
  keyPressed(event) {
    const act = {"+": () => this.zoom(1.6), "=": () => this.zoom(1.6), "-": () => this.zoom(1 / 1.6),
      "0": () => this.showAll()}[event.key];
    if (!act || event.ctrlKey || event.metaKey || event.altKey) return;
    act();
    event.preventDefault();
  }
  wheeled(event) {
    if (!event.ctrlKey) return;
    event.preventDefault();
    const x = event.clientX - this.host.getBoundingClientRect().left - this.labelWidth;
    this.zoom(Math.exp(-event.deltaY / 300), Math.max(0, x));
  }

  // Around the present moment if it is in sight, else around the middle.
  zoom(factor, around = null) {
    const cursor = this.axis.x(this.now, this.view) - this.host.scrollLeft;
    const x = around !== null ? around : cursor >= 0 && cursor <= this.room ? cursor : this.room / 2;
    const time = this.axis.time(x + this.host.scrollLeft, this.view);
    this.setView(this.viewAt(this.view.scale * factor), time, x);
  }
  viewAt(scale) {
    const least = this.leastScale(), within = Math.min(this.mostScale, Math.max(least, scale));
    return {scale: within, gap: Math.min(kGap, this.fitGap() * within / least)};
  }
  fitGap() { return Math.min(kGap, Math.max(1, this.room * 0.5 / this.axis.stretches.length)); }
  leastScale() {
    return Math.max(1e-6, (this.room - this.fitGap() * this.axis.stretches.length) / Math.max(this.axis.length, 1));
  }
  showAll() {
    this.setView(this.viewAt(0), 0, 0);
  }
  // From a little before a moment to a little behind another.
  showStory(from, to) {
    const unit = {scale: 1, gap: 0};
    const span = Math.max(this.axis.x(to, unit) - this.axis.x(from, unit), 1000);
    const gaps = this.axis.stretchAt(to) - this.axis.stretchAt(from);
    const scale = Math.max(this.room * 0.84 - gaps * kGap, this.room * 0.3) / span;
    this.setView(this.viewAt(scale), from, this.room * 0.08);
  }
  // A moment stands so many pixels from the left.
  setView(view, time, x) {
    this.view = view;
    this.space.style.width = `${this.labelWidth + this.axis.width(view)}px`;
    this.host.scrollLeft = this.axis.x(time, view) - x;
    this.draw();
  }

  seek(time) {
    this.now = time;
    const x = this.axis.x(time, this.view) - this.host.scrollLeft;
    if (x < 0 || x > this.room - 20) this.host.scrollLeft += x - this.room * 0.25;
    this.drawSoon();
  }
  drawSoon() {
    if (this.drawing) return;
    this.drawing = true;
    requestAnimationFrame(() => { this.drawing = false; this.draw(); });
  }

  draw() {
    const width = this.width, left = this.host.scrollLeft;
    const window = {view: this.view, left, width, labels: this.labelWidth,
      from: this.axis.time(left - 40, this.view), to: this.axis.time(left + this.room + 40, this.view)};
    this.space.style.width = `${this.labelWidth + Math.max(this.axis.width(this.view), this.room)}px`;
    this.space.style.height = `${this.headHeight + this.lanes.height + 4}px`;
    sizeTo(this.head, width, this.headHeight);
    sizeTo(this.body, width, this.lanes.height + 4);
    this.head.replaceChildren(...this.headParts(window));
    this.body.replaceChildren(...this.bodyParts(window));
  }

  xIn(time, window) { return window.labels + this.axis.x(time, window.view) - window.left; }

  headParts(window) {
    const parts = [svg("rect", {class: "paper", width: window.width, height: this.headHeight})];
    parts.push(...axisParts(this.axis, window, (time) => this.xIn(time, window)));
    for (const finding of this.run.findings) {
      if (finding.to < window.from || finding.from > window.to) continue;
      const x = this.xIn(finding.from, window);
      parts.push(svg("rect", {class: `finding ${finding.surprise ? "surprise" : "violation"}`, x, y: 22,
        width: Math.max(3, this.xIn(finding.to, window) - x), height: 5},
        svg("title", {}, finding.surprise || `${finding.check}: ${finding.text}`)));
    }
    let free = -Infinity;
    for (const fault of this.run.faults) {
      if (fault.at < window.from || fault.at > window.to) continue;
      const x = this.xIn(fault.at, window);
      parts.push(svg("path", {class: "fault-flag", d: `M${x} ${this.headHeight}V4`}));
      if (x < free) continue;
      const room = fault.text.length * 6.6 + 10;
      parts.push(svg("path", {class: "fault-head", d: `M${x} 3h${room}v16h${-room}Z`}),
        svg("text", {class: "fault-text", x: x + 5, y: 15}, fault.text));
      free = x + room + 6;
    }
    const x = this.xIn(this.now, window);
    parts.push(svg("path", {class: "cursor-head", d: `M${x - 6} ${this.headHeight - 9}h12l-6 9Z`}),
      svg("rect", {class: "paper", width: window.labels, height: this.headHeight}));
    return parts;
  }

  bodyParts(window) {
    const at = (time) => this.xIn(time, window);
    const parts = [svg("rect", {class: "paper", width: window.width, height: this.lanes.height + 4})];
    for (const lane of this.lanes.list) parts.push(...laneParts(this.run, this.lanes, lane, window, at));
    parts.push(...gapParts(this.axis, window, at, this.lanes.height));
    for (const fault of this.run.faults) {
      if (fault.at >= window.from && fault.at <= window.to) {
        parts.push(svg("path", {class: "fault-flag", d: `M${at(fault.at)} 0V${this.lanes.height}`}));
      }
    }
    parts.push(...messageParts(this.run, this.lanes, window, at, this.withRepeats));
    parts.push(svg("path", {class: "cursor", d: `M${at(this.now)} 0V${this.lanes.height}`}));
    parts.push(...labelParts(this.run, this.lanes, window));
    return parts;
  }
}

function sizeTo(element, width, height) {
  element.setAttribute("width", width);
  element.setAttribute("height", height);
}
