// What the page of a report says of a simulated network.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/report/story.h"

namespace erps::lab {
namespace {

using nlohmann::json;

constexpr int64_t kSecondUs = sim::kSecondUs;
constexpr int64_t kAtHomeUs = 20 * kSecondUs;
constexpr int64_t kRestUs = 15 * kSecondUs;
constexpr uint32_t kBlocked = 0;
constexpr uint32_t kForwards = 1;

std::string between(const std::string& page, const std::string& start, const std::string& end) {
  const size_t from = page.find(start);
  if (from == std::string::npos) {
    ADD_FAILURE() << "no " << start;
    return "";
  }
  const size_t begin = from + start.size();
  return page.substr(begin, page.find(end, begin) - begin);
}

json data_of(const std::string& page) {
  return json::parse(between(page, "<script id=\"data\" type=\"application/json\">", "</script>"));
}

// The last value of a kind and subject until a moment; nothing before the first.
std::optional<uint32_t> value_at(const json& data, ChangeKind kind, uint32_t subject,
                                 int64_t time_us) {
  const json& changes = data["changes"];
  std::optional<uint32_t> value;
  int64_t now_us = 0;
  for (size_t i = 0; i < changes["t"].size(); ++i) {
    now_us += changes["t"][i].get<int64_t>();
    if (now_us <= time_us && changes["kind"][i] == static_cast<uint32_t>(kind) &&
        changes["subject"][i] == subject) {
      value = changes["value"][i].get<uint32_t>();
    }
  }
  return value;
}

std::optional<NodeState> state_at(const json& data, RingIndex ring, NodeIndex node,
                                  int64_t time_us) {
  for (uint32_t place = 0; place < data["places"].size(); ++place) {
    if (data["places"][place] == json({ring, node})) {
      const auto value = value_at(data, ChangeKind::kState, place, time_us);
      return value ? std::optional(static_cast<NodeState>(*value)) : std::nullopt;
    }
  }
  return std::nullopt;
}

// Ring ports are blocked from the start.
uint32_t port_at(const json& data, const Topology& topology, const std::string& link_name,
                 const std::string& node_name, int64_t time_us) {
  const LinkIndex link = topology.find_link(link_name).value();
  const NodeIndex node = topology.find_node(node_name).value();
  const auto end =
      static_cast<uint32_t>(2 * link + (topology.links[link].ends[0].node == node ? 0 : 1));
  return value_at(data, ChangeKind::kPort, end, time_us).value_or(kBlocked);
}

struct Seen {
  int64_t from_us = 0;
  int64_t lasts_us = 0;
  uint32_t strand = 0;
  std::string name;
  Fate fate{};
};

std::vector<Seen> messages_between(const json& data, int64_t from_us, int64_t to_us) {
  const json& columns = data["messages"];
  std::vector<Seen> seen;
  int64_t now_us = 0;
  for (size_t i = 0; i < columns["t"].size(); ++i) {
    now_us += columns["t"][i].get<int64_t>();
    if (now_us >= from_us && now_us <= to_us) {
      seen.push_back({now_us, columns["lasts"][i], columns["strand"][i],
                      data["texts"][columns["text"][i].get<size_t>()]["name"],
                      static_cast<Fate>(columns["fate"][i].get<uint32_t>() & 3U)});
    }
  }
  return seen;
}

class CutAndRestored : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    topology_ = new Topology(example("four-node-ring.toml"));
    const Story story =
        tell(*topology_,
             {cut(*topology_, "n1-n2", kAtHomeUs), restore(*topology_, "n1-n2", 10 * kSecondUs)},
             kRestUs);
    data_ = new json(data_of(report_page(story.input())));
  }
  static void TearDownTestSuite() {
    delete data_;
    delete topology_;
  }

  static int64_t at(size_t fault) { return (*data_)["faults"][fault]["at"]; }

  static Topology* topology_;
  static json* data_;
};
Topology* CutAndRestored::topology_ = nullptr;
json* CutAndRestored::data_ = nullptr;

TEST_F(CutAndRestored, StatesFollowTheFaults) {
  for (NodeIndex node = 0; node < 4; ++node) {
    EXPECT_EQ(state_at(*data_, 0, node, at(0)), NodeState::kIdle) << node;
    EXPECT_EQ(state_at(*data_, 0, node, at(0) + kSecondUs), NodeState::kProtection) << node;
    EXPECT_EQ(state_at(*data_, 0, node, (*data_)["end"]), NodeState::kIdle) << node;
  }
}

