// Every rule of a topology file: a file that breaks it, and the same file mended.
#include "tests/lab/check_rules.h"

#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "lab/topology_file.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

using testing::four_nodes;
using testing::ladder;
using testing::ring_of_four;
using testing::sub_ring;
using testing::swapped;

struct Rule {
  const char* name;
  Severity severity;
  std::string broken;
  std::string mended;
};

void PrintTo(const Rule& rule, std::ostream* out) {
  *out << rule.name;
}

constexpr Severity kError = Severity::kError;
constexpr Severity kWarning = Severity::kWarning;
const std::string kRing = four_nodes() + ring_of_four();
const std::string kLadder = ladder();

// The ring with something in place of something else.
Rule ring(const char* name, Severity severity, const std::string& good, const std::string& bad) {
  return {name, severity, swapped(kRing, good, bad), kRing};
}

Rule below(const char* name, Severity severity, const std::string& good, const std::string& bad) {
  return {name, severity, four_nodes() + ring_of_four() + swapped(sub_ring(), good, bad), kLadder};
}

// Keys or steps behind the ring: those that break the rule, and those that do not.
Rule more(const char* name, Severity severity, const std::string& bad, const std::string& good) {
  return {name, severity, kRing + bad, kRing + good};
}

std::string ring_of(size_t nodes, const std::string& guard) {
  std::string text = "simulation = { delay_us = 10000 }\n";
  std::string names;
  std::string links;
  for (size_t i = 1; i <= nodes; ++i) {
    const std::string name = "n" + std::to_string(i);
    text += "[[node]]\nname = \"" + name + "\"\n";
    names += (i == 1 ? "\"" : ", \"") + name + "\"";
    links += "[[link]]\nbetween = [\"" + name + "\", \"n" + std::to_string(i % nodes + 1) + "\"]\n";
  }
  return text + links + "[[ring]]\nid = 1\ncontrol_vlan = 100\nnodes = [" + names +
         "]\nowner = \"n1\"\nrpl = \"n1-n2\"\nwtr_ms = 5000\n" + guard;
}

std::string nodes(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += "[[node]]\nname = \"m" + std::to_string(i) + "\"\n";
  }
  return text;
}

// A node with so many links.
std::string star(size_t links) {
  std::string text = "[[node]]\nname = \"hub\"\n" + nodes(links);
  for (size_t i = 0; i < links; ++i) {
    text += "[[link]]\nbetween = [\"hub\", \"m" + std::to_string(i) + "\"]\n";
  }
  return text;
}

// A second sub-ring, 3, of n7 and n8 between two nodes of a major ring.
std::string second_sub_ring(const std::string& from, const std::string& to,
                            const std::string& major) {
  return "[[node]]\nname = \"n7\"\n[[node]]\nname = \"n8\"\n[[link]]\nbetween = [\"" + from +
         "\", \"n7\"]\n[[link]]\nbetween = [\"n7\", \"n8\"]\n[[link]]\nbetween = [\"n8\", \"" + to +
         "\"]\n[[ring]]\nid = 3\ncontrol_vlan = 100\nnodes = [\"" + from +
         "\", \"n7\", \"n8\", \"" + to +
         "\"]\nowner = \"n7\"\nrpl = \"n7-n8\"\nmajor_ring = " + major + "\nwatching = \"" + from +
         "\"\nwtr_ms = 5000\n";
}

std::string two_rings(const std::string& vlan) {
  return kRing + R"([[node]]
name = "n5"
[[node]]
name = "n6"
[[link]]
between = ["n1", "n5"]
[[link]]
between = ["n5", "n6"]
[[link]]
between = ["n6", "n1"]
[[ring]]
id = 2
nodes = ["n1", "n5", "n6"]
owner = "n5"
rpl = "n5-n6"
wtr_ms = 5000
control_vlan = )" +
         vlan + "\n";
}

std::string addresses(const std::string& first, const std::string& second) {
  return swapped(swapped(kRing, "name = \"n1\"\n", "name = \"n1\"\naddress = \"" + first + "\"\n"),
                 "name = \"n2\"\n", "name = \"n2\"\naddress = \"" + second + "\"\n");
}

