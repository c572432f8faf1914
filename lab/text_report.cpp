#include "lab/text_report.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>
#include <sstream>

#include "lab/clock.h"

namespace erps::lab {

namespace {

constexpr size_t kColumns = 100;
constexpr int64_t kNotableStallNs = kNsPerMs;
constexpr const char* kBold = "1";
constexpr const char* kDim = "2";
constexpr const char* kGreen = "32";
constexpr const char* kRed = "1;31";
constexpr const char* kYellow = "1;33";

std::string padded(const std::string& text, size_t width, bool right = false) {
  const std::string spaces(text.size() < width ? width - text.size() : 0, ' ');
  return right ? spaces + text : text + spaces;
}

// "0.42", "12.3", "5512": three digits or so, whatever the size.
std::string ms_number(int64_t ns) {
  const double ms = to_ms(ns);
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", ms < 10 ? 2 : ms < 100 ? 1 : 0, ms);
  return text;
}

// Lines of words, the first behind `head` of `head_width` columns and the next ones below it.
std::string wrapped(const std::string& head, size_t head_width,
                    const std::vector<std::string>& words, const std::string& between) {
  std::string text = head;
  size_t column = head_width;
  bool first = true;
  for (const std::string& word : words) {
    if (!first && column + between.size() + word.size() > kColumns) {
      text += "\n" + std::string(head_width, ' ');
      column = head_width;
    } else if (!first) {
      text += between;
      column += between.size();
    }
    text += word;
    column += word.size();
    first = false;
  }
  return text + "\n";
}

std::vector<std::string> words_of(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), {}};
}

size_t longest_name(const Topology& topology) {
  size_t width = 0;
  for (const Node& node : topology.nodes) {
    width = std::max(width, node.name.size());
  }
  return width;
}

std::string link_name(const Topology& topology, NodeIndex node, uint32_t port) {
  const auto link = topology.link_at_port(node, port);
  return link ? topology.links[*link].name : "port " + std::to_string(port);
}

// What an event says, or an empty text for one that is not shown: receptions (their consequences
// are), commands of the laboratory's own asking, and what was said before.
std::string event_text(const Topology& topology, NodeIndex node, const NodeEvent& event,
                       std::set<std::string>& said) {
  const std::string link = link_name(topology, node, event.port);
  std::string text;
  switch (event.kind) {
    case EventKind::kLinkDown:
      return link + " down";
    case EventKind::kLinkUp:
      return link + " up";
    case EventKind::kBlocked:
      return link + " blocked";
    case EventKind::kOpened:
      return link + " opened";
    case EventKind::kFlushed:
      return link + " flushed";
    case EventKind::kSent:
      text = "sends " + event.message +
             (topology.rings.size() > 1 ? " on ring " + std::to_string(event.ring) : "");
      // A node sends each message out of several ports and repeats it; told when its node begins.
      return event.node_id == to_text(topology.nodes[node].address) && said.insert(text).second
                 ? text
                 : "";
    case EventKind::kReceived:
    case EventKind::kCommand:
      return {};
  }
  return text;
}

}  // namespace

std::string TextReport::paint(const char* code, const std::string& text) const {
  return colour_ ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
}

std::string TextReport::verdict(bool good, bool undecided) const {
  return good ? paint(kGreen, "PASS") : undecided ? paint(kYellow, "VOID") : paint(kRed, "FAIL");
}

std::string TextReport::heading() const {
  std::string text = paint(kBold, topology_.name) + ": " + std::to_string(topology_.nodes.size()) +
                     " nodes, " + std::to_string(topology_.links.size()) + " links, " +
                     std::to_string(topology_.rings.size()) +
                     (topology_.rings.size() == 1 ? " ring, " : " rings, ") +
                     std::to_string(topology_.steps.size()) + " steps\n";
  for (const Stream& stream : topology_.streams) {
    text += "traffic: " + topology_.hosts[stream.hosts[0]].name + " at " +
            topology_.nodes[topology_.hosts[stream.hosts[0]].node].name + " and " +
            topology_.hosts[stream.hosts[1]].name + " at " +
            topology_.nodes[topology_.hosts[stream.hosts[1]].node].name + " send each other " +
            std::to_string(stream.frames_per_s) + " frames a second\n";
  }
  return text;
}

std::string TextReport::step(const StepReport& report) const {
  std::string title = report.text;
  if (report.step) {
    title = std::to_string(*report.step + 1) + "  " + title;
  }
  std::string text = "\n" + paint(kBold, title) + "\n";
  text += timeline(report);
  text += states(report);
  text += traffic(report);
  text += checks(report.checks, report.undecided);
  return text;
}

std::string TextReport::timeline(const StepReport& report) const {
  const size_t width = longest_name(topology_);
  std::string text;
  for (NodeIndex node = 0; node < report.events.size(); ++node) {
    std::set<std::string> said;
    std::vector<std::string> words;
    std::string last_time;
    for (const NodeEvent& event : report.events[node]) {
      const std::string what = event_text(topology_, node, event, said);
      if (what.empty()) {
        continue;
      }
      const std::string time = ms_number(event.mono_ns - report.fault_ns);
      std::string word = time == last_time ? "" : time + " ";
      word += what;
      words.push_back(std::move(word));
      last_time = time;
    }
    if (!words.empty()) {
      const std::string head = "  " + padded(topology_.nodes[node].name, width) + "  ";
      text += wrapped(head, head.size(), words, ", ");
    }
  }
  return text.empty() ? "" : paint(kDim, "  what each node did, ms after the fault") + "\n" + text;
}

