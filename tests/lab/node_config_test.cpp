// The generated configuration, read back by the daemon's own reader.
#include "lab/node_config.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "client/words.h"
#include "host/config.h"
#include "lab/topology_file.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& text) {
    char path[] = "/tmp/erpslab-config-XXXXXX";
    close(mkstemp(path));
    path_ = path;
    std::ofstream(path_) << text;
  }
  ~TemporaryFile() { unlink(path_.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

host::Config config_of(const std::string& topology_text, const std::string& node) {
  const TopologyFile file = parse_topology(topology_text);
  EXPECT_FALSE(file.findings.has_errors()) << to_text(file.findings, "f");
  const TemporaryFile config(node_config(file.topology, *file.topology.find_node(node)));
  return host::read_config(config.path());
}

TEST(NodeConfig, OfAnOwnerHasItsPortsRolesAndTimers) {
  const auto config = config_of(
      testing::four_nodes() + testing::ring_of_four("guard_ms = 300\nholdoff_ms = 100\n"), "n1");
  EXPECT_EQ(config.bridge, "br0");
  EXPECT_EQ(client::mac_text(config.node_address.value()), "02:00:00:00:00:01");
  EXPECT_EQ(config.wtr_ms, 5000U);
  EXPECT_EQ(config.guard_ms, 300U);
  EXPECT_EQ(config.holdoff_ms, 100U);
  ASSERT_EQ(config.ports.size(), 2U);
  EXPECT_EQ(config.ports[0].interface, "p1");
  ASSERT_EQ(config.rings.size(), 1U);
  const auto& ring = config.rings[0];
  EXPECT_EQ(ring.ring.ring, 1U);
  EXPECT_EQ(ring.ring.control_vlan, 100U);
  EXPECT_EQ(ring.ring.node_role, client::kOwner);
  EXPECT_EQ(ring.ring.ring_role, client::kMajorRing);
  EXPECT_EQ(ring.ring.port1, 2U) << "port 2 leads to n4, which is the RPL";
  EXPECT_TRUE(ring.revertive);
  EXPECT_TRUE(ring.enable);
}

TEST(NodeConfig, OfTheNeighbourAndOfAPlainNodeSayTheirRole) {
  const std::string text = testing::four_nodes() + testing::ring_of_four();
  EXPECT_EQ(config_of(text, "n4").rings[0].ring.node_role, client::kNeighbour);
  EXPECT_EQ(config_of(text, "n2").rings[0].ring.node_role, client::kNoRplRole);
}

TEST(NodeConfig, OfAnInterconnectionNodeHasItsMajorRingAndItsSubRing) {
  const auto config = config_of(testing::ladder(), "n2");
  ASSERT_EQ(config.rings.size(), 1U);
  ASSERT_EQ(config.sub_rings.size(), 1U);
  EXPECT_EQ(config.rings[0].ring.ring, 1U);
  EXPECT_EQ(config.sub_rings[0].ring.ring, 2U);
  EXPECT_EQ(config.sub_rings[0].ring.major_ring, 1U);
  EXPECT_EQ(config.sub_rings[0].ring.port, 3U);
  EXPECT_EQ(config.sub_rings[0].ring.interconnection_role, client::kWatching);
  EXPECT_EQ(config_of(testing::ladder(), "n3").sub_rings[0].ring.interconnection_role,
            client::kMarking);
}

TEST(NodeConfig, OfANodeInsideASubRingHasARingWithTheRoleOfASubRing) {
  const auto config = config_of(testing::ladder(), "n5");
  ASSERT_EQ(config.rings.size(), 1U);
  EXPECT_EQ(config.rings[0].ring.ring_role, client::kSubRing);
  EXPECT_EQ(config.rings[0].ring.node_role, client::kOwner);
  EXPECT_TRUE(config.sub_rings.empty());
}

TEST(NodeConfig, OfEveryNodeOfEveryExampleIsAccepted) {
  for (const char* example : {"four-node-ring", "sixteen-node-ring", "ladder", "three-rings"}) {
    const std::string path = std::string(ERPS_EXAMPLES) + "/" + example + ".toml";
    const TopologyFile file = load_topology(path);
    // Two sub-rings of one major ring are warned of; nothing else is to be said of an example.
    const size_t expected = std::string_view(example) == "three-rings" ? 1 : 0;
    EXPECT_EQ(file.findings.list().size(), expected) << to_text(file.findings, path);
    EXPECT_TRUE(
        std::all_of(file.findings.list().begin(), file.findings.list().end(),
                    [](const Finding& finding) { return finding.rule == "major-ring-shared"; }));
    for (NodeIndex node = 0; node < file.topology.nodes.size(); ++node) {
      const TemporaryFile config(node_config(file.topology, node));
      std::vector<std::string> warnings;
      EXPECT_NO_THROW(warnings = host::read_config(config.path()).warnings)
          << path << ", " << file.topology.nodes[node].name;
      // An interconnection node is reminded of the other one, whatever its own role is.
      for (const std::string& warning : warnings) {
        EXPECT_NE(warning.find("warning: interconnection = "), std::string::npos) << warning;
      }
    }
  }
}

TEST(NodeConfig, OfANodeWithoutRingIsEmpty) {
  const TopologyFile file = parse_topology("[[node]]\nname = \"alone\"\n");
  EXPECT_EQ(node_config(file.topology, 0), "");
}

}  // namespace
}  // namespace erps::lab
