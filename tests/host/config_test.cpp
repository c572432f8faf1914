// A configuration file: what is understood, and one case for every mistake with its exact message.
#include "host/config.h"

#include <gtest/gtest.h>

#include <fstream>
#include <ostream>
#include <sstream>

#include "client/words.h"
#include "host/options.h"
#include "tests/host/temporary_file.h"

namespace erps::host {
namespace {

// Line numbers in the expected messages count from here.
constexpr const char* kPorts = R"(bridge = "br0"
[[port]]
id = 1
interface = "eth1"
[[port]]
id = 2
interface = "eth2"
[[port]]
id = 3
interface = "eth3"
)";  // 10 lines

constexpr const char* kRing = R"([[ring]]
id = 1
ports = [1, 2]
control_vlan = 100
)";  // lines 11 to 14

std::vector<std::string> mistakes_in(const std::string& text) {
  const test::TemporaryFile file(text);
  try {
    read_config(file.path());
  } catch (const ConfigError& error) {
    std::vector<std::string> mistakes;
    for (const std::string& mistake : error.mistakes()) {
      EXPECT_EQ(mistake.rfind(file.path() + ":", 0), 0u) << mistake;
      mistakes.push_back(mistake.substr(file.path().size() + 1));
    }
    return mistakes;
  }
  return {};
}

Config read(const std::string& text) {
  return read_config(test::TemporaryFile(text).path());
}

TEST(ConfigReading, EveryOptionArrivesWhereItBelongs) {
  const Config config = read(R"(
bridge = "br0"
node_address = "02:00:00:00:00:01"
[log]
level = "debug"
[management]
group = "root"
[platform]
carrier_poll_ms = 7
realtime_priority = 9
[timers]
guard_ms = 600
wtr_ms = 60000
holdoff_ms = 100
[[port]]
id = 1
interface = "eth1"
[[port]]
id = 63
interface = "eth2"
[[port]]
id = 3
interface = "eth3"
[[ring]]
id = 239
ports = [1, 63]
control_vlan = 4094
node_role = "neighbour"
rpl_port = 63
ring_role = "sub-ring"
revertive = false
enable = false
[[sub_ring]]
id = 2
major_ring = 239
port = 3
node_role = "none"
interconnection = "watching"
enable = false
)");
  EXPECT_EQ(config.bridge, "br0");
  EXPECT_EQ(client::mac_text(config.node_address.value()), "02:00:00:00:00:01");
  EXPECT_EQ(config.log_level, "debug");
  EXPECT_EQ(config.group, gid_t{0});
  EXPECT_EQ(config.carrier_poll_ms, 7);
  EXPECT_EQ(config.realtime_priority, 9);
  EXPECT_EQ(config.guard_ms, 600u);
  EXPECT_EQ(config.wtr_ms, 60000u);
  EXPECT_EQ(config.holdoff_ms, 100u);
  ASSERT_EQ(config.ports.size(), 3u);
  EXPECT_EQ(config.ports[1].id, 63u);
  EXPECT_EQ(config.ports[1].interface, "eth2");
  ASSERT_EQ(config.rings.size(), 1u);
  const RingConfig& ring = config.rings[0];
  EXPECT_EQ(ring.ring.ring, 239u);
  EXPECT_EQ(ring.ring.control_vlan, 4094u);
  EXPECT_EQ(ring.ring.node_role, client::kNeighbour);
  EXPECT_EQ(ring.ring.ring_role, client::kSubRing);
  EXPECT_FALSE(ring.revertive);
  EXPECT_FALSE(ring.enable);
  ASSERT_EQ(config.sub_rings.size(), 1u);
  EXPECT_EQ(config.sub_rings[0].ring.ring, 2u);
  EXPECT_EQ(config.sub_rings[0].ring.major_ring, 239u);
  EXPECT_EQ(config.sub_rings[0].ring.port, 3u);
  EXPECT_EQ(config.sub_rings[0].ring.node_role, client::kNoRplRole);
  EXPECT_EQ(config.sub_rings[0].ring.interconnection_role, client::kWatching);
  EXPECT_FALSE(config.sub_rings[0].enable);
}

