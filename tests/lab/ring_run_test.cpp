// A ring of four bridges in namespaces: a link is cut and restored under traffic, and what its
// nodes sent each other is read by an independent dissector.
#include <gtest/gtest.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab::testing {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds kLongestRun{280};
constexpr const char* kExpectations =
    "[expect]\ncut_outage_ms = 50\nrestore_outage_ms = 10\nduplicates = 0\n";
constexpr const char* kCutAndRestore = "[[step]]\ncut = \"n2-n3\"\n[[step]]\nrestore = \"n2-n3\"\n";

std::string output_of(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[4096];
  for (size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    text.append(buffer, count);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

// The R-APS messages of a capture as tshark reads them.
json dissected(const std::string& path) {
  json messages = json::array();
  const std::string text =
      output_of("tshark -r " + path + " -T json --no-duplicate-keys 2>/dev/null");
  for (const json& packet : json::parse(text)) {
    messages.push_back(packet["_source"]["layers"]);
  }
  return messages;
}

std::string state_of(const json& step, const std::string& node) {
  for (const json& entry : step["nodes"]) {
    if (entry["node"] == node) {
      std::string text = entry["rings"][0]["state"];
      for (const json& blocked : entry["rings"][0]["blocked"]) {
        text += " " + blocked["link"].get<std::string>();
      }
      return text;
    }
  }
  return "no such node";
}

bool did(const json& step, const std::string& node, const std::string& event,
         const std::string& link, const std::string& message = "") {
  for (const json& entry : step["nodes"]) {
    for (const json& happened : entry["events"]) {
      if (entry["node"] == node && happened["event"] == event &&
          (link.empty() || happened.value("link", "") == link) &&
          happened.value("message", "") == message) {
        return true;
      }
    }
  }
  return false;
}

// One run for all tests of this file: it takes a quarter of a minute.
class RingRun : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    directory_ = std::make_unique<TemporaryDirectory>();
    const std::string path = directory_->write(
        "ring.toml", four_nodes() + ring_of_four() + kExpectations + kCutAndRestore);
    LabProcess lab({lab_path(), "run", path, "--json", "--erpsd", daemon_path(), "--module",
                    module_path(), "--pcap", directory_->path() + "/pcap", "--logs",
                    directory_->path() + "/logs"});
    result_ = lab.wait(kLongestRun);
    report_ = json::parse(result_.out, nullptr, false);
  }
  static void TearDownTestSuite() { directory_.reset(); }

  void SetUp() override {
    ASSERT_TRUE(report_.is_object()) << result_.out << result_.err;
    ASSERT_EQ(report_["steps"].size(), 3U) << result_.out << result_.err;
  }

  static const json& step(size_t index) { return report_["steps"][index]; }

  static std::unique_ptr<TemporaryDirectory> directory_;
  static LabResult result_;
  static json report_;
};

std::unique_ptr<TemporaryDirectory> RingRun::directory_;
LabResult RingRun::result_;
json RingRun::report_;

TEST_F(RingRun, HoldsEveryExpectation) {
  EXPECT_EQ(result_.status, 0) << result_.out << result_.err;
  EXPECT_TRUE(report_["passed"]);
  EXPECT_TRUE(report_["complete"]);
}

TEST_F(RingRun, StartsIdleWithTheRplBlockedAtBothEnds) {
  EXPECT_EQ(state_of(step(0), "n1"), "idle n4-n1");
  EXPECT_EQ(state_of(step(0), "n2"), "idle");
  EXPECT_EQ(state_of(step(0), "n3"), "idle");
  EXPECT_EQ(state_of(step(0), "n4"), "idle n4-n1");
}

TEST_F(RingRun, ProtectsWhileALinkIsCut) {
  EXPECT_EQ(state_of(step(1), "n1"), "protection");
  EXPECT_EQ(state_of(step(1), "n2"), "protection n2-n3");
  EXPECT_EQ(state_of(step(1), "n3"), "protection n2-n3");
  EXPECT_EQ(state_of(step(1), "n4"), "protection");
}

TEST_F(RingRun, ComesHomeWhenTheLinkIsBack) {
  EXPECT_EQ(state_of(step(2), "n1"), "idle n4-n1");
  EXPECT_EQ(state_of(step(2), "n2"), "idle");
}

TEST_F(RingRun, TellsWhatEachNodeDid) {
  EXPECT_TRUE(did(step(1), "n2", "link-down", "n2-n3"));
  EXPECT_TRUE(did(step(1), "n3", "link-down", "n2-n3"));
  EXPECT_TRUE(did(step(1), "n2", "raps-sent", "n1-n2", "SF"));
  EXPECT_TRUE(did(step(1), "n1", "opened", "n4-n1"));
  EXPECT_TRUE(did(step(1), "n4", "flushed", "n4-n1"));
  EXPECT_TRUE(did(step(2), "n2", "link-up", "n2-n3"));
  EXPECT_TRUE(did(step(2), "n1", "blocked", "n4-n1"));
  EXPECT_TRUE(did(step(2), "n1", "raps-sent", "", "NR,RB"));
}