const Rule kFileRules[] = {
    {"not-toml", kError, "[[node\n", kRing},
    {"too-large", kError, nodes(513), nodes(512)},
    {"no-node", kError, "name = \"empty\"\n", kRing},
    ring("unknown-key", kError, "rpl = ", "rlp = "),
    ring("missing-key", kError, "control_vlan = 100\n", ""),
    ring("wrong-type", kError, "wtr_ms = 5000", "wtr_ms = \"5 s\""),
    ring("wrong-value", kError, "between = [\"n1\", \"n2\"]", "between = [\"n1\", \"n1\"]"),
    ring("bad-name", kError, "name = \"test\"", "name = \"two\\nlines\""),
    ring("name-repeated", kError, "name = \"h2\"", "name = \"h1\""),
    ring("unknown-name", kError, "node = \"n3\"", "node = \"n9\""),
    {"address-repeated", kError, addresses("02:00:00:00:00:01", "02:00:00:00:00:01"),
     addresses("02:00:00:00:00:01", "02:00:00:00:00:02")},
    ring("port-range", kError, "between = [\"n1\", \"n2\"]",
         "between = [\"n1\", \"n2\"]\nports = [1, 64]"),
    {"port-repeated", kError,
     swapped(swapped(kRing, "[\"n1\", \"n2\"]", "[\"n1\", \"n2\"]\nports = [1, 1]"),
             "[\"n4\", \"n1\"]", "[\"n4\", \"n1\"]\nports = [2, 1]"),
     swapped(swapped(kRing, "[\"n1\", \"n2\"]", "[\"n1\", \"n2\"]\nports = [1, 1]"),
             "[\"n4\", \"n1\"]", "[\"n4\", \"n1\"]\nports = [2, 2]")},
    {"too-many-ports", kError, star(64), star(63)},
    {"loop-without-ring", kError, four_nodes(), kRing},
    {"stream-without-way", kError,
     swapped(kRing, "node = \"n3\"", "node = \"island\"") + "[[node]]\nname = \"island\"\n",
     kRing + "[[node]]\nname = \"island\"\n"},
};

