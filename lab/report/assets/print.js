// What stands on paper in place of what moves on the screen: for each fault the network as it was
// when its first stretch of events had ended, the time line from the fault to that moment, and in
// words the rest until the next fault.

const kMostSheets = 16;

// The end of the stretch of events that a fault begins.
function storyEnd(run, axis, fault) {
  return Math.min(axis.stretches[axis.stretchAt(fault.at)].to, fault.at + 30 * kMillisecond);
}

function paperTimeline(run, lanes, axis, from, to) {
  const width = 1000, headHeight = 50, labels = 110;
  const scale = (width - labels - 90) / Math.max(to - from, 500);
  const view = {scale, gap: 40};
  const left = axis.x(from, view) - 40;
  const window = {view, left, width, labels, from: Math.max(0, from - 30 / scale), to: to + 50 / scale};
  const at = (time) => labels + axis.x(time, view) - left;
  const body = svg("g", {transform: `translate(0 ${headHeight})`});
  for (const lane of lanes.list) body.append(...laneParts(run, lanes, lane, window, at));
  body.append(...gapParts(axis, window, at, lanes.height), ...messageParts(run, lanes, window, at, false),
    ...labelParts(run, lanes, window));
  return svg("svg", {class: "paper-timeline", viewBox: `0 0 ${width} ${headHeight + lanes.height + 4}`},
    ...axisParts(axis, window, at), svg("rect", {class: "paper", width: labels, height: headHeight}), body);
}

function makeSheets(run, layout, axis) {
  const host = byId("sheets");
  if (host.childElementCount > 0) return;
  const lanes = new Lanes(run);
  const wordsAt = (time, when) => html("div", {}, html("h3", {}, when), html("ul", {class: "situation"},
    ...situationTexts(run, time).map(({ring, text}) => html("li", {}, html("b", {}, ring), ` ${text}`))));
  const add = (title, from, to, rest) => {
    const picture = html("div", {class: "sheet-drawing"});
    new Drawing(run, layout, picture).show(to);
    const words = html("div", {}, wordsAt(to, from === to ? "" : `${durationText(to - from)} later (drawn)`));
    if (rest !== null) words.append(wordsAt(rest, `${durationText(rest - from)} later`));
    const sheet = html("article", {class: "sheet"}, html("h2", {}, title),
      html("div", {class: "sheet-top"}, picture, words));
    if (from !== to && lanes.list.length <= 40) sheet.append(paperTimeline(run, lanes, axis, from, to));
    host.append(sheet);
  };
  if (run.faults.length === 0) add(`At the end, ${clockText(run.end)}`, run.end, run.end, null);
  run.faults.slice(0, kMostSheets).forEach((fault, i) => {
    const outage = fault.outage === null ? "" : `, outage ${durationText(fault.outage)}`;
    const end = storyEnd(run, axis, fault);
    add(`${fault.text} at ${clockText(fault.at)}${outage}`, fault.at, Math.max(end, fault.at + 1),
      Math.max(end, (i + 1 < run.faults.length ? run.faults[i + 1].at : run.end + 1) - 1));
  });
  if (run.faults.length > kMostSheets) {
    host.append(html("p", {}, `The remaining ${run.faults.length - kMostSheets} faults are in the table.`));
  }
}