TEST_F(RingRun, TellsInTheOrderOfTime) {
  for (const size_t index : {1, 2}) {
    for (const json& node : step(index)["nodes"]) {
      std::vector<double> times;
      for (const json& happened : node["events"]) {
        times.push_back(happened["ms"]);
      }
      EXPECT_GT(times.size(), 1u) << node;
      EXPECT_TRUE(std::is_sorted(times.begin(), times.end())) << node;
    }
  }
}

TEST_F(RingRun, MeasuresBothDirectionsOfTheStream) {
  for (const size_t index : {1, 2}) {
    const json& directions = step(index)["traffic"]["directions"];
    ASSERT_EQ(directions.size(), 2U);
    EXPECT_EQ(directions[0]["from"], "h1");
    EXPECT_EQ(directions[1]["from"], "h2");
    for (const json& direction : directions) {
      EXPECT_GT(direction["sent"], 1000);
      EXPECT_EQ(direction["duplicated"], 0);
      EXPECT_GT(direction["outage_ms"], 0.09) << "frames are 0.1 ms apart";
    }
  }
}

TEST_F(RingRun, KeepsLogAndJournalOfEveryDaemon) {
  for (const char* name : {"n1", "n2", "n3", "n4"}) {
    const std::string path = directory_->path() + "/logs/" + name;
    EXPECT_GT(std::filesystem::file_size(path + ".log"), 0U);
    EXPECT_GT(std::filesystem::file_size(path + ".journal"), 0U);
  }
}

TEST_F(RingRun, EveryCapturedFrameIsAnRapsMessageToTheDissector) {
  for (const char* name : {"n1", "n2", "n3", "n4"}) {
    const json messages = dissected(directory_->path() + "/pcap/" + name + ".pcapng");
    EXPECT_GT(messages.size(), 5U) << name;
    for (const json& message : messages) {
      EXPECT_EQ(message["eth"]["eth.dst"], "01:19:a7:00:00:01");
      EXPECT_EQ(message["vlan"]["vlan.id"], "100");
      EXPECT_EQ(message["vlan"]["vlan.priority"], "7");
      EXPECT_EQ(message["vlan"]["vlan.etype"], "0x8902");
      EXPECT_EQ(message["cfm"]["cfm.opcode"], "40");
      EXPECT_EQ(message["cfm"]["cfm.version"], "1");
      EXPECT_EQ(message["cfm"]["cfm.md.level"], "0");
      ASSERT_TRUE(message.contains("cfm.raps.pdu")) << message.dump(1);
      EXPECT_EQ(message["cfm.raps.pdu"]["cfm.first.tlv.offset"], "32");
      EXPECT_EQ(message["cfm.raps.pdu"]["cfm.flags"], "0x00");
      EXPECT_EQ(message["cfm.raps.pdu"]["cfm.raps.node.id"], message["eth"]["eth.src"]);
    }
  }
}

// A message that went out of or came into a port of the node, with its request and flags.
bool captured(const json& messages, const std::string& port, bool outgoing,
              const std::string& request, const std::string& flags, const std::string& node_id) {
  for (const json& message : messages) {
    const json& pdu = message["cfm.raps.pdu"];
    if (message["frame"]["frame.interface_id_tree"]["frame.interface_name"] == port &&
        message["frame"]["frame.packet_flags"] == (outgoing ? "0x00000002" : "0x00000001") &&
        pdu["cfm.raps.req.st"] == request && pdu["cfm.raps.flags"] == flags &&
        pdu["cfm.raps.node.id"] == node_id) {
      return true;
    }
  }
  return false;
}

TEST_F(RingRun, TheDissectorReadsRequestFlagsAndNodeIdAsIntended) {
  const json n2 = dissected(directory_->path() + "/pcap/n2.pcapng");
  const std::string own = "02:00:00:00:00:02";
  const std::string owner = "02:00:00:00:00:01";
  // The cut link is at the second ring port of n2, which is what the BPR flag says.
  EXPECT_TRUE(captured(n2, "p1", true, "0x0b", "0x20", own)) << "SF for the cut link";
  EXPECT_TRUE(captured(n2, "p1", true, "0x00", "0x20", own)) << "NR when it is back";
  EXPECT_TRUE(captured(n2, "p1", false, "0x00", "0x80", owner)) << "NR,RB of the owner";
  const json n1 = dissected(directory_->path() + "/pcap/n1.pcapng");
  EXPECT_TRUE(captured(n1, "p1", true, "0x00", "0x80", owner)) << "NR,RB as it leaves the owner";
}