const Rule kRingRules[] = {
    ring("ring-id-range", kError, "id = 1", "id = 240"),
    {"ring-id-repeated", kError, swapped(two_rings("200"), "id = 2", "id = 1"), two_rings("200")},
    ring("control-vlan-zero", kError, "control_vlan = 100", "control_vlan = 0"),
    ring("control-vlan-range", kError, "control_vlan = 100", "control_vlan = 4095"),
    {"control-vlan-repeated", kError, two_rings("100"), two_rings("200")},
    ring("ring-node-repeated", kError, "\"n2\", \"n3\", \"n4\"]", "\"n2\", \"n3\", \"n2\"]"),
    ring("ring-too-small", kError, "[\"n1\", \"n2\", \"n3\", \"n4\"]", "[\"n1\"]"),
    ring("ring-not-joined", kError, "\"n2\", \"n3\", \"n4\"]", "\"n3\", \"n2\", \"n4\"]"),
    {"link-in-two-rings", kError, kRing + swapped(ring_of_four(), "id = 1", "id = 2"), kRing},
    ring("owner-missing", kError, "owner = \"n1\"\n", ""),
    ring("owner-repeated", kError, "owner = \"n1\"", "owner = [\"n1\", \"n3\"]"),
    {"owner-outside-ring", kError,
     swapped(kRing, "owner = \"n1\"", "owner = \"x\"") + "[[node]]\nname = \"x\"\n",
     kRing + "[[node]]\nname = \"x\"\n"},
    {"owner-not-lowest", kWarning, addresses("02:00:00:00:00:07", "02:00:00:00:00:06"),
     addresses("02:00:00:00:00:01", "02:00:00:00:00:06")},
    ring("rpl-missing", kError, "rpl = \"n4-n1\"\n", ""),
    {"rpl-outside-ring", kError,
     swapped(kRing, "rpl = \"n4-n1\"", "rpl = \"n1-x\"") +
         "[[node]]\nname = \"x\"\n[[link]]\nbetween = [\"n1\", \"x\"]\n",
     kRing + "[[node]]\nname = \"x\"\n[[link]]\nbetween = [\"n1\", \"x\"]\n"},
    ring("rpl-not-at-owner", kError, "rpl = \"n4-n1\"", "rpl = \"n2-n3\""),
    more("rpl-neighbour-misplaced", kError, "neighbour = \"n2\"\n", "neighbour = \"n4\"\n"),
    more("neighbour-repeated", kError, "neighbour = [\"n2\", \"n4\"]\n", "neighbour = \"n4\"\n"),
    more("non-revertive", kWarning, "revertive = false\n", "revertive = true\n"),
    more("timer-range", kError, "guard_ms = 9\n", "guard_ms = 10\n"),
    ring("wtr-short", kWarning, "wtr_ms = 5000", "wtr_ms = 4000"),
    ring("wtr-not-whole-seconds", kWarning, "wtr_ms = 5000", "wtr_ms = 5500"),
    {"guard-shorter-than-transit", kWarning, ring_of(10, "guard_ms = 100\n"),
     ring_of(10, "guard_ms = 110\n")},
    more("holdoff-delays-protection", kWarning, "holdoff_ms = 100\n", "holdoff_ms = 0\n"),
    more("expectation-below-holdoff", kWarning, "holdoff_ms = 100\n[expect]\ncut_outage_ms = 50\n",
         "holdoff_ms = 100\n[expect]\ncut_outage_ms = 1100\n"),
    {"expectation-without-stream", kWarning,
     swapped(kRing, "[[stream]]\nbetween = [\"h1\", \"h2\"]\n", "") + "[expect]\nduplicates = 0\n",
     kRing + "[expect]\nduplicates = 0\n"},
};

const Rule kSubRingRules[] = {
    below("interconnection-roles", kError, "watching = \"n2\"", "watching = [\"n2\", \"n3\"]"),
    below("interconnection-roles", kError, "watching = \"n2\"", "watching = []"),
    below("interconnection-roles", kError, "watching = \"n2\"\n", ""),
    below("watching-misplaced", kError, "watching = \"n2\"", "watching = \"n5\""),
    more("watching-without-major-ring", kError, "watching = \"n1\"\n", ""),
    below("major-ring-unknown", kError, "major_ring = 1", "major_ring = 7"),
    below("sub-ring-end-outside-major-ring", kError, "\"n5\", \"n6\", \"n3\"]", "\"n5\", \"n6\"]"),
    {"sub-ring-node-in-major-ring", kError,
     four_nodes() + ring_of_four() +
         swapped(sub_ring(), "\"n6\", \"n3\"]\nowner", "\"n6\", \"n3\", \"n4\"]\nowner") +
         "[[link]]\nbetween = [\"n3\", \"n4\"]\nname = \"second\"\n",
     kLadder},
    below("control-vlan-differs", kError, "control_vlan = 100", "control_vlan = 101"),
    below("timers-differ", kError, "wtr_ms = 5000", "wtr_ms = 6000"),
    below("sub-ring-role", kError, "major_ring = 1", "major_ring = 1\nrole = \"major\""),
    below("sub-ring-revertive", kError, "major_ring = 1", "major_ring = 1\nrevertive = false"),
    {"sub-ring-second-at-node", kError, kLadder + second_sub_ring("n2", "n4", "1"),
     kLadder + second_sub_ring("n1", "n4", "1")},
    {"sub-ring-at-sub-ring-end", kError, kLadder + second_sub_ring("n2", "n6", "2"),
     kLadder + second_sub_ring("n5", "n6", "2")},
    {"major-ring-shared", kWarning, kLadder + second_sub_ring("n1", "n4", "1"),
     kLadder + second_sub_ring("n5", "n6", "2")},
    {"owner-at-interconnection", kWarning,
     swapped(kLadder, "owner = \"n1\"\nrpl = \"n4-n1\"", "owner = \"n2\"\nrpl = \"n1-n2\""),
     kLadder},
};