std::string TextReport::states(const StepReport& report) const {
  const size_t width = longest_name(topology_);
  std::string text = paint(kDim, "  states and blocked ports") + "\n";
  // Nodes that say the same of every ring share a line.
  std::vector<std::pair<std::string, std::vector<std::string>>> groups;
  for (NodeIndex node = 0; node < report.nodes.size(); ++node) {
    const NodeReport& of_node = report.nodes[node];
    std::string says;
    if (!of_node.answered) {
      says = of_node.problem.empty() ? "runs no daemon" : of_node.problem;
    }
    for (const RingReport& of_ring : of_node.rings) {
      says += says.empty() ? "" : "; ";
      if (topology_.rings.size() > 1) {
        says += "ring " + std::to_string(topology_.rings[of_ring.ring].id) + " ";
      }
      says += state_name(of_ring.state);
      for (const PortRef& port : of_ring.blocked) {
        says += ", blocks " + topology_.links[port.link].name;
      }
    }
    if (groups.empty() || groups.back().first != says) {
      groups.push_back({says, {}});
    }
    groups.back().second.push_back(topology_.nodes[node].name);
  }
  for (const auto& [says, names] : groups) {
    const std::string who =
        names.size() == 1 ? names[0]
                          : names.front() + (names.size() == 2 ? ", " : " to ") + names.back();
    text += "  " + padded(who, width) + "  " + says + "\n";
  }
  return text;
}

std::string TextReport::traffic(const StepReport& report) const {
  if (!report.traffic || report.traffic->streams.empty()) {
    return {};
  }
  std::string text =
      "  " +
      paint(kDim, padded("traffic", 18) +
                      "outage ms    lost  duplicated  reordered    sent  sender's pause ms") +
      "\n";
  for (size_t i = 0; i < report.traffic->streams.size(); ++i) {
    for (size_t side = 0; side < 2; ++side) {
      const auto& hosts = topology_.streams[i].hosts;
      const DirectionResult& direction = report.traffic->streams[i].directions[side];
      const std::string way =
          topology_.hosts[hosts[side]].name + " to " + topology_.hosts[hosts[1 - side]].name;
      const char* remark = !report.stream_judged[i] ? "  not judged"
                           : direction.still_out    ? "  still out"
                                                    : "";
      text += "  " + padded(way, 18) + padded(ms_number(direction.outage_ns), 9, true) +
              padded(std::to_string(direction.lost), 8, true) +
              padded(std::to_string(direction.duplicates), 12, true) +
              padded(std::to_string(direction.reordered), 11, true) +
              padded(std::to_string(direction.sent), 8, true) +
              padded(ms_number(direction.sender_pause_ns), 19, true) + remark + "\n";
    }
  }
  if (report.traffic->machine_stall_ns > kNotableStallNs) {
    text += "  this machine itself stood still for " + ms_number(report.traffic->machine_stall_ns) +
            " ms meanwhile\n";
  }
  if (report.repeated > 0) {
    text += "  done again " + std::to_string(report.repeated) +
            (report.repeated == 1 ? " time" : " times") +
            ", as this machine stood still too long to tell\n";
  }
  return text;
}

std::string TextReport::checks(const std::vector<Check>& checks, bool undecided) const {
  constexpr size_t kIndent = 8;  // "  PASS  "
  std::string text;
  for (const Check& check : checks) {
    const std::string what = check.what + (check.found.empty() ? "" : ": " + check.found);
    text += wrapped("  " + verdict(check.holds, undecided) + "  ", kIndent, words_of(what), " ");
  }
  return text;
}

std::string TextReport::summary(const RunReport& report) const {
  std::string text = "\n" + paint(kBold, "summary") + "\n" +
                     paint(kDim, "      " + padded("step", 46) + padded("settled ms", 12, true) +
                                     padded("outage ms", 11, true) + padded("lost", 9, true) +
                                     padded("duplicated", 12, true)) +
                     "\n";
  for (const StepReport& step : report.steps) {
    uint64_t lost = 0;
    uint64_t duplicates = 0;
    if (step.traffic) {
      for (const StreamResult& stream : step.traffic->streams) {
        for (const DirectionResult& direction : stream.directions) {
          lost += direction.lost;
          duplicates += direction.duplicates;
        }
      }
    }
    const auto outage_ns = longest_outage_ns(step);
    std::string title = step.step ? std::to_string(*step.step + 1) + "  " + step.text : step.text;
    if (title.size() > 45) {
      title.resize(45);
    }
    text += verdict(step.passed(), step.undecided) + "  " + padded(title, 46) +
            padded(step.settled ? ms_number(step.settled_ns - step.fault_ns) : "never", 12, true) +
            padded(outage_ns ? ms_number(*outage_ns) : "-", 11, true) +
            padded(step.traffic ? std::to_string(lost) : "-", 9, true) +
            padded(step.traffic ? std::to_string(duplicates) : "-", 12, true) + "\n";
  }
  for (const Check& check : report.end_checks) {
    text += verdict(check.holds) + "  " + check.what + ": " + check.found + "\n";
  }
  if (!report.complete) {
    text += verdict(false) + "  stopped after a step that failed; --keep-going does the rest\n";
  }
  text += "outage: the longest time between two arrivals while a frame was under way or lost\n";
  if (report.undecided()) {
    text += "VOID: this machine stood still too long to tell; try again when it has less to do\n";
  }
  return text + verdict(report.passed(), report.undecided()) + "\n";
}

}  // namespace erps::lab
