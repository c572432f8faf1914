// erpsctl as an operator runs it, on a stand-in for the module: what it says, what it sends, its
// exit status.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <ostream>

#include "tests/client/fake_module.h"
#include "tests/client/ipc_namespace.h"
#include "tests/client/run_program.h"

namespace erps::test {
namespace {

using nlohmann::json;

Outcome erpsctl(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), ERPSCTL);
  return run_program(arguments);
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Commands that change something, in the order in which the module got them.
std::vector<int> changes(FakeModule& module) {
  std::vector<int> commands;
  for (const FakeModule::Seen& seen : module.seen()) {
    const uint8_t command = seen.text.cmd;
    if (command != mgmt::kGetRing && command != mgmt::kGetGuardTime &&
        command != mgmt::kGetWtrTime && command != mgmt::kGetHoldoffTime) {
      commands.push_back(command);
    }
  }
  return commands;
}

class Erpsctl : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_IPC_NAMESPACE(); }
};

struct Usage {
  const char* name;
  std::vector<std::string> arguments;
  const char* expected;
};

void PrintTo(const Usage& param, std::ostream* out) {
  *out << param.name;
}

class ErpsctlUsage : public testing::TestWithParam<Usage> {
 protected:
  void SetUp() override { REQUIRE_IPC_NAMESPACE(); }
};

TEST_P(ErpsctlUsage, IsRefusedWithStatus2BeforeAnythingIsSent) {
  FakeModule module;
  module.add(1, 1, 2);
  const Outcome outcome = erpsctl(GetParam().arguments);
  EXPECT_EQ(outcome.status, 2);
  EXPECT_TRUE(contains(outcome.err, GetParam().expected)) << outcome.err;
  EXPECT_EQ(outcome.out, "");
  EXPECT_TRUE(module.seen().empty());
}

INSTANTIATE_TEST_SUITE_P(
    All, ErpsctlUsage,
    testing::Values(
        Usage{"NoCommand", {}, "erpsctl: a command is needed; see erpsctl --help"},
        Usage{"UnknownCommand",
              {"destroy", "1"},
              "erpsctl: \"destroy\" is no command; there are show, add, "},
        Usage{"UnknownOption", {"--verbose", "show"}, "argument was not expected: --verbose"},
        Usage{"RingZero", {"enable", "0"}, "RING: 0 is out of range; allowed is 1 to 239"},
        Usage{"Ring240", {"enable", "240"}, "RING: 240 is out of range; allowed is 1 to 239"},
        Usage{"RingOfLetters",
              {"enable", "one"},
              "RING: \"one\" is not a whole number; allowed is 1 to 239"},
        Usage{"RingBeyondAllNumbers",
              {"enable", "99999999999999999999"},
              "RING: 99999999999999999999 is out of range; allowed is 1 to 239"},
        Usage{"NegativeRing",
              {"enable", "--", "-1"},
              "RING: -1 is out of range; allowed is 1 to 239"},
        Usage{"RingMissing", {"enable"}, "RING is required"},
        Usage{
            "PortZero", {"forced-switch", "1", "0"}, "PORT: 0 is out of range; allowed is 1 to 63"},
        Usage{
            "Port64", {"manual-switch", "1", "64"}, "PORT: 64 is out of range; allowed is 1 to 63"},
        Usage{"PortMissing", {"forced-switch", "1"}, "PORT is required"},
        Usage{"OnePort",
              {"add", "1", "--ports", "1", "--vlan", "100"},
              "--ports: \"1\" must be two different ports such as 1,2, each 1 to 63"},
        Usage{"TheSamePortTwice",
              {"add", "1", "--ports", "2,2", "--vlan", "100"},
              "--ports: \"2,2\" must be two different ports"},
        Usage{"PortsOutOfRange",
              {"add", "1", "--ports", "1,64", "--vlan", "100"},
              "--ports: \"1,64\" must be two different ports"},
        Usage{"VlanZero",
              {"add", "1", "--ports", "1,2", "--vlan", "0"},
              "--vlan: 0 is out of range; allowed is 1 to 4094"},
        Usage{"VlanMissing", {"add", "1", "--ports", "1,2"}, "--vlan is required"},
        Usage{"NodeRole",
              {"add", "1", "--ports", "1,2", "--vlan", "100", "--role", "boss"},
              "--role: boss not in {owner,neighbour,none}"},
        Usage{"RingRole",
              {"add", "1", "--ports", "1,2", "--vlan", "100", "--ring-role", "minor"},
              "--ring-role: minor not in {major,sub-ring}"},
        Usage{"OwnerWithoutRplPort",
              {"add", "1", "--ports", "1,2", "--vlan", "100", "--role", "owner"},
              "--rpl-port is needed with --role owner"},
        Usage{"RplPortOfAnotherRing",
              {"add", "1", "--ports", "1,2", "--vlan", "100", "--role", "owner", "--rpl-port", "3"},
              "--rpl-port 3 is not one of --ports 1,2"},
        Usage{"RplPortOfAPlainNode",
              {"add", "1", "--ports", "1,2", "--vlan", "100", "--rpl-port", "1"},
              "--rpl-port is only for --role owner or neighbour"},
        Usage{"Guard",
              {"timers", "--guard", "2001"},
              "--guard: 2001 is out of range; allowed is 10 to 2000 ms"},
        Usage{"Wtr",
              {"timers", "--wtr", "999"},
              "--wtr: 999 is out of range; allowed is 1000 to 720000 ms"},
        Usage{"Holdoff",
              {"timers", "--holdoff", "10001"},
              "--holdoff: 10001 is out of range; allowed is 0 to 10000 ms"},
        Usage{"Timeout",
              {"show", "--timeout", "0"},
              "--timeout: 0 is out of range; allowed is 1 to 600000 ms"},
        Usage{"RevertiveMode", {"revertive", "1", "maybe"}, "maybe not in {on,off}"},
        Usage{"SubRingOfItself",
              {"sub-ring", "attach", "2", "--major", "2", "--port", "3", "--interconnection",
               "watching"},
              "--major 2 is the sub-ring itself"},
        Usage{"InterconnectionMissing",
              {"sub-ring", "attach", "2", "--major", "1", "--port", "3"},
              "--interconnection is required"}),
    [](const testing::TestParamInfo<Usage>& param) { return param.param.name; });

