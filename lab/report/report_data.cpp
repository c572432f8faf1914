#include "lab/report/report_data.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "erps/mgmt/message.h"
#include "erps/raps/frame.h"
#include "sim/platform_call.h"

namespace erps::lab {

namespace {

using nlohmann::json;

// A page that is to be read by people has no more rows; how many there were is in the totals.
constexpr size_t kMostRows = 2000;

// Times as differences of one from the next, which takes half the room.
class Times {
 public:
  int64_t next(int64_t time_us) { return time_us - std::exchange(last_us_, time_us); }

 private:
  int64_t last_us_ = 0;
};

template <typename T>
json or_null(const std::optional<T>& value) {
  return value ? json(*value) : json(nullptr);
}

json nodes_json(const Topology& topology) {
  json list = json::array();
  for (const Node& node : topology.nodes) {
    list.push_back(node.name);
  }
  return list;
}

json links_json(const Topology& topology) {
  json list = json::array();
  for (LinkIndex link = 0; link < topology.links.size(); ++link) {
    const Link& each = topology.links[link];
    const auto ring = topology.ring_of_link(link);
    list.push_back({{"name", each.name},
                    {"nodes", {each.ends[0].node, each.ends[1].node}},
                    {"ports", {each.ends[0].port, each.ends[1].port}},
                    {"ring", or_null(ring)}});
  }
  return list;
}

json rings_json(const Topology& topology) {
  json list = json::array();
  for (const Ring& ring : topology.rings) {
    list.push_back({{"id", ring.id},
                    {"nodes", ring.nodes},
                    {"links", ring.links},
                    {"owner", ring.owner},
                    {"neighbour", or_null(ring.neighbour)},
                    {"rpl", ring.rpl},
                    {"open", ring.is_open()},
                    {"major", or_null(ring.major_ring)},
                    {"watching", ring.is_open() ? json(ring.watching) : json(nullptr)},
                    {"revertive", ring.revertive},
                    {"wtr_ms", ring.timers.wtr_ms},
                    {"guard_ms", ring.timers.guard_ms},
                    {"holdoff_ms", ring.timers.holdoff_ms}});
  }
  return list;
}

std::string message_name(const MessageText& text) {
  switch (text.request) {
    case raps::kNr:
      return (text.status & raps::kStatusRb) != 0 ? "NR,RB" : "NR";
    case raps::kMs:
      return "MS";
    case raps::kSf:
      return "SF";
    case raps::kFs:
      return "FS";
    case raps::kEvent:
      return "Event";
    default:
      return "request " + std::to_string(text.request);
  }
}

json texts_json(const ReportInput& input) {
  json list = json::array();
  for (const MessageText& text : input.recorder.recording().texts) {
    json origin = nullptr;
    for (NodeIndex node = 0; node < input.topology.nodes.size(); ++node) {
      const auto& bytes = input.topology.nodes[node].address.bytes;
      if ((uint32_t{bytes[4]} << 8U | bytes[5]) == text.node_id) {
        origin = node;
        break;
      }
    }
    list.push_back({{"ring", text.ring},
                    {"name", message_name(text)},
                    {"dnf", (text.status & raps::kStatusDnf) != 0},
                    {"marked", text.marked},
                    {"origin", origin}});
  }
  return list;
}

json places_json(const Recording& recording) {
  json list = json::array();
  for (const RingPlace& place : recording.places) {
    list.push_back({place.ring, place.node});
  }
  return list;
}

// Changes and marks alike: one array a column.
template <typename Item>
json columns_json(const std::vector<Item>& items) {
  json times = json::array();
  json kinds = json::array();
  json subjects = json::array();
  json values = json::array();
  Times since;
  for (const Item& item : items) {
    times.push_back(since.next(item.time_us));
    kinds.push_back(static_cast<uint32_t>(item.kind));
    subjects.push_back(item.subject);
    values.push_back(item.value);
  }
  return {{"t", times}, {"kind", kinds}, {"subject", subjects}, {"value", values}};
}

json messages_json(const std::vector<Message>& messages) {
  json times = json::array();
  json durations = json::array();
  json strands = json::array();
  json texts = json::array();
  json fates = json::array();
  Times since;
  for (const Message& message : messages) {
    times.push_back(since.next(message.from_us));
    durations.push_back(message.fate == Fate::kUnderWay ? 0 : message.to_us - message.from_us);
    strands.push_back(message.strand);
    texts.push_back(message.text);
    fates.push_back(static_cast<uint32_t>(message.fate) + (message.repeated ? 4U : 0U));
  }
  return {
      {"t", times}, {"lasts", durations}, {"strand", strands}, {"text", texts}, {"fate", fates}};
}

json timers_json(const std::vector<TimerRun>& timers) {
  json list = json::array();
  for (const TimerRun& timer : timers) {
    list.push_back({timer.place, static_cast<uint32_t>(timer.kind), timer.from_us,
                    timer.end == TimerEnd::kRunning ? json(nullptr) : json(timer.to_us),
                    static_cast<uint32_t>(timer.end)});
  }
  return list;
}

json faults_json(const std::vector<ReportFault>& faults) {
  json list = json::array();
  for (const ReportFault& fault : faults) {
    if (list.size() == kMostRows) {
      break;
    }
    list.push_back({{"text", fault.text},
                    {"at", fault.at_us},
                    {"outage", or_null(fault.outage_us)},
                    {"held", fault.held},
                    {"remark", fault.remark}});
  }
  return list;
}

json findings_json(const std::vector<sim::Finding>& findings) {
  json list = json::array();
  for (const sim::Finding& finding : findings) {
    if (list.size() == kMostRows) {
      break;
    }
    list.push_back({{"check", finding.check},
                    {"from", finding.from_us},
                    {"to", finding.to_us},
                    {"node", or_null(finding.node)},
                    {"text", finding.text},
                    {"surprise", finding.surprise}});
  }
  return list;
}

// The names of the platform calls that failed, by their numbers.
json failed_calls_json(const Recording& recording) {
  json names = json::object();
  for (const Mark& mark : recording.marks) {
    if (mark.kind == MarkKind::kCallFailed) {
      names[std::to_string(mark.value)] = sim::name_of(static_cast<sim::PlatformCall>(mark.value));
    }
  }
  return names;
}

// Of all faults and findings, also of those that have no row.
json totals_json(const ReportInput& input) {
  const ReportFault* longest = nullptr;
  size_t failed = 0;
  for (const ReportFault& fault : input.faults) {
    failed += fault.held ? 0 : 1;
    if (fault.outage_us && (longest == nullptr || *fault.outage_us > *longest->outage_us)) {
      longest = &fault;
    }
  }
  size_t violations = 0;
  for (const sim::Finding& finding : input.findings) {
    violations += finding.is_violation() ? 1 : 0;
  }
  json worst = nullptr;
  if (longest != nullptr) {
    worst = {{"text", longest->text}, {"outage", *longest->outage_us}};
  }
  return {{"faults", input.faults.size()},
          {"failed", failed},
          {"violations", violations},
          {"surprises", input.findings.size() - violations},
          {"longest", worst}};
}

}  // namespace

std::string report_data(const ReportInput& input) {
  const Recording& recording = input.recorder.recording();
  const json cut_off = {{"changes", or_null(recording.changes_end_us)},
                        {"marks", or_null(recording.marks_end_us)},
                        {"timers", or_null(recording.timers_end_us)},
                        {"messages", or_null(recording.messages_end_us)},
                        {"repeats", or_null(recording.repeats_end_us)}};
  const json commands = {{std::to_string(mgmt::kSetEnable), "enable or disable"},
                         {std::to_string(mgmt::kDeleteRing), "delete"},
                         {std::to_string(mgmt::kForcedSwitch), "forced switch"},
                         {std::to_string(mgmt::kManualSwitch), "manual switch"},
                         {std::to_string(mgmt::kClear), "clear"}};
  const json whole = {{"name", input.topology.name},
                      {"seed", std::to_string(input.seed)},  // a script's numbers end at 2^53
                      {"command", input.command},
                      {"end", input.end_us},
                      {"nodes", nodes_json(input.topology)},
                      {"links", links_json(input.topology)},
                      {"rings", rings_json(input.topology)},
                      {"places", places_json(recording)},
                      {"texts", texts_json(input)},
                      {"commands", commands},
                      {"failed_calls", failed_calls_json(recording)},
                      {"changes", columns_json(recording.changes)},
                      {"marks", columns_json(recording.marks)},
                      {"messages", messages_json(recording.messages)},
                      {"timers", timers_json(recording.timers)},
                      {"faults", faults_json(input.faults)},
                      {"findings", findings_json(input.findings)},
                      {"totals", totals_json(input)},
                      {"cut_off", cut_off}};
  std::string text = whole.dump(-1, ' ', true, json::error_handler_t::replace);
  // Only inside of strings can there be one.
  for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at)) {
    text.replace(at, 1, "\\u003c");
  }
  return text;
}

}  // namespace erps::lab
