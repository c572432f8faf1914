// Every mistake in a topology file, with the message that it gets.
#include <gtest/gtest.h>

#include <sstream>

#include "lab/topology_file.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

using testing::four_nodes;
using testing::ladder;
using testing::ring_of_four;
using testing::sub_ring;
using testing::swapped;

struct Mistake {
  const char* name;
  std::string text;
  const char* message;  // as it is printed, behind the file's name
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
  *out << mistake.name;
}

class TopologyMistake : public ::testing::TestWithParam<Mistake> {};

TEST_P(TopologyMistake, IsRefusedWithLineValueAndWhatIsAllowed) {
  const TopologyFile file = parse_topology(GetParam().text);
  EXPECT_TRUE(file.findings.has_errors());
  const std::string text = to_text(file.findings, "f");
  EXPECT_NE(text.find(GetParam().message), std::string::npos) << text;
}

const std::string kRing = four_nodes() + ring_of_four();

const Mistake kFileMistakes[] = {
    {"NotToml", "name = \n", "f:1: error: this is not TOML"},
    {"NoNode", "name = \"empty\"\n", "f: error: no [[node]]: a topology has one node at least"},
    {"UnknownKeyAtTheTop", "nodes = 4\n" + kRing,
     "f:1: error: topology: nodes: unknown key; allowed: name, simulation, expect, script, "
     "node, link, host, ring, stream, step"},
    {"NodeIsNoListOfTables", "node = 3\n",
     "f:1: error: topology: node = 3: allowed: tables that begin with [[node]]"},
};

const Mistake kNodeMistakes[] = {
    {"NodeWithoutName", "[[node]]\n", "f:1: error: node: name: missing; allowed: a text"},
    {"NodeNameIsANumber", "[[node]]\nname = 3\n",
     "f:2: error: node: name = 3: allowed: a text in quotes"},
    {"NodeNameWithAColon", "[[node]]\nname = \"a:b\"\n",
     "f:2: error: node: name = 'a:b': allowed: 1 to 31 letters"},
    {"NodeNameTwice", "[[node]]\nname = \"a\"\n[[node]]\nname = \"a\"\n",
     "f:4: error: node a: name = 'a': another node has this name"},
    {"NodeWithUnknownKey", "[[node]]\nname = \"a\"\ncolour = \"red\"\n",
     "f:3: error: node a: colour: unknown key; allowed: name, address"},
    {"AddressTooShort", "[[node]]\nname = \"a\"\naddress = \"02:00\"\n",
     "f:3: error: node a: address = '02:00': allowed: an individual MAC address"},
    {"AddressOfAGroup", "[[node]]\nname = \"a\"\naddress = \"01:00:00:00:00:01\"\n",
     "f:3: error: node a: address = '01:00:00:00:00:01': allowed: an individual MAC address"},
    {"AddressTwice",
     "[[node]]\nname = \"a\"\naddress = \"02:00:00:00:00:01\"\n"
     "[[node]]\nname = \"b\"\naddress = \"02:00:00:00:00:01\"\n",
     "f:4: error: node b: address = 02:00:00:00:00:01: node a has this address, too"},
};

