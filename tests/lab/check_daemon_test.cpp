// The erpsd configurations of a ladder's nodes, and what each mistake between them is called.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "lab/check/daemon_checks.h"
#include "lab/node_config.h"
#include "lab/topology_file.h"
#include "tests/lab/check_rules.h"
#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

using testing::swapped;

// In place of `from` in the file of `node`.
struct Edit {
  const char* node;
  const char* from;
  const char* to;
};

struct Rule {
  const char* name;
  Severity severity;
  std::vector<Edit> edits;
  const char* file;  // that the finding is about
};

void PrintTo(const Rule& rule, std::ostream* out) {
  *out << rule.name;
}

// The files of a ladder, in a directory of their own.
class LadderFiles {
 public:
  LadderFiles() {
    const Topology topology = parse_topology(testing::ladder()).topology;
    for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
      texts_[topology.nodes[node].name + ".toml"] = node_config(topology, node);
    }
  }

  void edit(const Edit& edit) {
    std::string& text = texts_.at(std::string(edit.node) + ".toml");
    text = swapped(text, edit.from, edit.to);
  }
  void remove(const std::string& node) { texts_.erase(node + ".toml"); }

  Findings check() const {
    for (const auto& [name, text] : texts_) {
      directory_.write(name, text);
    }
    Findings findings;
    const auto paths = daemon_paths({directory_.path()}, findings);
    EXPECT_EQ(paths.size(), texts_.size());
    const auto files = read_daemon_files(paths, findings);
    check_daemons(files, rings_of(files), findings);
    return findings;
  }

 private:
  testing::TemporaryDirectory directory_;
  std::map<std::string, std::string> texts_;
};

constexpr Severity kError = Severity::kError;
constexpr Severity kWarning = Severity::kWarning;

// n1 owns ring 1 with n4 as neighbour; n2 watches and n3 marks; n5 owns ring 2 with n6 as
// neighbour.
const Rule kRules[] = {
    {"erpsd-refuses", kError, {{"n4", "wtr_ms = 5000", "wtr_ms = 50"}}, "n4"},
    {"erpsd-refuses", kError, {{"n4", "ring_role", "role"}}, "n4"},
    {"control-vlan-differs", kError, {{"n4", "control_vlan = 100", "control_vlan = 7"}}, "n4"},
    {"control-vlan-differs", kError, {{"n5", "control_vlan = 100", "control_vlan = 7"}}, "n5"},
    {"owner-missing", kError, {{"n1", "\"owner\"", "\"neighbour\""}}, "n1"},
    {"owner-repeated", kError, {{"n4", "\"neighbour\"", "\"owner\""}}, "n4"},
    {"neighbour-repeated", kError, {{"n2", "\"none\"", "\"neighbour\"\nrpl_port = 1"}}, "n4"},
    {"owner-not-lowest", kWarning, {{"n1", "00:00:01\"", "00:00:77\""}}, "n1"},
    {"owner-at-interconnection",
     kWarning,
     {{"n1", "\"owner\"", "\"neighbour\""},
      {"n4", "\"neighbour\"\nrpl_port = 2", "\"none\""},
      {"n2", "\"none\"", "\"owner\"\nrpl_port = 1"}},
     "n2"},
    {"address-repeated",
     kError,
     {{"n4", "node_address = \"02:00:00:00:00:", "node_address = \"02:00:00:00:00:01\" #"}},
     "n4"},
    {"ring-role-differs", kError, {{"n4", "\"major\"", "\"sub-ring\""}}, "n4"},
    {"sub-ring-role", kError, {{"n6", "\"sub-ring\"", "\"major\""}}, "n6"},
    {"revertive-differs", kError, {{"n4", "revertive = true", "revertive = false"}}, "n4"},
    {"non-revertive", kWarning, {{"n4", "revertive = true", "revertive = false"}}, "n4"},
    {"timers-differ", kWarning, {{"n4", "guard_ms = 500", "guard_ms = 600"}}, "n4"},
    {"timers-differ", kWarning, {{"n6", "wtr_ms = 5000", "wtr_ms = 6000"}}, "n6"},
    {"wtr-short", kWarning, {{"n4", "wtr_ms = 5000", "wtr_ms = 4000"}}, "n4"},
    {"wtr-not-whole-seconds", kWarning, {{"n4", "wtr_ms = 5000", "wtr_ms = 5500"}}, "n4"},
    {"holdoff-delays-protection", kWarning, {{"n4", "holdoff_ms = 0", "holdoff_ms = 200"}}, "n4"},
    {"ring-disabled", kWarning, {{"n4", "enable = true", "enable = false"}}, "n4"},
    {"interconnection-roles", kError, {{"n3", "\"marking\"", "\"watching\""}}, "n3"},
    {"interconnection-roles", kError, {{"n2", "\"watching\"", "\"marking\""}}, "n3"},
    {"interconnection-repeated",
     kError,
     {{"n4", "revertive = true\nenable = true\n",
       "revertive = true\nenable = true\n[[port]]\nid = 9\ninterface = \"p9\"\n[[sub_ring]]\nid = "
       "2\nmajor_ring = 1\nport = 9\ninterconnection = \"marking\"\n"}},
     "n4"},
    {"major-ring-shared",
     kWarning,
     {{"n4", "revertive = true\nenable = true\n",
       "revertive = true\nenable = true\n[[port]]\nid = 9\ninterface = \"p9\"\n[[sub_ring]]\nid = "
       "3\nmajor_ring = 1\nport = 9\ninterconnection = \"marking\"\n"}},
     "n4"},
    {"major-ring-differs",
     kError,
     {{"n3", "id = 1\nports", "id = 4\nports"}, {"n3", "major_ring = 1", "major_ring = 4"}},
     "n3"},
    {"ring-incomplete",
     kWarning,
     {{"n3", "id = 1\nports", "id = 4\nports"}, {"n3", "major_ring = 1", "major_ring = 4"}},
     "n3"},
};

