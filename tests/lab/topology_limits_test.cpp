// Files that nobody wrote by hand: they are refused, or read, in little time.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>

#include "lab/topology_file.h"
#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

using testing::four_nodes;
using testing::ring_of_four;

// Far more than any of them takes, on a loaded machine and under a sanitizer.
constexpr std::chrono::seconds kBound{20};

Findings read_in_time(const std::string& text) {
  const auto start = std::chrono::steady_clock::now();
  Findings findings = parse_topology(text).findings;
  EXPECT_LT(std::chrono::steady_clock::now() - start, kBound);
  return findings;
}

std::string repeated(const std::string& text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

std::string nodes(size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += "[[node]]\nname = \"n" + std::to_string(i) + "\"\n";
  }
  return text;
}

std::string link(size_t a, size_t b) {
  return "[[link]]\nbetween = [\"n" + std::to_string(a) + "\", \"n" + std::to_string(b) + "\"]\n";
}

TEST(TopologyLimits, AMillionNodesAreRefused) {
  const Findings findings = read_in_time(nodes(1'000'000));
  EXPECT_TRUE(findings.has("too-large"));
}

TEST(TopologyLimits, EveryKindOfTableHasItsLimit) {
  for (const char* table :
       {"[[node]]\n", "[[link]]\n", "[[host]]\n", "[[ring]]\n", "[[stream]]\n", "[[step]]\n"}) {
    const Findings findings = read_in_time(repeated(table, 5000));
    EXPECT_TRUE(findings.has("too-large")) << table;
  }
}

TEST(TopologyLimits, DeepNestingIsRefused) {
  for (const char* part : {"[", "{a=", "[{a="}) {
    EXPECT_TRUE(read_in_time("a = " + repeated(part, 100'000)).has("not-toml")) << part;
  }
}

TEST(TopologyLimits, KeysOfManyPartsAreRefused) {
  EXPECT_TRUE(read_in_time(repeated("a.", 400'000) + "a = 1\n").has("not-toml"));
  EXPECT_TRUE(read_in_time("[" + repeated("a.", 400'000) + "a]\n").has("not-toml"));
  EXPECT_FALSE(read_in_time("# " + repeated(".", 90) + "\n" + nodes(1)).has_errors());
}

TEST(TopologyLimits, KeysOfManyPartsInsideEachOtherDoNotExhaustTheStack) {
  const std::string deep = repeated("a.", 99) + "a";
  std::string text = "[" + deep + "]\n";
  for (size_t i = 0; i < 120; ++i) {
    text += deep + " = [{\n";
  }
  EXPECT_TRUE(read_in_time(text).has("not-toml"));
  EXPECT_TRUE(read_in_time("[" + deep + "]\n" + deep + " = 1\n").has("unknown-key"));
}

// As many of everything as is allowed, in one ring, with the costliest script.
TEST(TopologyLimits, TheLargestFileIsReadInTime) {
  constexpr size_t kNodes = 512;
  std::string text = nodes(kNodes);
  std::string names;
  for (size_t i = 0; i < kNodes; ++i) {
    text += link(i, (i + 1) % kNodes);
    names += (i == 0 ? "\"n" : ", \"n") + std::to_string(i) + "\"";
    text +=
        "[[host]]\nname = \"h" + std::to_string(i) + "\"\nnode = \"n" + std::to_string(i) + "\"\n";
  }
  for (size_t i = 0; i < 256; ++i) {
    text += "[[stream]]\nbetween = [\"h" + std::to_string(i) + "\", \"h" + std::to_string(i + 1) +
            "\"]\n";
  }
  text += "[[ring]]\nid = 1\ncontrol_vlan = 100\nnodes = [" + names +
          "]\nowner = \"n0\"\nrpl = \"n0-n1\"\nwtr_ms = 5000\n";
  for (size_t i = 0; i < 2048; ++i) {
    text += "[[step]]\ncut = \"n5-n6\"\n[[step]]\nrestore = \"n5-n6\"\n";
  }
  const Findings findings = read_in_time(text);
  EXPECT_FALSE(findings.has_errors()) << to_text(findings, "large").substr(0, 1000);
}

TEST(TopologyLimits, OwnersThatWaitForEachOtherAreOrderedInTime) {
  constexpr size_t kNodes = 200;
  std::ostringstream text;
  text << nodes(kNodes);
  for (size_t here = 0; here < kNodes; ++here) {
    const size_t next = (here + 1) % kNodes;
    for (const char* link : {"a", "b"}) {
      text << "[[link]]\nname = \"" << link << here << "\"\nbetween = [\"n" << here << "\", \"n"
           << next << "\"]\n";
    }
    text << "[[ring]]\nid = " << here + 1 << "\ncontrol_vlan = " << here + 1 << "\nnodes = [\"n"
         << here << "\", \"n" << next << "\"]\nowner = \"n" << here << "\"\nrpl = \"a" << here
         << "\"\nwtr_ms = 5000\n";
  }
  EXPECT_TRUE(read_in_time(text.str()).has("owner-not-lowest"));
}

TEST(TopologyLimits, LongValuesAreCutOffInFindings) {
  const Findings findings =
      read_in_time("name = [" + repeated("\"xxxxxxxxxxxxxxxx\", ", 50'000) + "]\n");
  ASSERT_TRUE(findings.has("wrong-type"));
  EXPECT_LT(findings.list()[0].text.size(), 400U);
}

TEST(TopologyLimits, AFileWithoutEndIsRefused) {
  const Findings findings = load_topology("/dev/zero").findings;
  EXPECT_TRUE(findings.has("too-large"));
}

TEST(TopologyLimits, NumbersBeyondTheirRangeAreNotTakenForOthers) {
  // 2^32 + 1 is not ring 1.
  const std::string ring = four_nodes() + ring_of_four();
  EXPECT_TRUE(read_in_time(ring + "[[step]]\nwait_ms = 1\nstate = { 4294967297 = \"idle\" }\n")
                  .has("unknown-name"));
  EXPECT_TRUE(
      read_in_time(ring + "[[step]]\nclear = \"n1\"\nring = 4294967297\n").has("ring-id-range"));
}

}  // namespace
}  // namespace erps::lab