const Mistake kLinkMistakes[] = {
    {"LinkWithoutEnds", "[[node]]\nname = \"a\"\n[[link]]\n",
     "f:3: error: link: between: missing; allowed: two different nodes"},
    {"LinkWithOneEnd", "[[node]]\nname = \"a\"\n[[link]]\nbetween = [\"a\"]\n",
     "f:4: error: link: between = [ 'a' ]: allowed: two different nodes"},
    {"LinkToItself", "[[node]]\nname = \"a\"\n[[link]]\nbetween = [\"a\", \"a\"]\n",
     "f:4: error: link: between = [ 'a', 'a' ]: allowed: two different nodes"},
    {"LinkToNobody", "[[node]]\nname = \"a\"\n[[link]]\nbetween = [\"a\", \"z\"]\n",
     "f:4: error: link a-z: between = [ 'a', 'z' ]: no node is named z; allowed: a"},
    {"LinkNameTwice", swapped(kRing, "between = [\"n2\", \"n3\"]", "between = [\"n1\", \"n2\"]"),
     "another link is named n1-n2; give one of them a name"},
    {"PortTwice",
     swapped(
         swapped(kRing, "between = [\"n1\", \"n2\"]", "between = [\"n1\", \"n2\"]\nports = [1, 1]"),
         "between = [\"n4\", \"n1\"]", "between = [\"n4\", \"n1\"]\nports = [1, 1]"),
     "link n4-n1: ports = [ 1, 1 ]: port 1 of n1 belongs to link n1-n2"},
    {"PortOutOfRange",
     swapped(kRing, "between = [\"n1\", \"n2\"]", "between = [\"n1\", \"n2\"]\nports = [1, 64]"),
     "link n1-n2: ports = [ 1, 64 ]: allowed: a list of numbers from 1 to 63"},
    {"OnePort",
     swapped(kRing, "between = [\"n1\", \"n2\"]", "between = [\"n1\", \"n2\"]\nports = [1]"),
     "ports = [ 1 ]: allowed: two port numbers, in the order of between"},
    {"LoopWithoutARing", four_nodes(),
     "f:16: error: link n4-n1: closes a loop that no ring's RPL opens"},
};

const Mistake kHostMistakes[] = {
    {"HostWithoutNode", "[[node]]\nname = \"a\"\n[[host]]\nname = \"h\"\n",
     "f:3: error: host h: node: missing; allowed: the name of a node"},
    {"HostAtNobody", "[[node]]\nname = \"a\"\n[[host]]\nname = \"h\"\nnode = \"b\"\n",
     "f:5: error: host h: node = 'b': no node is named b; allowed: a"},
    {"HostNameTwice", kRing + "[[host]]\nname = \"h1\"\nnode = \"n2\"\n",
     "host h1: name = 'h1': another host has this name"},
    {"StreamToNobody", kRing + "[[stream]]\nbetween = [\"h1\", \"h9\"]\n",
     "stream: between = [ 'h1', 'h9' ]: no host is named h9; allowed: h1, h2"},
    {"StreamTooFast", kRing + "[[stream]]\nbetween = [\"h1\", \"h2\"]\nframes_per_s = 1000000\n",
     "stream: frames_per_s = 1000000: allowed: 1 to 100000 frames a second"},
    {"StreamWithoutAWay",
     kRing + "[[node]]\nname = \"island\"\n[[host]]\nname = \"h3\"\nnode = \"island\"\n"
             "[[stream]]\nbetween = [\"h1\", \"h3\"]\n",
     "stream: between h1 and h3: no link joins them"},
};