TEST(RingRunSwitches, ForcedSwitchManualSwitchAndClearDoWhatTheySay) {
  const TemporaryDirectory directory;
  const std::string path = directory.write(
      "ring.toml", four_nodes() + ring_of_four() +
                       "[expect]\nduplicates = 0\n"
                       "[[step]]\nforced_switch = \"n2:n2-n3\"\n[[step]]\nclear = \"n2\"\n"
                       "[[step]]\nmanual_switch = \"n3:n3-n4\"\n[[step]]\nclear = \"n3\"\n");
  LabProcess lab({lab_path(), "run", path, "--json", "--keep-going", "--erpsd", daemon_path(),
                  "--module", module_path()});
  const LabResult result = lab.wait(kLongestRun);
  const json report = json::parse(result.out, nullptr, false);
  ASSERT_TRUE(report.is_object()) << result.err;
  ASSERT_EQ(report["steps"].size(), 5U);
  EXPECT_EQ(state_of(report["steps"][1], "n2"), "forced n2-n3");
  EXPECT_EQ(state_of(report["steps"][1], "n1"), "forced");
  EXPECT_EQ(state_of(report["steps"][2], "n1"), "idle n4-n1");
  EXPECT_EQ(state_of(report["steps"][3], "n3"), "manual n3-n4");
  EXPECT_EQ(state_of(report["steps"][4], "n1"), "idle n4-n1");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(RingRunDaemons, AKilledDaemonLeavesTheRingAsItWasAndComesBack) {
  const TemporaryDirectory directory;
  const std::string path =
      directory.write("ring.toml", four_nodes() + ring_of_four() +
                                       "[expect]\nduplicates = 0\n"
                                       "[[step]]\nkill = \"n3\"\n[[step]]\nwait_ms = 1500\n"
                                       "[[step]]\nstart = \"n3\"\n");
  LabProcess lab({lab_path(), "run", path, "--json", "--keep-going", "--erpsd", daemon_path(),
                  "--module", module_path()});
  const LabResult result = lab.wait(kLongestRun);
  const json report = json::parse(result.out, nullptr, false);
  ASSERT_TRUE(report.is_object()) << result.err;
  ASSERT_EQ(report["steps"].size(), 4U);
  EXPECT_FALSE(report["steps"][1]["nodes"][2]["answered"]);
  EXPECT_EQ(state_of(report["steps"][3], "n3"), "idle");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

// A ring that protects itself at once may lose nothing: its sender, too, has to wait for a
// processor.
TEST(RingRunFailures, WhatIsSentWhileNothingProtectsIsLost) {
  const TemporaryDirectory directory;
  const std::string path =
      directory.write("ring.toml", four_nodes() + ring_of_four("holdoff_ms = 1000\n") +
                                       "[expect]\nduplicates = 0\n[[step]]\ncut = \"n2-n3\"\n");
  LabProcess lab(
      {lab_path(), "run", path, "--json", "--erpsd", daemon_path(), "--module", module_path()});
  const LabResult result = lab.wait(kLongestRun);
  const json report = json::parse(result.out, nullptr, false);
  ASSERT_TRUE(report.is_object()) << result.err;
  ASSERT_EQ(report["steps"].size(), 2U);
  // The way between the hosts leads over the cut link.
  for (const json& direction : report["steps"][1]["traffic"]["directions"]) {
    EXPECT_GT(direction["outage_ms"], 900) << "it begins with the first frame that is lost";
    EXPECT_GT(direction["lost"], 5000) << "of 10,000 a second";
  }
  EXPECT_EQ(state_of(report["steps"][1], "n2"), "protection n2-n3");
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(RingRunFailures, ABoundThatCannotHoldFailsTheRunAndStopsIt) {
  const TemporaryDirectory directory;
  // The hold-off time alone is far above the bound, whatever the machine does meanwhile.
  const std::string path =
      directory.write("ring.toml", four_nodes() + ring_of_four("holdoff_ms = 2000\n") +
                                       "[expect]\ncut_outage_ms = 50\n" + kCutAndRestore);
  LabProcess lab({lab_path(), "run", path, "--erpsd", daemon_path(), "--module", module_path()});
  const LabResult result = lab.wait(kLongestRun);
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_NE(result.out.find("FAIL  outage at most 50 ms: "), std::string::npos) << result.out;
  EXPECT_EQ(result.out.find("restore n2-n3"), std::string::npos) << "the step behind is not done";
  EXPECT_NE(result.out.find("stopped after a step that failed"), std::string::npos);
  for (size_t at = 0; at < result.out.size();) {
    const size_t end = result.out.find('\n', at);
    EXPECT_LE(end - at, 100U) << result.out.substr(at, end - at);
    at = end + 1;
  }
}

}  // namespace
}  // namespace erps::lab::testing