class CheckDaemonRule : public ::testing::TestWithParam<Rule> {};

TEST_P(CheckDaemonRule, IsFoundInTheFileThatBreaksIt) {
  LadderFiles files;
  for (const Edit& edit : GetParam().edits) {
    files.edit(edit);
  }
  const Findings findings = files.check();
  bool found = false;
  for (const Finding& finding : findings.list()) {
    const std::string name = std::string("/") + GetParam().file + ".toml";
    if (finding.rule == GetParam().name && finding.file.ends_with(name)) {
      found = true;
      EXPECT_EQ(finding.severity, GetParam().severity) << finding.text;
      EXPECT_NE(finding.line, 0U) << finding.text;
    }
  }
  EXPECT_TRUE(found) << to_text(findings, "");
}

TEST_P(CheckDaemonRule, IsInTheTableOfTheDocumentation) {
  const auto documented = testing::documented_rules();
  const auto found = documented.find(GetParam().name);
  ASSERT_NE(found, documented.end());
  EXPECT_NE(found->second.severity.find(severity_name(GetParam().severity)), std::string::npos);
  EXPECT_TRUE(found->second.of_daemons);
}

TEST(CheckDaemons, EveryRuleOfTheDocumentationIsShown) {
  // Two by tests of their own.
  std::set<std::string> shown{"unreadable", "interconnection-incomplete"};
  for (const Rule& rule : kRules) {
    shown.insert(rule.name);
  }
  for (const auto& [name, documented] : testing::documented_rules()) {
    EXPECT_TRUE(!documented.of_daemons || shown.count(name) == 1) << name;
  }
}

INSTANTIATE_TEST_SUITE_P(Ladder, CheckDaemonRule, ::testing::ValuesIn(kRules),
                         [](const auto& rule) {
                           std::string name = rule.param.name + std::to_string(rule.index);
                           std::replace(name.begin(), name.end(), '-', '_');
                           return name;
                         });

