// The parts of the page that are words and tables.

function verdictOf({totals}) {
  const problems = [];
  if (totals.violations) problems.push(counted(totals.violations, "violation"));
  if (totals.failed) problems.push(`${counted(totals.failed, "fault")} not handled as expected`);
  return {good: problems.length === 0,
    text: problems.length ? listText(problems) : "Everything went as expected"};
}

function showHeader(run) {
  byId("name").textContent = run.name;
  const {good, text} = verdictOf(run);
  byId("verdict").replaceChildren(html("span", {class: good ? "badge good" : "badge bad"},
    html("span", {"aria-hidden": "true"}, good ? "✓ " : "✗ "), text));
  const {longest, faults, surprises} = run.totals;
  const rings = run.rings.length > 1 ? `${run.nodes.length} in ${run.rings.length} rings` : run.nodes.length;
  const figures = [["Nodes", rings], ["Faults and commands", faults],
    ["Longest outage", longest ? durationText(longest.outage) : "none measured", longest ? longest.text : ""],
    ["Known surprises", surprises], ["Simulated time", durationText(run.end)]];
  byId("figures").replaceChildren(...figures.map(([name, value, more]) => html("div", {},
    html("dt", {}, name), html("dd", {}, String(value), more ? html("small", {}, ` ${more}`) : ""))));
  byId("seed").textContent = run.seed;
  byId("command").textContent = run.command;
  showCutOff(run);
}

// What the recorder had no room for.
function showCutOff(run) {
  const names = {changes: "everything", marks: "flushes and commands", timers: "timers",
    messages: "messages", repeats: "repeated messages"};
  const missing = Object.entries(run.cutOff).filter(([, from]) => from !== null)
    .map(([name, from]) => `${names[name]} after ${clockText(from)}`);
  const {faults, violations, surprises} = run.totals;
  const rows = faults - run.faults.length, lines = violations + surprises - run.findings.length;
  if (rows > 0) missing.push(counted(rows, "later fault"));
  if (lines > 0) missing.push(counted(lines, "later finding"));
  if (missing.length === 0) return;
  const notice = byId("cut-off");
  notice.hidden = false;
  notice.textContent = `This run was longer than a page can hold. Not shown: ${listText(missing, 9)}. ` +
    "The figures above count everything.";
}

function faultTable(run, onSeek) {
  const rows = run.faults.map((fault, index) => {
    const what = onSeek ? html("button", {type: "button", class: "jump"}, fault.text) : fault.text;
    if (onSeek) what.addEventListener("click", () => onSeek(fault, index));
    return html("tr", {class: fault.held ? "" : "failed"}, html("td", {class: "number"}, clockText(fault.at)),
      html("th", {scope: "row"}, what, ...(fault.remark ? [html("small", {}, fault.remark)] : [])),
      html("td", {class: "number right"}, fault.outage === null ? "–" : durationText(fault.outage)),
      html("td", {class: "held"}, fault.held ? "✓" : "✗",
        html("span", {class: "word"}, fault.held ? " as expected" : " not as expected")));
  });
  const heads = ["At", "What", "Outage", "Verdict"];
  const head = html("thead", {}, html("tr", {}, ...heads.map((text) =>
    html("th", {scope: "col", class: text === "Outage" ? "right" : null}, text))));
  if (run.faults.length === 0) {
    rows.push(html("tr", {}, html("td", {colspan: heads.length}, "Nothing was done to the network.")));
  }
  return {rows, parts: [head, html("tbody", {}, ...rows)]};
}

function showFindings(run, onSeek) {
  const list = byId("finding-list");
  if (run.findings.length === 0) {
    list.append(html("p", {}, "None: no loop, no lasting partition, no state or timer out of its bounds."));
    return;
  }
  const kinds = [["Violations", run.findings.filter(({surprise}) => !surprise)],
    ["Known surprises of the protocol", run.findings.filter(({surprise}) => surprise)]];
  for (const [title, findings] of kinds) {
    if (findings.length === 0) continue;
    const shown = findings.slice(0, 500);
    const rows = shown.map((finding) => {
      const jump = html("button", {type: "button", class: "jump"}, clockText(finding.from));
      jump.addEventListener("click", () => onSeek(finding.from, finding.to));
      const lasted = finding.to > finding.from ? durationText(finding.to - finding.from) : "";
      const what = finding.surprise ? `${finding.surprise}: ${finding.text}` : `${finding.check}: ${finding.text}`;
      return html("tr", {}, html("td", {class: "number"}, jump), html("td", {class: "number"}, lasted),
        html("td", {}, finding.node === null ? "" : run.nodes[finding.node]), html("td", {}, what));
    });
    const head = ["At", "Lasted", "Node", "What"].map((text) => html("th", {scope: "col"}, text));
    list.append(html("h3", {}, `${title} (${findings.length})`),
      html("table", {class: title === "Violations" ? "violations" : ""},
        html("thead", {}, html("tr", {}, ...head)), html("tbody", {}, ...rows)));
    if (shown.length < findings.length) {
      list.append(html("p", {class: "hint"}, `and ${findings.length - shown.length} more`));
    }
  }
}