TEST_F(CutAndRestored, PortsFollowTheFaults) {
  EXPECT_EQ(port_at(*data_, *topology_, "n4-n1", "n1", at(0)), kBlocked);
  EXPECT_EQ(port_at(*data_, *topology_, "n1-n2", "n1", at(0)), kForwards);
  EXPECT_EQ(port_at(*data_, *topology_, "n4-n1", "n1", at(0) + kSecondUs), kForwards);
  EXPECT_EQ(port_at(*data_, *topology_, "n1-n2", "n2", at(0) + kSecondUs), kBlocked);
  EXPECT_EQ(port_at(*data_, *topology_, "n4-n1", "n1", (*data_)["end"]), kBlocked);
  EXPECT_EQ(port_at(*data_, *topology_, "n1-n2", "n2", (*data_)["end"]), kForwards);
}

TEST_F(CutAndRestored, TheLinkFailsBothWaysWhileItIsCut) {
  const auto link = static_cast<uint32_t>(topology_->find_link("n1-n2").value());
  for (const uint32_t strand : {2 * link, 2 * link + 1}) {
    EXPECT_EQ(value_at(*data_, ChangeKind::kStrand, strand, at(0) - 1), 1U);
    EXPECT_EQ(value_at(*data_, ChangeKind::kStrand, strand, at(0)), 0U);
    EXPECT_EQ(value_at(*data_, ChangeKind::kStrand, strand, at(1)), 1U);
  }
}