TEST(ConfigReading, WhatIsLeftOutHasItsDefault) {
  const Config config = read(std::string(kPorts) + kRing);
  EXPECT_FALSE(config.node_address);
  EXPECT_EQ(config.log_level, "notice");
  EXPECT_FALSE(config.group);
  EXPECT_EQ(config.carrier_poll_ms, 5);
  EXPECT_EQ(config.realtime_priority, 0);
  EXPECT_EQ(config.guard_ms, 500u);
  EXPECT_EQ(config.wtr_ms, 300000u);
  EXPECT_EQ(config.holdoff_ms, 0u);
  EXPECT_EQ(config.rings.at(0).ring.node_role, client::kNoRplRole);
  EXPECT_EQ(config.rings.at(0).ring.ring_role, client::kMajorRing);
  EXPECT_TRUE(config.rings.at(0).revertive);
  EXPECT_TRUE(config.rings.at(0).enable);
  EXPECT_TRUE(config.warnings.empty());
}

TEST(ConfigReading, RplPortBecomesTheSecondPort) {
  for (const char* rpl_port : {"1", "2"}) {
    const Config config =
        read(std::string(kPorts) + kRing + "node_role = \"owner\"\nrpl_port = " + rpl_port + "\n");
    EXPECT_EQ(config.rings.at(0).ring.port1, std::stoul(rpl_port));
    EXPECT_EQ(config.rings.at(0).ring.port0, 3 - std::stoul(rpl_port));
  }
}

TEST(ConfigReading, PlainNodeKeepsTheOrderOfItsPorts) {
  const Config config =
      read(std::string(kPorts) + "[[ring]]\nid = 1\nports = [2, 1]\ncontrol_vlan = 5\n");
  EXPECT_EQ(config.rings.at(0).ring.port0, 2u);
  EXPECT_EQ(config.rings.at(0).ring.port1, 1u);
}

TEST(ConfigReading, AnInterconnectionNodeIsWarnedOfTheRoleOfTheOther) {
  for (const std::string role : {"watching", "marking"}) {
    const Config config =
        read(std::string(kPorts) + kRing + "[[sub_ring]]\nid = 2\nmajor_ring = 1\nport = 3\n" +
             "interconnection = \"" + role + "\"\n");
    ASSERT_EQ(config.warnings.size(), 1u);
    EXPECT_NE(config.warnings[0].find("warning: interconnection = \"" + role +
                                      "\": the other interconnection node of this sub-ring must "
                                      "have the other interconnection role: two watching nodes "
                                      "build a loop"),
              std::string::npos)
        << config.warnings[0];
  }
}

TEST(ConfigReading, HazardousSettingsAreAcceptedWithAWarning) {
  const test::TemporaryFile file(std::string(kPorts) + kRing +
                                 "revertive = false\n[timers]\nwtr_ms = 1500\n");
  const std::vector<std::string> warnings = read_config(file.path()).warnings;
  ASSERT_EQ(warnings.size(), 3u);
  EXPECT_EQ(warnings[0].rfind(file.path() + ":17: warning: WTR below 5000 ms", 0), 0u)
      << warnings[0];
  EXPECT_EQ(warnings[1],
            file.path() + ":17: warning: the module counts WTR in whole seconds: 1 s are used");
  EXPECT_EQ(warnings[2].rfind(file.path() + ":15: warning: non-revertive: the ring does not", 0),
            0u)
      << warnings[2];
}

TEST(ConfigReading, MissingFileIsNamed) {
  try {
    read_config("/nonexistent/erpsd.toml");
    FAIL();
  } catch (const ConfigError& error) {
    EXPECT_STREQ(error.what(), "/nonexistent/erpsd.toml: No such file or directory");
  }
}