const std::string kForced = "[[step]]\nforced_switch = \"n2:n2-n3\"\n";
const std::string kManual = "[[step]]\nmanual_switch = \"n2:n2-n3\"\n";
const std::string kClear = "[[step]]\nclear = \"n2\"\n";
const std::string kCut = "[[step]]\ncut = \"n3-n4\"\n";
const std::string kRestore = "[[step]]\nrestore = \"n3-n4\"\n";
const std::string kState = "state = { 1 = \"protection\" }\n";

const Rule kScriptRules[] = {
    more("step-empty", kError, "[[step]]\n", kCut),
    more("step-ambiguous", kError, kCut + "kill = \"n1\"\n", kCut),
    more("step-impossible", kError, kRestore, kCut + kRestore),
    more("step-outcome-unknown", kError, kForced + kCut, kForced + kCut + kState),
    more("port-elsewhere", kError, "[[step]]\nforced_switch = \"n4:n2-n3\"\n", kForced),
    more("clear-with-failed-link", kWarning, kForced + kCut + kState + kClear + kState,
         kForced + kCut + kState + kRestore + kState + kClear),
    more("manual-switch-outlives-failure", kWarning, kManual + kCut, kManual + kClear + kCut),
    more("switch-before-message", kWarning, "[[step]]\nforced_switch = \"n1:n1-n2\"\n", kForced),
};

class CheckRule : public ::testing::TestWithParam<Rule> {};

TEST_P(CheckRule, IsFoundWhereItIsBrokenAndOnlyThere) {
  const Findings broken = parse_topology(GetParam().broken).findings;
  size_t found = 0;
  for (const Finding& finding : broken.list()) {
    if (finding.rule == GetParam().name) {
      ++found;
      EXPECT_EQ(finding.severity, GetParam().severity) << finding.text;
      EXPECT_FALSE(finding.text.empty());
    }
  }
  EXPECT_GE(found, 1U) << to_text(broken, "broken");
  const Findings mended = parse_topology(GetParam().mended).findings;
  EXPECT_FALSE(mended.has(GetParam().name)) << to_text(mended, "mended");
  EXPECT_FALSE(mended.has_errors()) << to_text(mended, "mended");
}

TEST_P(CheckRule, IsInTheTableOfTheDocumentation) {
  const auto documented = testing::documented_rules();
  const auto found = documented.find(GetParam().name);
  ASSERT_NE(found, documented.end());
  EXPECT_NE(found->second.severity.find(severity_name(GetParam().severity)), std::string::npos);
  EXPECT_TRUE(found->second.of_topologies);
}

TEST(CheckRules, EveryRuleOfTheDocumentationIsShown) {
  std::set<std::string> shown{"unreadable"};  // by the tests of the command
  const auto add = [&](const auto& rules) {
    for (const Rule& rule : rules) {
      shown.insert(rule.name);
    }
  };
  add(kFileRules);
  add(kRingRules);
  add(kSubRingRules);
  add(kScriptRules);
  for (const auto& [name, documented] : testing::documented_rules()) {
    EXPECT_TRUE(!documented.of_topologies || shown.count(name) == 1) << name;
  }
}

std::string rule_name(const ::testing::TestParamInfo<Rule>& info) {
  std::string name = info.param.name + std::to_string(info.index);
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(File, CheckRule, ::testing::ValuesIn(kFileRules), rule_name);
INSTANTIATE_TEST_SUITE_P(Ring, CheckRule, ::testing::ValuesIn(kRingRules), rule_name);
INSTANTIATE_TEST_SUITE_P(SubRing, CheckRule, ::testing::ValuesIn(kSubRingRules), rule_name);
INSTANTIATE_TEST_SUITE_P(Script, CheckRule, ::testing::ValuesIn(kScriptRules), rule_name);

}  // namespace
}  // namespace erps::lab
