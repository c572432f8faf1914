// What stands on paper in place of what moves on the screen: for each fault the network as it was
// when its story had ended, and the time line from the fault to that moment.

const kMostSheets = 16;

function paperTimeline(run, lanes, axis, from, to) {
  const width = 1000, headHeight = 50, labels = 110;
  const gap = 34, unit = {scale: 1, gap: 0};
  const gaps = axis.stretchAt(to) - axis.stretchAt(from);
  const scale = (width - labels - 70 - gaps * gap) / Math.max(axis.x(to, unit) - axis.x(from, unit), 500);
  const view = {scale, gap};
  const left = axis.x(from, view) - 34;
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
  const add = (title, from, to) => {
    const picture = html("div", {class: "sheet-drawing"});
    new Drawing(run, layout, picture).show(to);
    const words = html("div", {}, html("h3", {}, from === to ? "" : `${durationText(to - from)} later`),
      html("ul", {class: "situation"}, ...situationTexts(run, to).map(({ring, text}) =>
        html("li", {}, html("b", {}, ring), ` ${text}`))));
    const sheet = html("article", {class: "sheet"}, html("h2", {}, title),
      html("div", {class: "sheet-top"}, picture, words));
    if (from !== to && lanes.list.length <= 40) sheet.append(paperTimeline(run, lanes, axis, from, to));
    host.append(sheet);
  };
  if (run.faults.length === 0) add(`At the end, ${clockText(run.end)}`, run.end, run.end);
  for (const fault of run.faults.slice(0, kMostSheets)) {
    const outage = fault.outage === null ? "" : `, outage ${durationText(fault.outage)}`;
    const end = storyEnd(run, axis, fault);
    add(`${fault.text} at ${clockText(fault.at)}${outage}`, fault.at, Math.max(end, fault.at + 1));
  }
  if (run.faults.length > kMostSheets) {
    host.append(html("p", {}, `The remaining ${run.faults.length - kMostSheets} faults are in the table.`));
  }
}