const Mistake kRingMistakes[] = {
    {"RingIdTooHigh", swapped(kRing, "id = 1", "id = 240"), "ring: id = 240: allowed: 1 to 239"},
    {"RingIdMissing", swapped(kRing, "id = 1\n", ""), "ring: id: missing; allowed: 1 to 239"},
    {"RingIdTwice", kRing + ring_of_four(), "ring 1: id = 1: another ring has this ID"},
    {"UntaggedControlVlan", swapped(kRing, "control_vlan = 100", "control_vlan = 0"),
     "ring 1: control_vlan = 0: untagged R-APS messages are not understood between nodes; allowed: "
     "1 "
     "to 4094"},
    {"NoControlVlan", swapped(kRing, "control_vlan = 100\n", ""),
     "ring 1: control_vlan: missing; allowed: 1 to 4094"},
    {"RingOfUnknownNode", swapped(kRing, "\"n2\", \"n3\", \"n4\"]", "\"n2\", \"n9\"]"),
     "no node is named n9; allowed: n1, n2, n3, n4"},
    {"NodeTwiceInARing", swapped(kRing, "\"n2\", \"n3\", \"n4\"]", "\"n2\", \"n2\"]"),
     "node n2 stands twice in the ring"},
    {"RingOfOneNode", swapped(kRing, "\"n1\", \"n2\", \"n3\", \"n4\"]", "\"n1\"]"),
     "ring 1: nodes = [ 'n1' ]: allowed: two or more nodes"},
    {"RingNodesNotJoined", swapped(kRing, "\"n2\", \"n3\", \"n4\"]", "\"n3\", \"n2\", \"n4\"]"),
     "no link joins n1 and n3"},
    {"NoOwner", swapped(kRing, "owner = \"n1\"\n", ""),
     "ring 1: owner: missing; allowed: a node of the ring"},
    {"OwnerElsewhere",
     swapped(kRing, "owner = \"n1\"", "owner = \"x\"") + "[[node]]\nname = \"x\"\n",
     "ring 1: owner = 'x': this node is not part of the ring"},
    {"NoRpl", swapped(kRing, "rpl = \"n4-n1\"\n", ""),
     "ring 1: rpl: missing; allowed: a link of the ring at its owner"},
    {"UnknownRpl", swapped(kRing, "rpl = \"n4-n1\"", "rpl = \"n1-n4\""),
     "no link is named n1-n4; allowed: n1-n2, n2-n3, n3-n4, n4-n1"},
    {"RplNotAtTheOwner", swapped(kRing, "rpl = \"n4-n1\"", "rpl = \"n2-n3\""),
     "ring 1: rpl = 'n2-n3': the RPL must have an end at the owner n1"},
    {"NeighbourNotAtTheRpl", kRing + "neighbour = \"n2\"\n",
     "ring 1: neighbour = 'n2': the RPL neighbour is at the other end of the RPL; allowed: n4"},
    {"UnknownRole", kRing + "role = \"minor\"\n",
     "ring 1: role = 'minor': allowed: major, sub-ring"},
    {"WtrTooShort", swapped(kRing, "wtr_ms = 5000", "wtr_ms = 500"),
     "ring 1: wtr_ms = 500: allowed: 1000 to 720000 ms"},
    {"GuardTooLong", kRing + "guard_ms = 5000\n",
     "ring 1: guard_ms = 5000: allowed: 10 to 2000 ms"},
    {"HoldoffNegative", kRing + "holdoff_ms = -1\n",
     "ring 1: holdoff_ms = -1: allowed: 0 to 10000 ms"},
    {"RevertiveIsNoFlag", kRing + "revertive = \"yes\"\n",
     "ring 1: revertive = 'yes': allowed: true, false"},
    {"RingWithUnknownKey", kRing + "wtr = 5\n", "ring 1: wtr: unknown key; allowed: id, "},
    {"WatchingWithoutMajorRing", kRing + "watching = \"n1\"\n",
     "ring 1: watching = 'n1': only a sub-ring with a major_ring has interconnection nodes"},
};