TEST_F(Erpsctl, EveryCommandHasHelp) {
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{},
                                             {"add"},
                                             {"enable"},
                                             {"disable"},
                                             {"delete"},
                                             {"show"},
                                             {"forced-switch"},
                                             {"manual-switch"},
                                             {"clear"},
                                             {"timers"},
                                             {"role"},
                                             {"revertive"},
                                             {"sub-ring"},
                                             {"sub-ring", "attach"}}) {
    std::vector<std::string> arguments = command;
    arguments.emplace_back("--help");
    const Outcome outcome = erpsctl(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_TRUE(contains(outcome.out, "Usage: erpsctl")) << outcome.out;
  }
}

TEST_F(Erpsctl, NobodyThereIsStatus3) {
  const Outcome outcome = erpsctl({"show"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(
      outcome.err,
      "erpsctl: the management queue (key 10552) does not exist: the daemon is not running\n");
}

TEST_F(Erpsctl, NoAnswerWithinTheTimeoutIsStatus3) {
  FakeModule module({.serve = false});
  const auto start = std::chrono::steady_clock::now();
  const Outcome outcome = erpsctl({"delete", "1", "--timeout", "40"});
  EXPECT_EQ(outcome.status, 3);
  EXPECT_EQ(outcome.err,
            "erpsctl: delete ring 1: no reply within 40 ms; the module did not take the request, "
            "which was withdrawn\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

TEST_F(Erpsctl, RefusalIsStatus1WithItsMeaning) {
  FakeModule module;
  module.add(1, 1, 2);
  const Outcome outcome = erpsctl({"delete", "1"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "erpsctl: delete ring 1: the ring is enabled; disable it first (code 2)\n");
}

TEST_F(Erpsctl, AddPutsThePortAtTheRplSecond) {
  for (const uint32_t rpl_port : {1u, 2u}) {
    FakeModule module;
    const Outcome outcome =
        erpsctl({"add", "7", "--ports", "1,2", "--vlan", "100", "--role", "owner", "--rpl-port",
                 std::to_string(rpl_port), "--ring-role", "sub-ring"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "ring 7 added; it is disabled\n");
    const FakeRing ring = module.ring(7).value();
    EXPECT_EQ(ring.words[mgmt::kPort1Id], rpl_port);
    EXPECT_EQ(ring.words[mgmt::kPort0Id], 3 - rpl_port);
    EXPECT_EQ(ring.words[mgmt::kVlanId], 100u);
    EXPECT_EQ(ring.words[mgmt::kNodeRole], 1u);
    EXPECT_EQ(ring.words[mgmt::kRingRoleWord], 1u);
  }
}

TEST_F(Erpsctl, AddingARingThatIsThereSaysSo) {
  FakeModule module;
  module.add(7, 1, 2);
  EXPECT_EQ(erpsctl({"add", "7", "--ports", "3,4", "--vlan", "100"}).out,
            "ring 7 was there already and has been changed\n");
}

TEST_F(Erpsctl, EnableDisableDelete) {
  FakeModule module;
  module.add(7, 1, 2);
  EXPECT_EQ(erpsctl({"enable", "7"}).out, "ring 7 was enabled already, state idle\n");
  const Outcome disabled = erpsctl({"disable", "7"});
  EXPECT_EQ(disabled.out, "ring 7 disabled\n");
  EXPECT_TRUE(contains(disabled.err, "warning: the ports of ring 7 are not blocked any more"))
      << disabled.err;
  EXPECT_EQ(erpsctl({"disable", "7"}).out, "ring 7 was disabled already\n");
  EXPECT_EQ(erpsctl({"enable", "7"}).out, "ring 7 enabled, state idle\n");
  EXPECT_EQ(erpsctl({"disable", "7"}).status, 0);
  EXPECT_EQ(erpsctl({"delete", "7"}).out, "ring 7 deleted\n");
  const Outcome gone = erpsctl({"enable", "7"});
  EXPECT_EQ(gone.status, 1);
  EXPECT_EQ(gone.err, "erpsctl: enable ring 7: there is no ring with this ID (code 3)\n");
}

TEST_F(Erpsctl, EnablingARingWithoutAnyLinkWarns) {
  FakeModule module;
  module.add(7, 1, 2);
  module.change(
      7, [](FakeRing& ring) { ring.words[mgmt::kPort0Link] = ring.words[mgmt::kPort1Link] = 0; });
  EXPECT_EQ(erpsctl({"enable", "7"}).err, "warning: no port of ring 7 has a link\n");
}

TEST_F(Erpsctl, RoleAndRevertiveMode) {
  FakeModule module;
  module.add(7, 1, 2);
  const Outcome refused = erpsctl({"role", "7", "sub-ring"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_TRUE(contains(refused.err, "the ring is enabled and cannot be changed")) << refused.err;
  module.change(7, [](FakeRing& ring) { ring.words[mgmt::kEnabled] = 0; });
  EXPECT_EQ(erpsctl({"role", "7", "sub-ring"}).out, "ring 7 has role sub-ring\n");
  EXPECT_EQ(module.ring(7)->words[mgmt::kRingRoleWord], 1u);

  const Outcome off = erpsctl({"revertive", "7", "off"});
  EXPECT_EQ(off.out, "ring 7 is non-revertive\n");
  EXPECT_TRUE(contains(off.err, "warning: non-revertive: ")) << off.err;
  EXPECT_TRUE(contains(off.err, "the ring is a loop until an operator acts")) << off.err;
  EXPECT_EQ(module.ring(7)->words[mgmt::kNonRevertive], 1u);
  const Outcome on = erpsctl({"revertive", "7", "on"});
  EXPECT_EQ(on.out, "ring 7 is revertive\n");
  EXPECT_EQ(on.err, "");
}

TEST_F(Erpsctl, SubRingIsAttachedWithAReminderOfTheOtherNode) {
  FakeModule module;
  module.add(1, 1, 2);
  const Outcome outcome = erpsctl(
      {"sub-ring", "attach", "2", "--major", "1", "--port", "3", "--interconnection", "watching"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "sub-ring 2 attached to ring 1; it is disabled\n");
  EXPECT_TRUE(contains(outcome.err, "two watching nodes build a loop after a single cut"))
      << outcome.err;
  EXPECT_EQ(module.ring(1)->words[mgmt::kInterNodeRole], 1u);
  const Outcome second = erpsctl(
      {"sub-ring", "attach", "3", "--major", "1", "--port", "4", "--interconnection", "watching"});
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.err, "erpsctl: a ring takes one sub-ring, and ring 1 has sub-ring 2\n");
  const Outcome shown = erpsctl({"show", "2"});
  EXPECT_TRUE(contains(shown.out, "attached     to ring 1\n")) << shown.out;
  EXPECT_FALSE(contains(shown.out, "3735928559")) << "the second port of a sub-ring was shown";
}

TEST_F(Erpsctl, SwitchIsReportedWithTheStateItLedTo) {
  FakeModule module;
  module.add(1, 1, 2);
  const Outcome forced = erpsctl({"forced-switch", "1", "2"});
  EXPECT_EQ(forced.status, 0);
  EXPECT_EQ(forced.out, "ring 1: forced switch in force, state forced-switch, port 2 blocked\n");
  const Outcome cleared = erpsctl({"clear", "1"});
  EXPECT_EQ(cleared.out, "ring 1: FS cleared, state pending\n");
  const Outcome manual = erpsctl({"manual-switch", "1", "1"});
  EXPECT_EQ(manual.out, "ring 1: manual switch in force, state manual-switch, port 1 blocked\n");
  EXPECT_EQ(changes(module),
            (std::vector<int>{mgmt::kForcedSwitch, mgmt::kClear, mgmt::kManualSwitch}));
}

TEST_F(Erpsctl, SwitchOfADisabledRingIsNotSentAndToldSo) {
  FakeModule module;
  module.add(1, 1, 2);
  module.change(1, [](FakeRing& ring) { ring.words[mgmt::kEnabled] = 0; });
  const Outcome forced = erpsctl({"forced-switch", "1", "2"});
  EXPECT_EQ(forced.status, 1);
  EXPECT_EQ(forced.err, "erpsctl: ring 1 is disabled: a forced switch has no effect\n");
  const Outcome clear = erpsctl({"clear", "1"});
  EXPECT_EQ(clear.status, 1);
  EXPECT_EQ(clear.err, "erpsctl: ring 1 is disabled: there is nothing to clear\n");
  EXPECT_EQ(changes(module), std::vector<int>{});
}

TEST_F(Erpsctl, SwitchBehindAnotherRequestIsNotSentAndToldSo) {
  FakeModule module;
  module.add(1, 1, 2);
  ASSERT_EQ(erpsctl({"forced-switch", "1", "2"}).status, 0);
  for (const char* command : {"forced-switch", "manual-switch"}) {
    const Outcome again = erpsctl({command, "1", "1"});
    EXPECT_EQ(again.status, 1);
    EXPECT_TRUE(contains(again.err, "erpsctl: FS is in force on ring 1 at this node: a "))
        << again.err;
    EXPECT_TRUE(contains(again.err, "clear it first")) << again.err;
  }
  EXPECT_EQ(changes(module), std::vector<int>{mgmt::kForcedSwitch});
}

TEST_F(Erpsctl, SwitchThatAnEventOvertakesIsNotReportedAsDone) {
  FakeModule module;
  module.add(1, 1, 2);
  module.answer(mgmt::kManualSwitch, [&](const FakeModule::Seen&, uint8_t* text, size_t* length) {
    module.change(1, [](FakeRing& ring) {
      ring.words[mgmt::kLocalPriority] = ring.words[mgmt::kCurrentPriority] = 11;
    });
    text[8] = 0;
    *length = 12;
    return true;
  });
  const Outcome manual = erpsctl({"manual-switch", "1", "1"});
  EXPECT_EQ(manual.status, 1);
  EXPECT_EQ(manual.err,
            "erpsctl: the manual switch is not in force: ring 1 accepted SF meanwhile\n");
}

TEST_F(Erpsctl, SwitchThatTheStateIgnoresIsNotReportedAsDone) {
  FakeModule module;
  module.add(1, 1, 2);
  module.answer(mgmt::kManualSwitch, [&](const FakeModule::Seen&, uint8_t* text, size_t* length) {
    module.change(1, [](FakeRing& ring) {
      ring.words[mgmt::kLocalPriority] = ring.words[mgmt::kCurrentPriority] = 7;
      ring.words[mgmt::kState] = 2;
    });
    text[8] = 0;
    *length = 12;
    return true;
  });
  const Outcome manual = erpsctl({"manual-switch", "1", "1"});
  EXPECT_EQ(manual.status, 1);
  EXPECT_EQ(manual.err,
            "erpsctl: the manual switch stands, but ring 1 is in state protection because of "
            "another node and has switched nothing; clear it unless it is to wait\n");
}

TEST_F(Erpsctl, PortOfAnotherRingIsNamedWithThoseOfTheRing) {
  FakeModule module;
  module.add(1, 1, 2);
  const Outcome outcome = erpsctl({"manual-switch", "1", "9"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "erpsctl: port 9 is not a port of ring 1, which has 1 and 2\n");
}

TEST_F(Erpsctl, ClearOfWhatAnotherNodeAskedForSaysWhereToClearIt) {
  FakeModule module;
  module.add(1, 1, 2);
  module.change(1, [](FakeRing& ring) { ring.words[mgmt::kState] = 4; });
  const Outcome outcome = erpsctl({"clear", "1"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "erpsctl: no forced or manual switch is in force on ring 1 at this node: it was asked "
            "for at another node, where it is to be cleared\n");
}

TEST_F(Erpsctl, HazardsOfSwitchAndClearAreTold) {
  FakeModule module;
  module.add(1, 1, 2);
  module.change(1, [](FakeRing& ring) { ring.words[mgmt::kNodeRole] = 1; });
  EXPECT_TRUE(contains(erpsctl({"forced-switch", "1", "1"}).err,
                       "warning: this node blocks its port before"));
  module.change(1, [](FakeRing& ring) { ring.words[mgmt::kPort1Link] = 0; });
  EXPECT_TRUE(
      contains(erpsctl({"clear", "1"}).err, "warning: a ring link is down: after the clear"));
  EXPECT_EQ(erpsctl({"forced-switch", "1", "2"}).err, "")
      << "the port at the RPL has no such hazard";
}

TEST_F(Erpsctl, TimersAreSetAndReadBack) {
  FakeModule module;
  const Outcome set =
      erpsctl({"timers", "--guard", "700", "--wtr", "120000", "--holdoff", "100", "--json"});
  EXPECT_EQ(set.status, 0);
  EXPECT_EQ(set.err, "");
  EXPECT_EQ(json::parse(set.out),
            (json{{"guard_ms", 700}, {"wtr_minutes", 2}, {"holdoff_ms", 100}}));
  EXPECT_EQ(module.wtr_ms(), 120000u);
  const Outcome shown = erpsctl({"timers"});
  EXPECT_EQ(shown.out,
            "guard     700 ms\n"
            "WTR       2 min, rounded down: the module does not tell seconds\n"
            "hold-off  100 ms\n");
  EXPECT_EQ(changes(module),
            (std::vector<int>{mgmt::kSetGuardTime, mgmt::kSetWtrTime, mgmt::kSetHoldoffTime}));
}

TEST_F(Erpsctl, HoldoffZeroIsAValueToBeSet) {
  FakeModule module;
  EXPECT_EQ(erpsctl({"timers", "--holdoff", "0"}).status, 0);
  EXPECT_EQ(changes(module), std::vector<int>{mgmt::kSetHoldoffTime});
}

TEST_F(Erpsctl, ShortWtrAndFractionsOfSecondsWarn) {
  FakeModule module;
  const Outcome outcome = erpsctl({"timers", "--wtr", "1500"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_TRUE(contains(outcome.err, "warning: WTR below 5000 ms: the guard time lasts up to 1.5 s"))
      << outcome.err;
  EXPECT_TRUE(
      contains(outcome.err, "warning: the module counts WTR in whole seconds: 1 s are used"))
      << outcome.err;
  EXPECT_EQ(erpsctl({"timers", "--wtr", "5000"}).err, "");
}

TEST_F(Erpsctl, ShowIsATableWithTwoLinesARing) {
  FakeModule module;
  module.add(1, 1, 2);
  module.change(1, [](FakeRing& ring) {
    ring.words[mgmt::kNodeRole] = 1;
    ring.words[mgmt::kPort1State] = 1;
    ring.words[mgmt::kCurrentPriority] = 2;
  });
  module.add(20, 3, 4);
  module.change(20, [](FakeRing& ring) {
    ring.words[mgmt::kVlanId] = 4094;
    ring.words[mgmt::kPort0Link] = 0;
    ring.words[mgmt::kState] = 2;
    ring.words[mgmt::kLocalPriority] = ring.words[mgmt::kCurrentPriority] = 11;
  });
  EXPECT_EQ(erpsctl({"show"}).out,
            "RING  ENABLED  STATE       NODE   ROLE   VLAN  PORT   PORT STATE  LINK  REQUEST  LAST "
            "REQUEST  TIMERS\n"
            "1     yes      idle        owner  major  100   1      forwarding  up    none     "
            "R-APS(NR,RB)  -\n"
            "                                               2 RPL  blocked     up\n"
            "20    yes      protection  none   major  4094  3      forwarding  down  SF       SF   "
            "         -\n"
            "                                               4      forwarding  up\n"
            "Rings with an ID above 239 are shown when asked for by ID.\n");
}

TEST_F(Erpsctl, ShowOfOneRingHasTheDetails) {
  FakeModule module;
  module.add(1, 1, 2);
  const Outcome outcome = erpsctl({"show", "1"});
  EXPECT_TRUE(contains(outcome.out,
                       "\nnode ID      02:00:00:00:00:01\n"
                       "ring role    major\n"
                       "operation    revertive\n"
                       "R-APS        not sent\n"))
      << outcome.out;
  const Outcome missing = erpsctl({"show", "2"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "erpsctl: show ring 2: there is no ring with this ID (code 3)\n");
}

TEST_F(Erpsctl, RingAbove239IsShownWhenAskedFor) {
  FakeModule module;
  module.add(1000, 1, 2);
  EXPECT_TRUE(contains(erpsctl({"show"}).out, "no rings\n"));
  EXPECT_TRUE(contains(erpsctl({"show", "1000"}).out, "\n1000  yes      idle"));
}

TEST_F(Erpsctl, JsonOfOneRingIsWholeAsDocumented) {
  FakeModule module;
  module.add(1, 1, 2);
  module.change(1, [](FakeRing& ring) {
    ring.words[mgmt::kNodeRole] = 1;
    ring.words[mgmt::kPort1State] = 1;
    ring.words[mgmt::kCurrentPriority] = 2;
    ring.words[mgmt::kSending] = 1;
    ring.words[mgmt::kInterconnectRing] = 9;
    ring.words[mgmt::kInterNodeRole] = 1;
  });
  const json idle{{"running", false}, {"elapsed_s", nullptr}, {"remaining_s", nullptr}};
  const json expected{
      {"rings",
       {{{"ring", 1},
         {"enabled", true},
         {"state", "idle"},
         {"node_role", "owner"},
         {"ring_role", "major"},
         {"control_vlan", 100},
         {"revertive", true},
         {"node_id", "02:00:00:00:00:01"},
         {"rpl_port", 2},
         {"ports",
          {{{"port", 1}, {"state", "forwarding"}, {"link", "up"}, {"rpl", false}},
           {{"port", 2}, {"state", "blocked"}, {"link", "up"}, {"rpl", true}}}},
         {"blocked_ports", {2}},
         {"local_request", "none"},
         {"last_request", "R-APS(NR,RB)"},
         {"sending_raps", true},
         {"timers", {{"wtr", idle}, {"wtb", idle}, {"guard", idle}, {"holdoff", idle}}},
         {"interconnection", {{"partner_ring", 9}, {"role", "watching"}}}}}},
      {"timers", {{"guard_ms", 500}, {"wtr_minutes", 5}, {"holdoff_ms", 0}}}};
  const json one = json::parse(erpsctl({"show", "1", "--json"}).out);
  EXPECT_EQ(one, expected) << one.dump(2);
  EXPECT_EQ(json::parse(erpsctl({"show", "--json"}).out), expected)
      << "another shape for all rings";
}

TEST_F(Erpsctl, JsonWithoutRingsHasTheSameShape) {
  FakeModule module;
  const json none = json::parse(erpsctl({"show", "--json"}).out);
  EXPECT_EQ(none, (json{{"rings", json::array()},
                        {"timers", {{"guard_ms", 500}, {"wtr_minutes", 5}, {"holdoff_ms", 0}}}}));
}

TEST_F(Erpsctl, RunningTimersAreShownWithWhatIsLeft) {
  FakeModule module;
  module.add(1, 1, 2);
  module.change(1, [](FakeRing& ring) {
    ring.words[mgmt::kLocalPriority] = 5;
    ring.words[mgmt::kTimerStart] = static_cast<uint32_t>(time(nullptr));
  });
  const Outcome table = erpsctl({"show", "1"});
  EXPECT_TRUE(contains(table.out, "WTR >=300 s left") || contains(table.out, "WTR >=299 s left") ||
              contains(table.out, "WTR >=298 s left"))
      << table.out;
  const json timers = json::parse(erpsctl({"show", "1", "--json"}).out)["rings"][0]["timers"];
  EXPECT_EQ(timers["wtr"]["running"], true);
  EXPECT_EQ(timers["wtb"]["running"], false);
  EXPECT_EQ(timers["wtr"]["elapsed_s"].get<int>() + timers["wtr"]["remaining_s"].get<int>(), 300);
}

}  // namespace
}  // namespace erps::test