TEST(CheckDaemons, FilesThatFitTogetherHaveNoFinding) {
  const Findings findings = LadderFiles().check();
  EXPECT_TRUE(findings.list().empty()) << to_text(findings, "");
}

TEST(CheckDaemons, AnInterconnectionNodeThatIsNotThereIsAskedFor) {
  LadderFiles files;
  files.remove("n3");
  const Findings findings = files.check();
  EXPECT_TRUE(findings.has("interconnection-incomplete")) << to_text(findings, "");
  EXPECT_FALSE(findings.has_errors()) << to_text(findings, "");
  EXPECT_EQ(testing::documented_rules().count("interconnection-incomplete"), 1U);
}

TEST(CheckDaemons, TheOtherFileIsNamedWithItsLine) {
  LadderFiles files;
  files.edit({"n4", "control_vlan = 100", "control_vlan = 7"});
  const Findings findings = files.check();
  ASSERT_EQ(findings.list().size(), 1U) << to_text(findings, "");
  const Finding& finding = findings.list()[0];
  EXPECT_EQ(finding.where, "ring 1");
  EXPECT_EQ(finding.key, "control_vlan");
  EXPECT_EQ(finding.value, "7");
  EXPECT_NE(finding.why.find("/n1.toml:27 has 100"), std::string::npos) << finding.why;
}

TEST(CheckDaemons, AFileThatTheDaemonRefusesIsComparedAsFarAsItGoes) {
  LadderFiles files;
  files.edit({"n4", "control_vlan = 100", "control_vlan = 7\ncolour = \"red\""});
  const Findings findings = files.check();
  EXPECT_TRUE(findings.has("erpsd-refuses")) << to_text(findings, "");
  EXPECT_TRUE(findings.has("control-vlan-differs")) << to_text(findings, "");
}

TEST(CheckDaemons, AGroupOfTheNodeIsNotLookedUpHere) {
  LadderFiles files;
  files.edit({"n4", "[platform]", "[management]\ngroup = \"no-such-group\"\n[platform]"});
  const Findings findings = files.check();
  EXPECT_TRUE(findings.list().empty()) << to_text(findings, "");
}

TEST(CheckDaemons, AHostileFileIsRefused) {
  const testing::TemporaryDirectory directory;
  std::string key;
  for (size_t i = 0; i < 400'000; ++i) {
    key += "a.";
  }
  Findings findings;
  read_daemon_files({directory.write("deep.toml", "\n" + key + "a = 1\n")}, findings);
  ASSERT_EQ(findings.list().size(), 1U);
  EXPECT_EQ(findings.list()[0].rule, "erpsd-refuses");
  EXPECT_EQ(findings.list()[0].line, 2U);
}

TEST(CheckDaemons, AFileIsReadOnceHoweverOftenItIsNamed) {
  const testing::TemporaryDirectory directory;
  const std::string path = directory.write("n1.toml", "");
  Findings findings;
  EXPECT_EQ(daemon_paths({path, directory.path(), path}, findings), std::vector{path});
}

TEST(CheckDaemons, WhatCannotBeReadIsAFinding) {
  const testing::TemporaryDirectory empty;
  Findings findings;
  EXPECT_TRUE(daemon_paths({empty.path()}, findings).empty());
  EXPECT_TRUE(read_daemon_files({"/nonexistent.toml"}, findings).empty());
  ASSERT_EQ(findings.list().size(), 2U);
  EXPECT_EQ(findings.list()[0].file, empty.path());
  EXPECT_EQ(findings.list()[0].why, "no *.toml file is in it");
  EXPECT_EQ(findings.list()[1].file, "/nonexistent.toml");
  EXPECT_EQ(findings.list()[1].why, "cannot be read: No such file or directory");
  for (const Finding& finding : findings.list()) {
    EXPECT_EQ(finding.rule, kUnreadable);
  }
}

}  // namespace
}  // namespace erps::lab