const Mistake kSubRingMistakes[] = {
    {"BothWatch", kRing + sub_ring("watching = [\"n2\", \"n3\"]\n"),
     "ring 2: watching = [ 'n2', 'n3' ]: exactly one interconnection node watches and the other "
     "one marks: two watching nodes build a loop after a single cut"},
    {"BothMark", kRing + sub_ring("watching = []\n"),
     "exactly one interconnection node watches and the other one marks: two watching nodes build a "
     "loop after a single cut, two marking nodes do not repair a split"},
    {"NobodyWatches", kRing + sub_ring(""),
     "ring 2: watching: missing; allowed: the first or the last of the sub-ring's nodes"},
    {"InnerNodeWatches", kRing + sub_ring("watching = \"n5\"\n"),
     "ring 2: watching = 'n5': only the ends of a sub-ring watch or mark; allowed: n2, n3"},
    {"SubRingIdTooHigh", kRing + swapped(sub_ring(), "id = 2", "id = 240"),
     "ring: id = 240: allowed: 1 to 239"},
    {"SubRingIdOfAnotherRingAndFarTooHigh",
     kRing + swapped(sub_ring(), "id = 2", "id = 4294967297"),
     "ring: id = 4294967297: allowed: 1 to 239"},
    {"SubRingIdThatIsNoWholeNumber", kRing + swapped(sub_ring(), "id = 2", "id = 1e22"),
     "ring: id = 1e+22: allowed: 1 to 239"},
    {"UnknownMajorRing", kRing + swapped(sub_ring(), "major_ring = 1", "major_ring = 9"),
     "ring 2: major_ring = 9: allowed: the ID of another ring of this file"},
    {"OtherControlVlan", kRing + swapped(sub_ring(), "control_vlan = 100", "control_vlan = 200"),
     "ring 2: control_vlan = 200: a sub-ring shares the control VLAN of its major ring; allowed: "
     "100"},
    {"EndOutsideTheMajorRing",
     kRing + swapped(sub_ring(), "nodes = [\"n2\", \"n5\", \"n6\", \"n3\"]",
                     "nodes = [\"n2\", \"n5\", \"n6\"]"),
     "ring 2: nodes: n6 is an end of the sub-ring and must be part of major ring 1"},
    {"MajorRole", kRing + sub_ring("watching = \"n2\"\nrole = \"major\"\n"),
     "ring 2: role = 'major': a ring with a major_ring is a sub-ring; allowed: sub-ring"},
    {"OtherTimers", kRing + swapped(sub_ring(), "wtr_ms = 5000", "wtr_ms = 6000"),
     "ring 2: wtr_ms, guard_ms or holdoff_ms differ from those of ring 1, and node n2 is part of "
     "both: a node has one set of timers"},
};

const Mistake kScriptMistakes[] = {
    {"StepThatDoesNothing", kRing + "[[step]]\n",
     "step 1: does nothing; allowed: one of cut, restore, forced_switch, manual_switch, clear, "
     "kill, start, wait_ms"},
    {"StepThatDoesTwoThings", kRing + "[[step]]\ncut = \"n1-n2\"\nkill = \"n1\"\n",
     "step 1: kill = 'n1': a step does one thing, and this one has cut"},
    {"CutOfUnknownLink", kRing + "[[step]]\ncut = \"n1-n3\"\n",
     "step 1: cut = 'n1-n3': no link is named n1-n3; allowed: n1-n2, n2-n3, n3-n4, n4-n1"},
    {"CutTwice", kRing + "[[step]]\ncut = \"n1-n2\"\n[[step]]\ncut = \"n1-n2\"\n",
     "step 2 (cut n1-n2): link n1-n2 is cut already at this point of the script"},
    {"RestoreOfAWholeLink", kRing + "[[step]]\nrestore = \"n1-n2\"\n",
     "step 1 (restore n1-n2): link n1-n2 is not cut at this point of the script"},
    {"SwitchAtNoPort", kRing + "[[step]]\nforced_switch = \"n1\"\n",
     "step 1: forced_switch = 'n1': allowed: node:link, as in n1:n1-n2"},
    {"SwitchAtTheWrongNode", kRing + "[[step]]\nforced_switch = \"n3:n1-n2\"\n",
     "step 1: forced_switch = 'n3:n1-n2': link n1-n2 does not end at n3"},
    {"ClearOfNothing", kRing + "[[step]]\nclear = \"n1\"\n",
     "step 1 (clear at n1 on ring 1): no switch was commanded at this node and ring"},
    {"ClearWithoutRing",
     ladder() + "[[step]]\nforced_switch = \"n2:n1-n2\"\n[[step]]\nclear = \"n2\"\n",
     "step 2: clear = 'n2': this node is part of several rings; say which with ring"},
    {"ManualSwitchWhileProtecting",
     kRing + "[[step]]\ncut = \"n1-n2\"\n[[step]]\nmanual_switch = \"n3:n3-n4\"\n",
     "a manual switch is refused while the ring is protecting"},
    {"StartOfARunningDaemon", kRing + "[[step]]\nstart = \"n1\"\n",
     "step 1 (start the daemon of n1): its daemon runs at this point of the script"},
    {"KillTwice", kRing + "[[step]]\nkill = \"n1\"\n[[step]]\nkill = \"n1\"\n",
     "step 2 (kill the daemon of n1): its daemon does not run at this point of the script"},
    {"UnknownState", kRing + "[[step]]\nwait_ms = 1\nstate = { 1 = \"happy\" }\n",
     "step 1: state = { 1 = 'happy' }: allowed: idle, protection, manual, forced, pending"},
    {"StateOfUnknownRing", kRing + "[[step]]\nwait_ms = 1\nstate = { 9 = \"idle\" }\n",
     "no ring has the ID 9"},
    {"OutcomeThatCannotBeTold",
     kRing + "[[step]]\nforced_switch = \"n1:n1-n2\"\n[[step]]\ncut = \"n2-n3\"\n",
     "step 2 (cut n2-n3): what ring 1 settles to cannot be told from the file; say it: state = { 1 "
     "= \"...\" }"},
    {"BoundOutOfRange", kRing + "[expect]\ncut_outage_ms = -1\n",
     "expect: cut_outage_ms = -1: allowed: 0 to 3.6e+06 ms"},
    {"UnknownExpectation", kRing + "[expect]\noutage = 1\n",
     "expect: outage: unknown key; allowed: cut_outage_ms, restore_outage_ms, switch_outage_ms, "
     "duplicates, reordered"},
    {"UnknownScriptKey", kRing + "[script]\nevery_node = true\n",
     "script: every_node: unknown key; allowed: every_link"},
};