TEST(ConfigDocumentation, ExplainsEveryOptionAsTheTableDoes) {
  std::ostringstream page;
  page << std::ifstream(ERPSD_PAGE).rdbuf();
  std::string help = help_config();
  help.erase(help.find_last_not_of('\n') + 1);
  EXPECT_NE(page.str().find("```\n" + help + "\n```"), std::string::npos)
      << "docs/erpsd.md does not hold what erpsd --help-config prints";
}

struct Case {
  const char* name;
  std::string text;
  std::vector<std::string> expected;
};

void PrintTo(const Case& param, std::ostream* out) {
  *out << param.name;
}

class ConfigMistakes : public testing::TestWithParam<Case> {};

TEST_P(ConfigMistakes, IsToldWithLineKeyValueAndWhatIsAllowed) {
  EXPECT_EQ(mistakes_in(GetParam().text), GetParam().expected);
}

std::string ports_and(const std::string& text) {
  return kPorts + text;
}
std::string ring_and(const std::string& text) {
  return std::string(kPorts) + kRing + text;
}
std::string sub_ring(const std::string& text) {
  return ring_and("[[sub_ring]]\n" + text);
}

INSTANTIATE_TEST_SUITE_P(
    Shape, ConfigMistakes,
    testing::Values(
        Case{"Syntax",
             "bridge = \"br0\"\n[[port]\n",
             {"2: column 8: Error while parsing table header: expected ']', saw '\\n'"}},
        Case{"EmptyFile",
             "",
             {"1: bridge: missing; it must be the name of a network interface, 1 to 15 characters",
              "1: port: missing; at least one [[port]] section is needed"}},
        Case{"UnknownKeyWithANearOne",
             ring_and("control_vlna = 3\n"),
             {"15: ring.control_vlna = 3: unknown key; did you mean control_vlan?"}},
        Case{"UnknownKeyFarFromAll",
             ring_and("[log]\nzzzzzzzzzzzz = true\n"),
             {"16: log.zzzzzzzzzzzz = true: unknown key; known here are level"}},
        Case{"UnknownSection",
             ring_and("[timer]\nguard_ms = 500\n"),
             {"15: timer = {...}: unknown key; did you mean timers?"}},
        Case{"UnknownTopKey",
             "brigde = \"br0\"\n" + ring_and(""),
             {"1: brigde = \"br0\": unknown key; did you mean bridge?"}},
        Case{"SectionThatIsNone",
             "log = 3\n" + ring_and(""),
             {"1: log = 3: must be a section [log]"}},
        Case{"RepeatedSectionThatIsNone",
             ring_and("[sub_ring]\nid = 4\n"),
             {"15: sub_ring = {...}: must be sections [[sub_ring]], one each"}},
        Case{"PortSectionThatIsNone",
             "bridge = \"br0\"\nport = 5\n",
             {"2: port = 5: must be sections [[port]], one each"}},
        Case{"DuplicateKey",
             "bridge = \"br0\"\nbridge = \"br1\"\n",
             {"2: column 10: Error while parsing key-value pair: cannot redefine existing string "
              "'bridge'"}}),
    [](const testing::TestParamInfo<Case>& param) { return param.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Values, ConfigMistakes,
    testing::Values(
        Case{"BridgeOfTheWrongType",
             "bridge = 7\n[[port]]\nid = 1\ninterface = \"e\"\n",
             {"1: bridge = 7: must be the name of a network interface, 1 to 15 characters"}},
        Case{"BridgeNameTooLong",
             "bridge = \"a234567890123456\"\n[[port]]\nid = 1\ninterface = \"e\"\n",
             {"1: bridge = \"a234567890123456\": must be the name of a network interface, 1 to 15 "
              "characters"}},
        Case{"InterfaceNameWithASlash",
             "bridge = \"br0\"\n[[port]]\nid = 1\ninterface = \"a/b\"\n",
             {"4: port.interface = \"a/b\": must be the name of a network interface, 1 to 15 "
              "characters"}},
        Case{"NodeAddressThatIsNoAddress",
             "node_address = \"02:00\"\n" + ring_and(""),
             {"1: node_address = \"02:00\": must be a unicast MAC address such as "
              "\"02:00:00:00:00:01\""}},
        Case{"NodeAddressOfAGroup",
             "node_address = \"01:19:a7:00:00:01\"\n" + ring_and(""),
             {"1: node_address = \"01:19:a7:00:00:01\": must be a unicast MAC address such as "
              "\"02:00:00:00:00:01\""}},
        Case{"NodeAddressZero",
             "node_address = \"00:00:00:00:00:00\"\n" + ring_and(""),
             {"1: node_address = \"00:00:00:00:00:00\": must be a unicast MAC address such as "
              "\"02:00:00:00:00:01\""}},
        Case{"LogLevel",
             ring_and("[log]\nlevel = \"warning\"\n"),
             {"16: log.level = \"warning\": must be \"error\", \"notice\" or \"debug\""}},
        Case{"GroupOfTheWrongType",
             ring_and("[management]\ngroup = 4\n"),
             {"16: management.group = 4: must be text"}},
        Case{"UnknownGroup",
             ring_and("[management]\ngroup = \"no-such-group\"\n"),
             {"16: management.group = \"no-such-group\": there is no such group on this machine"}},
        Case{"CarrierPoll",
             ring_and("[platform]\ncarrier_poll_ms = 1001\n"),
             {"16: platform.carrier_poll_ms = 1001: must be a whole number, 0 to 1000 ms"}},
        Case{"RealtimePriority",
             ring_and("[platform]\nrealtime_priority = -1\n"),
             {"16: platform.realtime_priority = -1: must be a whole number, 0 to 99"}},
        Case{"Guard",
             ring_and("[timers]\nguard_ms = 9\n"),
             {"16: timers.guard_ms = 9: must be a whole number, 10 to 2000 ms"}},
        Case{"Wtr",
             ring_and("[timers]\nwtr_ms = 720001\n"),
             {"16: timers.wtr_ms = 720001: must be a whole number, 1000 to 720000 ms"}},
        Case{"WtrWithAFraction",
             ring_and("[timers]\nwtr_ms = 5000.5\n"),
             {"16: timers.wtr_ms = 5000.5: must be a whole number, 1000 to 720000 ms"}},
        Case{"Holdoff",
             ring_and("[timers]\nholdoff_ms = 10001\n"),
             {"16: timers.holdoff_ms = 10001: must be a whole number, 0 to 10000 ms"}},
        Case{"PortId",
             "bridge = \"br0\"\n[[port]]\nid = 64\ninterface = \"eth1\"\n",
             {"3: port.id = 64: must be a whole number, 1 to 63"}},
        Case{"PortIdZero",
             "bridge = \"br0\"\n[[port]]\nid = 0\ninterface = \"eth1\"\n",
             {"3: port.id = 0: must be a whole number, 1 to 63"}},
        Case{"RingId",
             ports_and("[[ring]]\nid = 240\nports = [1, 2]\ncontrol_vlan = 100\n"),
             {"12: ring.id = 240: must be a whole number, 1 to 239"}},
        Case{"RingIdOfTheWrongType",
             ports_and("[[ring]]\nid = \"1\"\nports = [1, 2]\ncontrol_vlan = 100\n"),
             {"12: ring.id = \"1\": must be a whole number, 1 to 239"}},
        Case{"PortsNotAPair",
             ports_and("[[ring]]\nid = 1\nports = [1, 2, 3]\ncontrol_vlan = 100\n"),
             {"13: ring.ports = [1, 2, 3]: must be two different ports such as [1, 2], each 1 to "
              "63"}},
        Case{"PortsOfTheWrongType",
             ports_and("[[ring]]\nid = 1\nports = [1, \"2\"]\ncontrol_vlan = 100\n"),
             {"13: ring.ports = [1, \"2\"]: must be two different ports such as [1, 2], each 1 to "
              "63"}},
        Case{"PortsTheSame",
             ports_and("[[ring]]\nid = 1\nports = [2, 2]\ncontrol_vlan = 100\n"),
             {"13: ring.ports = [2, 2]: must be two different ports such as [1, 2], each 1 to 63"}},
        Case{"ControlVlanZero",
             ports_and("[[ring]]\nid = 1\nports = [1, 2]\ncontrol_vlan = 0\n"),
             {"14: ring.control_vlan = 0: must be a whole number, 1 to 4094"}},
        Case{"NodeRole",
             ring_and("node_role = \"neighbor\"\n"),
             {"15: ring.node_role = \"neighbor\": must be \"owner\", \"neighbour\" or \"none\""}},
        Case{"RingRole",
             ring_and("ring_role = \"sub\"\n"),
             {"15: ring.ring_role = \"sub\": must be \"major\" or \"sub-ring\""}},
        Case{"Revertive",
             ring_and("revertive = 1\n"),
             {"15: ring.revertive = 1: must be true or false"}},
        Case{"Interconnection",
             sub_ring("id = 2\nmajor_ring = 1\nport = 3\ninterconnection = \"both\"\n"),
             {"19: sub_ring.interconnection = \"both\": must be \"watching\" or \"marking\""}}),
    [](const testing::TestParamInfo<Case>& param) { return param.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Missing, ConfigMistakes,
    testing::Values(
        Case{"PortInterface",
             "bridge = \"br0\"\n[[port]]\nid = 1\n",
             {"2: port.interface: missing; it must be the name of a network interface, 1 to 15 "
              "characters"}},
        Case{"RingVlan",
             ports_and("[[ring]]\nid = 1\nports = [1, 2]\n"),
             {"11: ring.control_vlan: missing; it must be a whole number, 1 to 4094"}},
        Case{"RplPortOfAnOwner",
             ring_and("node_role = \"owner\"\n"),
             {"11: ring.rpl_port: missing; node_role \"owner\" needs it"}},
        Case{"SubRingInterconnection",
             sub_ring("id = 2\nmajor_ring = 1\nport = 3\n"),
             {"15: sub_ring.interconnection: missing; it must be \"watching\" or \"marking\""}}),
    [](const testing::TestParamInfo<Case>& param) { return param.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Contradictions, ConfigMistakes,
    testing::Values(
        Case{"PortIdTwice",
             ports_and("[[port]]\nid = 2\ninterface = \"eth4\"\n"),
             {"12: port.id = 2: already used by port.id in line 6"}},
        Case{"InterfaceTwice",
             ports_and("[[port]]\nid = 4\ninterface = \"eth2\"\n"),
             {"13: port.interface = \"eth2\": already used by port.interface in line 7"}},
        Case{
            "BridgeAsPort",
            ports_and("[[port]]\nid = 4\ninterface = \"br0\"\n"),
            {"13: port.interface = \"br0\": is the bridge itself; a port of the bridge is needed"}},
        Case{"UnknownPort",
             ports_and("[[ring]]\nid = 1\nports = [1, 9]\ncontrol_vlan = 100\n"),
             {"13: ring.ports = [1, 9]: port 9 has no [[port]] section; known are 1, 2, 3"}},
        Case{"RingIdTwice",
             ring_and("[[port]]\nid = 4\ninterface = \"eth4\"\n"
                      "[[ring]]\nid = 1\nports = [3, 4]\ncontrol_vlan = 101\n"),
             {"19: ring.id = 1: already used by ring.id in line 12"}},
        Case{
            "VlanTwice",
            ring_and("[[port]]\nid = 4\ninterface = \"eth4\"\n"
                     "[[ring]]\nid = 2\nports = [3, 4]\ncontrol_vlan = 100\n"),
            {"21: ring.control_vlan = 100: each ring needs a control VLAN of its own; already used "
             "by ring.control_vlan in line 14"}},
        Case{"PortInTwoRings",
             ring_and("[[ring]]\nid = 2\nports = [2, 3]\ncontrol_vlan = 101\n"),
             {"17: ring.ports = [2, 3]: port 2 is already used by ring.ports in line 13"}},
        Case{"RplPortOfAPlainNode",
             ring_and("rpl_port = 1\n"),
             {"15: ring.rpl_port = 1: only for node_role \"owner\" or \"neighbour\", and this is "
              "\"none\""}},
        Case{"RplPortOfAnotherRing",
             ring_and("node_role = \"owner\"\nrpl_port = 3\n"),
             {"16: ring.rpl_port = 3: must be one of the ring's ports, 1 or 2"}},
        Case{"RplPortOutOfRangeIsToldOnce",
             ring_and("node_role = \"owner\"\nrpl_port = 99\n"),
             {"16: ring.rpl_port = 99: must be a whole number, 1 to 63"}},
        Case{"SubRingOfAnUnknownRing",
             sub_ring("id = 2\nmajor_ring = 7\nport = 3\ninterconnection = \"watching\"\n"),
             {"17: sub_ring.major_ring = 7: there is no [[ring]] with this id; known are 1"}},
        Case{"SubRingWithTheIdOfItsRing",
             sub_ring("id = 1\nmajor_ring = 1\nport = 3\ninterconnection = \"watching\"\n"),
             {"16: sub_ring.id = 1: already used by ring.id in line 12"}},
        Case{"SubRingOnAPortOfItsRing",
             sub_ring("id = 2\nmajor_ring = 1\nport = 2\ninterconnection = \"watching\"\n"),
             {"18: sub_ring.port = 2: port 2 is already used by ring.ports in line 13"}},
        Case{"SubRingOnAnUnknownPort",
             sub_ring("id = 2\nmajor_ring = 1\nport = 5\ninterconnection = \"watching\"\n"),
             {"18: sub_ring.port = 5: port 5 has no [[port]] section; known are 1, 2, 3"}},
        Case{"TwoSubRingsOfOneRing",
             sub_ring("id = 2\nmajor_ring = 1\nport = 3\ninterconnection = \"watching\"\n"
                      "[[port]]\nid = 4\ninterface = \"eth4\"\n"
                      "[[sub_ring]]\nid = 3\nmajor_ring = 1\nport = 4\ninterconnection = "
                      "\"marking\"\n"),
             {"25: sub_ring.major_ring = 1: a ring takes one sub-ring; already taken by "
              "sub_ring.major_ring in line 17"}},
        Case{"AllInOneGo",
             "[[port]]\nid = 70\ninterface = \"eth1\"\nspeed = 10\n[[ring]]\nid = 0\n"
             "ports = [1, 2]\nenable = \"yes\"\n",
             {"1: bridge: missing; it must be the name of a network interface, 1 to 15 characters",
              "2: port.id = 70: must be a whole number, 1 to 63",
              "4: port.speed = 10: unknown key; known here are id, interface",
              "5: ring.control_vlan: missing; it must be a whole number, 1 to 4094",
              "6: ring.id = 0: must be a whole number, 1 to 239",
              "7: ring.ports = [1, 2]: port 1 has no [[port]] section; known are none",
              "7: ring.ports = [1, 2]: port 2 has no [[port]] section; known are none",
              "8: ring.enable = \"yes\": must be true or false"}}),
    [](const testing::TestParamInfo<Case>& param) { return param.param.name; });

}  // namespace
}  // namespace erps::host
