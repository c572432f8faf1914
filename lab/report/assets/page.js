// The page: what is shown follows one moment, and whatever chooses a moment ends here.

class Page {
  constructor(run) {
    this.run = run;
    this.layout = new Layout(run);
    this.drawing = new Drawing(run, this.layout, byId("drawing"));
    this.timeline = new Timeline(run, (time) => this.seek(time));
    this.slider = byId("slider");
    this.moments = run.moments;
    this.playing = null;
    showHeader(run);
    showKeys(this.layout);
    this.faultTable = faultTable(run, (fault) => this.seekFault(fault));
    byId("faults").replaceChildren(...this.faultTable.parts);
    showFindings(run, (from, to) => {
      this.seek(from);
      this.timeline.showStory(this.now, Math.max(this.now, Math.min(to, run.end)));
    });
    this.wire();
    this.setMoments();
    this.begin();
  }

  // What the first fault has led to is what a reader looks for; before it everything is at rest.
  begin() {
    const first = this.run.faults.find((fault) => fault.at <= this.run.end);
    if (!first) {
      this.seek(this.run.end);
      return this.timeline.showAll();
    }
    this.seekFault(first);
    this.seek(storyEnd(this.run, this.timeline.axis, first));
  }

  wire() {
    this.slider.addEventListener("input", () => {
      this.stop();
      this.seek(this.moments[Number(this.slider.value)]);
    });
    this.slider.addEventListener("keydown", (event) => {
      const step = {PageUp: 1, PageDown: -1}[event.key];
      if (step === undefined) return;
      event.preventDefault();
      this.stepFault(step);
    });
    const press = (id, act) => byId(id).addEventListener("click", () => { this.stop(); act(); });
    press("previous-fault", () => this.stepFault(-1));
    press("next-fault", () => this.stepFault(1));
    press("previous-event", () => this.stepEvent(-1));
    press("next-event", () => this.stepEvent(1));
    press("zoom-in", () => this.timeline.zoom(1.6));
    press("zoom-out", () => this.timeline.zoom(1 / 1.6));
    press("zoom-all", () => this.timeline.showAll());
    press("zoom-fault", () => this.showFault(this.run.faultBefore(this.now)));
    byId("play").addEventListener("click", () => this.playing ? this.stop() : this.play());
    byId("with-messages").addEventListener("change", (event) => {
      this.moments = event.target.checked ? this.run.momentsWithMessages : this.run.moments;
      this.setMoments();
      this.seek(this.now);
    });
    byId("with-repeats").addEventListener("change", (event) => {
      this.timeline.withRepeats = event.target.checked;
      this.timeline.drawSoon();
      this.seek(this.now);
    });
    addEventListener("beforeprint", () => makeSheets(this.run, this.layout, this.timeline.axis));
  }

  setMoments() {
    this.slider.max = this.moments.length - 1;
    const share = (time) => (countUntil(this.moments, time) - 1) / Math.max(1, this.moments.length - 1);
    byId("track-marks").replaceChildren(...this.run.faults.map((fault) =>
      svg("line", {x1: `${100 * share(fault.at)}%`, x2: `${100 * share(fault.at)}%`, y1: 0, y2: 8})));
  }

  stepEvent(step) {
    const until = countUntil(this.moments, this.now);
    const index = step > 0 ? until
      : this.moments[until - 1] === this.now ? until - 2 : until - 1;
    this.seek(this.moments[Math.min(this.moments.length - 1, Math.max(0, index))]);
  }
  stepFault(step) {
    const faults = this.run.faults;
    const fault = step > 0 ? faults.find(({at}) => at > this.now)
      : faults.filter(({at}) => at < this.now).at(-1);
    if (fault) this.seekFault(fault); else this.seek(step > 0 ? this.run.end : 0);
  }
  seekFault(fault) {
    this.stop();
    this.seek(fault.at);
    this.showFault(fault);
  }
  // Without a fault, the start.
  showFault(fault) {
    const from = fault || {at: 0};
    if (from.at <= this.run.end) {
      this.timeline.showStory(from.at, storyEnd(this.run, this.timeline.axis, from));
    }
  }

  seek(time) {
    const {run} = this;
    this.now = Math.max(0, Math.min(run.end, Math.round(time)));
    this.slider.value = Math.max(0, countUntil(this.moments, this.now) - 1);
    this.drawing.show(this.now);
    this.timeline.seek(this.now);
    const fault = run.faultBefore(this.now);
    const since = fault === null ? run.faults.length ? "before the first fault" : "nothing was done to it"
      : this.now === fault.at ? `the moment of “${fault.text}”`
        : `${durationText(this.now - fault.at)} after “${fault.text}”`;
    byId("clock").textContent = clockText(this.now);
    byId("since").textContent = since;
    const situation = situationTexts(run, this.now);
    const findings = run.findingsAt(this.now);
    byId("situation").replaceChildren(
      ...situation.map(({ring, text}) => html("li", {}, html("b", {}, ring), ` ${text}`)),
      ...findings.map((finding) => html("li", {class: finding.surprise ? "surprise" : "violation"},
        html("b", {}, finding.surprise ? "Known surprise" : "Violation"), ` ${finding.surprise || finding.check}: ${finding.text}`)));
    this.slider.setAttribute("aria-valuetext", `${clockText(this.now)}, ${since}. ` +
      situation.map(({ring, text}) => `${ring}: ${text}`).join(". "));
    this.faultTable.rows.forEach((row, i) => {
      if (fault !== null && run.faults[i] === fault) row.setAttribute("aria-current", "true");
      else row.removeAttribute("aria-current");
    });
    showEvents(run, this.now, this.timeline.withRepeats, (at) => { this.stop(); this.seek(at); });
  }

  // Through the time line at a pace that can be followed, whatever its scale: gaps as quick as they
  // look.
  play() {
    const kPixelsASecond = 110;
    if (this.now >= this.run.end) this.seek(0);
    const {axis, view} = this.timeline;
    let x = axis.x(this.now, view), last = performance.now();
    const frame = (present) => {
      x += kPixelsASecond * Math.min(100, present - last) / 1000;
      last = present;
      this.seek(axis.time(x, this.timeline.view));
      if (this.now >= this.run.end) return this.stop();
      this.playing = requestAnimationFrame(frame);
    };
    this.playing = requestAnimationFrame(frame);
    this.showPlaying();
  }
  stop() {
    if (this.playing === null) return;
    cancelAnimationFrame(this.playing);
    this.playing = null;
    this.showPlaying();
  }
  showPlaying() {
    const button = byId("play");
    button.textContent = this.playing === null ? "Play" : "Pause";
    button.setAttribute("aria-pressed", String(this.playing !== null));
  }
}

new Page(new Run(JSON.parse(byId("data").textContent)));