std::string mistake_name(const ::testing::TestParamInfo<Mistake>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(File, TopologyMistake, ::testing::ValuesIn(kFileMistakes), mistake_name);
INSTANTIATE_TEST_SUITE_P(Node, TopologyMistake, ::testing::ValuesIn(kNodeMistakes), mistake_name);
INSTANTIATE_TEST_SUITE_P(Link, TopologyMistake, ::testing::ValuesIn(kLinkMistakes), mistake_name);
INSTANTIATE_TEST_SUITE_P(Host, TopologyMistake, ::testing::ValuesIn(kHostMistakes), mistake_name);
INSTANTIATE_TEST_SUITE_P(Ring, TopologyMistake, ::testing::ValuesIn(kRingMistakes), mistake_name);
INSTANTIATE_TEST_SUITE_P(SubRing, TopologyMistake, ::testing::ValuesIn(kSubRingMistakes),
                         mistake_name);
INSTANTIATE_TEST_SUITE_P(Script, TopologyMistake, ::testing::ValuesIn(kScriptMistakes),
                         mistake_name);

TEST(TopologyMistakes, AllOfThemAreToldInOneGo) {
  std::string text = kRing;
  text = swapped(text, "control_vlan = 100", "control_vlan = 5000");
  text = swapped(text, "node = \"n3\"", "node = \"n33\"");
  text += "[[step]]\ncut = \"nowhere\"\n[expect]\nduplicates = -1\n";
  const TopologyFile file = parse_topology(text);
  std::istringstream lines(to_text(file.findings, "f"));
  size_t count = 0;
  for (std::string line; std::getline(lines, line);) {
    ++count;
  }
  EXPECT_EQ(count, 4U) << lines.str();
}

TEST(TopologyMistakes, WhatRefersToABrokenPartIsNotReportedAsWell) {
  const std::string text = swapped(kRing, "name = \"n2\"", "name = \"n2\"\naddress = 7");
  const TopologyFile file = parse_topology(swapped(text, "name = \"h1\"", "name = \"h1\"\nx = 1"));
  EXPECT_EQ(file.findings.list().size(), 2U) << to_text(file.findings, "f");
}

TEST(TopologyMistakes, AFileThatIsNotThereIsOne) {
  const TopologyFile file = load_topology("/nonexistent/ring.toml");
  EXPECT_EQ(to_text(file.findings, "/nonexistent/ring.toml"),
            "/nonexistent/ring.toml: error: cannot be read: No such file or directory "
            "[unreadable]\n");
}

}  // namespace
}  // namespace erps::lab