// Signal fail goes round the ring by the three links that are left, and takes its time on each.
TEST_F(CutAndRestored, MessagesGoFromNodeToNode) {
  std::set<LinkIndex> links;
  for (const Seen& message : messages_between(*data_, at(0), at(0) + 100'000)) {
    if (message.fate != Fate::kArrived) {
      continue;
    }
    EXPECT_EQ(message.name, "SF");
    EXPECT_GT(message.lasts_us, 0);
    EXPECT_LT(message.lasts_us, 10'000);
    links.insert(message.strand / 2);
  }
  EXPECT_EQ(links, (std::set<LinkIndex>{1, 2, 3}));
}

TEST_F(CutAndRestored, TheOwnerWaitsToRestore) {
  std::vector<json> waits;
  for (const json& timer : (*data_)["timers"]) {
    if (timer[1] == static_cast<uint32_t>(TimerKind::kWtr) && timer[2] >= at(1)) {
      waits.push_back(timer);
    }
  }
  ASSERT_EQ(waits.size(), 1U);
  EXPECT_EQ((*data_)["places"][waits[0][0].get<size_t>()], json({0, 0})) << "the owner, n1";
  EXPECT_EQ(waits[0][4], static_cast<uint32_t>(TimerEnd::kExpired));
  const int64_t lasted_us = waits[0][3].get<int64_t>() - waits[0][2].get<int64_t>();
  EXPECT_GE(lasted_us, 4 * kSecondUs) << "5 s on a tick of one second";
  EXPECT_LE(lasted_us, 6 * kSecondUs + 100'000);
}

TEST_F(CutAndRestored, GuardTimersRunAtBothEndsOfTheLink) {
  std::set<NodeIndex> guarded;
  for (const json& timer : (*data_)["timers"]) {
    if (timer[1] == static_cast<uint32_t>(TimerKind::kGuard) && timer[2] >= at(1)) {
      guarded.insert((*data_)["places"][timer[0].get<size_t>()][1].get<NodeIndex>());
    }
  }
  EXPECT_EQ(guarded, (std::set<NodeIndex>{0, 1}));
}

TEST_F(CutAndRestored, NothingIsMissing) {
  for (const auto& [what, from] : (*data_)["cut_off"].items()) {
    EXPECT_TRUE(from.is_null()) << what;
  }
  EXPECT_EQ((*data_)["faults"][0]["text"], "cut n1-n2");
  EXPECT_EQ((*data_)["seed"], "20");
}

TEST(Report, TellsACrashFromACut) {
  const Topology ring = example("four-node-ring.toml");
  const Story story = tell(ring, {crash(ring, "n2", kAtHomeUs)}, kRestUs);
  const json data = data_of(report_page(story.input()));
  const int64_t at_us = data["faults"][0]["at"];
  EXPECT_EQ(value_at(data, ChangeKind::kPower, 1, at_us - 1),
            static_cast<uint32_t>(NodePower::kRunning));
  EXPECT_EQ(value_at(data, ChangeKind::kPower, 1, at_us), static_cast<uint32_t>(NodePower::kOff));
  for (uint32_t strand = 0; strand < 8; ++strand) {
    EXPECT_EQ(value_at(data, ChangeKind::kStrand, strand, data["end"]), 1U) << strand;
  }
}

TEST(Report, ShowsLostMessagesAsLost) {
  const Topology ring = example("four-node-ring.toml");
  const Story story = tell(ring, {crash(ring, "n2", kAtHomeUs)}, kRestUs);
  const json data = data_of(report_page(story.input()));
  const int64_t at_us = data["faults"][0]["at"];
  size_t lost = 0;
  for (const Seen& message : messages_between(data, at_us, at_us + kRestUs)) {
    const LinkIndex link = message.strand / 2;
    if (link == 0 || link == 1) {  // n1-n2 and n2-n3
      EXPECT_EQ(message.fate, Fate::kLost);
      ++lost;
    }
  }
  EXPECT_GT(lost, 0U);
}

TEST(Report, ShowsOperatorsCommands) {
  const Topology ring = example("four-node-ring.toml");
  const Story story =
      tell(ring, {forced_switch(ring, "n3", "n2-n3", kAtHomeUs), clear(ring, "n3", 3 * kSecondUs)},
           kRestUs);
  const json data = data_of(report_page(story.input()));
  std::vector<std::string> commands;
  for (size_t i = 0; i < data["marks"]["kind"].size(); ++i) {
    if (data["marks"]["kind"][i] == static_cast<uint32_t>(MarkKind::kCommand)) {
      EXPECT_EQ(data["marks"]["subject"][i], 2) << "n3";
      const uint32_t value = data["marks"]["value"][i];
      EXPECT_EQ(value >> 8U, 1U) << "the ring's ID";
      commands.push_back(data["commands"][std::to_string(value & 0xFFU)]);
    }
  }
  EXPECT_EQ(commands, (std::vector<std::string>{"forced switch", "clear"}));
  EXPECT_EQ(state_at(data, 0, 0, data["faults"][1]["at"]), NodeState::kForced);
}

struct Mishap {
  MarkKind kind{};
  uint32_t node = 0;
  int32_t value = 0;

  friend bool operator==(const Mishap&, const Mishap&) = default;
};

TEST(Report, ShowsWhatANodeSuffers) {
  const Topology ring = example("four-node-ring.toml");
  const Story story = tell(
      ring,
      {{"stall n2", kAtHomeUs, [](sim::Simulation& simulation) { simulation.stall(1, 300'000); }},
       {"slow n3", kSecondUs, [](sim::Simulation& simulation) { simulation.slow_down(2, 4); }},
       {"clock of n4", kSecondUs,
        [](sim::Simulation& simulation) { simulation.step_clock(3, -3600 * kSecondUs); }},
       {"failing calls at n1", kSecondUs,
        [](sim::Simulation& simulation) { simulation.fail_call(0, "adp_transmit_frame"); }}},
      kRestUs);
  const json data = data_of(report_page(story.input()));
  std::vector<Mishap> mishaps;
  for (size_t i = 0; i < data["marks"]["kind"].size(); ++i) {
    const auto kind = static_cast<MarkKind>(data["marks"]["kind"][i].get<uint32_t>());
    const auto value = data["marks"]["value"][i].get<uint32_t>();
    if (kind == MarkKind::kCallFailed) {
      EXPECT_EQ(data["failed_calls"][std::to_string(value)], "adp_transmit_frame");
    }
    if (kind >= MarkKind::kCallFailed) {
      mishaps.push_back({kind, data["marks"]["subject"][i], static_cast<int32_t>(value)});
    }
  }
  EXPECT_EQ(mishaps, (std::vector<Mishap>{{MarkKind::kStalled, 1, 300},
                                          {MarkKind::kSlowed, 2, 4},
                                          {MarkKind::kClockStep, 3, -3600},
                                          {MarkKind::kCallFailed, 0,
                                           static_cast<int32_t>(sim::PlatformCall::kTransmit)}}));
}

TEST(Report, GivesInterconnectionNodesAStateInEachRing) {
  const Topology rings = example("ladder.toml");
  const Story story = tell(rings, {cut(rings, "n2-n5", kAtHomeUs)}, kSecondUs);
  const json data = data_of(report_page(story.input()));
  const NodeIndex n2 = rings.find_node("n2").value();
  EXPECT_EQ(state_at(data, 0, n2, data["end"]), NodeState::kIdle) << "the major ring is whole";
  EXPECT_EQ(state_at(data, 1, n2, data["end"]), NodeState::kProtection);
}

TEST(Report, KeepsNamesFromBeingMarkup) {
  Topology ring = example("four-node-ring.toml");
  const std::string hostile = "</script><img src=x onerror=alert(1)> & \"'\\ \xFF";
  ring.name = "</title>" + hostile;
  ring.nodes[0].name = hostile;
  Story story = tell(ring, {}, kSecondUs);
  story.faults.push_back({"cut " + hostile, 0, 10, false, hostile});
  story.findings.push_back({"loop", 0, 1, NodeIndex{0}, hostile, ""});
  ReportInput input = story.input();
  input.command = hostile;
  const std::string page = report_page(input);
  EXPECT_EQ(page.find("<img"), std::string::npos);
  const json data = data_of(page);
  const std::string readable = hostile.substr(0, hostile.size() - 1) + "\xEF\xBF\xBD";
  EXPECT_EQ(data["nodes"][0], readable) << "with U+FFFD for what is not UTF-8";
  EXPECT_EQ(data["command"], readable);
  EXPECT_EQ(data["findings"][0]["text"], readable);
  EXPECT_EQ(between(page, "<title>", "</title>").rfind("&lt;/title&gt;&lt;/script&gt;&lt;img ", 0),
            0U);
}

TEST(Report, NeedsNothingBesidesItself) {
  const Topology ring = example("four-node-ring.toml");
  const std::string page = report_page(tell(ring, {}, kSecondUs).input());
  for (const char* reference :
       {"<link", " src=", "url(", "@import", "import(", "fetch(", "https:"}) {
    EXPECT_EQ(page.find(reference), std::string::npos) << reference;
  }
  const std::string policy = between(page, "Content-Security-Policy\" content=\"", "\"");
  EXPECT_EQ(policy.find("unsafe"), std::string::npos) << policy;
  EXPECT_EQ(policy.rfind("default-src 'none';", 0), 0U) << policy;
}

// However long the run, the page keeps its size and says since when something is missing.
TEST(Report, IsBounded) {
  const Topology ring = example("four-node-ring.toml");
  std::vector<Act> acts;
  for (int i = 0; i < 20; ++i) {
    acts.push_back(cut(ring, "n1-n2", kAtHomeUs));
    acts.push_back(restore(ring, "n1-n2", kAtHomeUs));
  }
  const RecorderLimits limits{100, 90, 8, 120, 70};
  const json data = data_of(report_page(tell(ring, acts, kRestUs, limits).input()));
  EXPECT_EQ(data["changes"]["t"].size(), limits.changes);
  EXPECT_EQ(data["marks"]["t"].size(), limits.marks);
  EXPECT_EQ(data["timers"].size(), limits.timers);
  EXPECT_EQ(data["messages"]["t"].size(), limits.messages + limits.repeats);
  EXPECT_EQ(data["faults"].size(), acts.size()) << "the table is complete";
  for (const auto& [what, from] : data["cut_off"].items()) {
    ASSERT_TRUE(from.is_number()) << what;
    EXPECT_GT(from.get<int64_t>(), 0) << what;
    EXPECT_LT(from.get<int64_t>(), data["end"].get<int64_t>()) << what;
  }
}

TEST(Report, CountsWhatHasNoRow) {
  const Topology ring = example("four-node-ring.toml");
  Story story = tell(ring, {}, kSecondUs);
  for (int i = 0; i < 5000; ++i) {
    story.faults.push_back({"cut n1-n2", i, i, i % 2 == 0, ""});
    story.findings.push_back({"loop", i, i + 1, std::nullopt, "", i % 5 == 0 ? "" : "known"});
  }
  const json data = data_of(report_page(story.input()));
  EXPECT_LT(data["faults"].size(), 5000U);
  EXPECT_LT(data["findings"].size(), 5000U);
  EXPECT_EQ(data["totals"]["faults"], 5000);
  EXPECT_EQ(data["totals"]["failed"], 2500);
  EXPECT_EQ(data["totals"]["violations"], 1000);
  EXPECT_EQ(data["totals"]["surprises"], 4000);
  EXPECT_EQ(data["totals"]["longest"]["outage"], 4999) << "though its row is left out";
}

}  // namespace
}  // namespace erps::lab