// The events before and after a moment, as many as fit a table that is read at a glance.
function showEvents(run, time, withRepeats, onSeek) {
  const kBefore = 4, kAfter = 9;
  const index = countUntil(run.momentsWithMessages, time);
  const from = run.momentsWithMessages[Math.max(0, index - 1 - kBefore)];
  const to = run.momentsWithMessages[Math.min(run.momentsWithMessages.length - 1, index + kAfter)];
  const events = eventsBetween(run, from, to, withRepeats);
  const first = Math.max(0, events.findIndex((event) => event.time >= time) - kBefore);
  const fault = run.faultBefore(time);
  const rows = events.slice(first, first + kBefore + kAfter + 1).map((event) => {
    const jump = html("button", {type: "button", class: "jump"}, clockText(event.time));
    jump.addEventListener("click", () => onSeek(event.time));
    const since = fault && event.time >= fault.at ? `+${durationText(event.time - fault.at)}` : "";
    const present = event.time === time;
    return html("tr", {class: present ? "present" : event.time < time ? "past" : "",
      "aria-current": present ? "time" : null},
    html("td", {class: "number"}, jump), html("td", {class: "number since-fault"}, since),
    html("td", {class: `kind kind-${event.kind}`}, event.kind), html("td", {}, event.text));
  });
  const head = [["At"], ["After fault", "since-fault"], ["Kind", "kind"], ["What"]]
    .map(([text, name]) => html("th", {scope: "col", class: name}, text));
  byId("event-list").replaceChildren(html("thead", {}, html("tr", {}, ...head)), html("tbody", {}, ...rows));
}

function keyItem(picture, text) { return html("li", {}, picture, text); }

function keyPicture(...parts) {
  return svg("svg", {viewBox: "0 0 34 18", width: 34, height: 18, "aria-hidden": "true"}, ...parts);
}

function showKeys(layout) {
  const wire = (condition, ...parts) => keyPicture(svg("g", {class: `link ${condition}`},
    svg("line", {class: "wire", x1: 1, y1: 9, x2: 33, y2: 9}), ...parts));
  const bar = svg("line", {class: "bar shut", x1: 8, y1: 2, x2: 8, y2: 16});
  const cross = svg("path", {class: "cross", d: "M11 3l12 12m0 -12l-12 12"});
  const items = [keyItem(wire("open"), "open link"),
    keyItem(wire("blocked", bar), "blocked, the bar at the port that blocks"),
    keyItem(wire("cut", cross), "cut")];
  const small = layout.sizes.tier === "small" || layout.sizes.tier === "tiny";
  for (const word of [...kStates, "off"]) {
    const parts = [svg("rect", {class: `fill ${word}`, x: 3, y: 1, width: 28, height: 16, rx: 4})];
    if (small) parts.push(svg("text", {class: `state ${word}`, x: 17, y: 13, "text-anchor": "middle"}, kLetters[word]));
    items.push(keyItem(keyPicture(...parts), statePhrase(word)));
  }
  byId("drawing-key").replaceChildren(...items);
  const line = (kind) => keyPicture(svg("path", {class: `port ${kind}`, d: "M1 9H33"}));
  const arrow = (kind) => keyPicture(svg("g", {class: `message ${kind}`},
    svg("path", {class: "shaft", d: "M2 2L30 15"}),
    svg("path", {class: "tip", transform: "translate(30 15) rotate(25)", d: "M0 0L-8 -3.5V3.5Z"})));
  byId("timeline-key").replaceChildren(keyItem(line("open"), "port forwards"),
    keyItem(line("shut"), "port blocks"), keyItem(line("open no-carrier"), "port without link"),
    keyItem(arrow("sf"), "SF, signal fail"), keyItem(arrow("nr"), "NR, no request"),
    keyItem(arrow("rb"), "NR,RB: no request, RPL blocked"), keyItem(arrow("fs"), "FS, forced switch"),
    keyItem(arrow("ms"), "MS, manual switch"));
}
