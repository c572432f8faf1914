// erpsd, the module and erpsctl together on a real bridge, in a network namespace of the test.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <signal.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include "platform/event_queue.h"
#include "tests/host/erpsd_fixture.h"

namespace erps::test {
namespace {

using std::chrono::seconds;

TEST_F(ErpsdNetwork, RingComesToIdleWithTheRplBlockedInKernelAndStatusAlike) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle()) << daemon_->err();
  const json ring = shown()["rings"][0];
  EXPECT_EQ(ring["blocked_ports"], json{2});
  EXPECT_EQ(ring["node_id"], "02:00:00:00:00:01");
  EXPECT_FALSE(guarded("eth1"));
  EXPECT_TRUE(guarded("eth2"));
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdNetwork, LinkFailureOpensTheRpl) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  shell("ip link set far1 down");
  ASSERT_TRUE(becomes(client::kStateProtection));
  const json ring = shown()["rings"][0];
  EXPECT_EQ(ring["blocked_ports"], json{1});
  EXPECT_EQ(ring["local_request"], "SF");
  EXPECT_EQ(ring["ports"][0]["link"], "down");
  EXPECT_TRUE(guarded("eth1"));
  EXPECT_FALSE(guarded("eth2"));
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdNetwork, BlockedPortStaysBlockedWhenTheDaemonStops) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  ASSERT_NO_FATAL_FAILURE(stop());
  EXPECT_TRUE(guarded("eth2")) << "stopping opened the ring: a loop";
  EXPECT_EQ(msgget(mgmt::kQueueKey, 0), -1) << "the management queue was left behind";
  EXPECT_EQ(mq_open(mgmt::kEventQueueName, O_RDONLY), static_cast<mqd_t>(-1));
}

TEST_F(ErpsdNetwork, KilledDaemonLeavesThePortBlockedAndIsFollowedByAnother) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  daemon_->signal(SIGKILL);
  ASSERT_TRUE(daemon_->wait(kLimit));
  EXPECT_TRUE(guarded("eth2"));
  ASSERT_NO_FATAL_FAILURE(start());
  EXPECT_TRUE(contains(daemon_->err(), "replaced a management queue that was left behind"))
      << daemon_->err();
  ASSERT_TRUE(becomes_idle());
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdNetwork, ForcedSwitchMovesTheBlockAndClearBringsItBack) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  const Outcome forced = run_program({ERPSCTL, "forced-switch", "1", "1"});
  EXPECT_EQ(forced.status, 0) << forced.err;
  EXPECT_TRUE(guarded("eth1"));
  EXPECT_FALSE(guarded("eth2"));
  EXPECT_EQ(run_program({ERPSCTL, "forced-switch", "1", "2"}).status, 1);
  EXPECT_EQ(run_program({ERPSCTL, "clear", "1"}).status, 0);
  ASSERT_TRUE(becomes_idle());
  EXPECT_FALSE(guarded("eth1"));
  EXPECT_TRUE(guarded("eth2"));
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdNetwork, AllRingIdsAreAskedWellWithinASecond) {
  ASSERT_NO_FATAL_FAILURE(start());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(client::Client().read_rings().size(), 1u);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, seconds(1));
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdNetwork, RefusalsOfTheModuleArriveWithTheirMeaning) {
  ASSERT_NO_FATAL_FAILURE(start());
  const Outcome vlan = run_program({ERPSCTL, "add", "2", "--ports", "3,4", "--vlan", "100"});
  EXPECT_EQ(vlan.status, 1);
  EXPECT_EQ(vlan.err, "erpsctl: add ring 2: the control VLAN is used by another ring (code 9)\n");
  const Outcome port = run_program({ERPSCTL, "add", "2", "--ports", "2,4", "--vlan", "101"});
  EXPECT_EQ(port.err, "erpsctl: add ring 2: a port already belongs to another ring (code 12)\n");
  const Outcome running = run_program({ERPSCTL, "delete", "1"});
  EXPECT_EQ(running.err,
            "erpsctl: delete ring 1: the ring is enabled; disable it first (code 2)\n");
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdNetwork, TimesAreSetAndReadBack) {
  ASSERT_NO_FATAL_FAILURE(start());
  const Outcome set = run_program(
      {ERPSCTL, "timers", "--guard", "700", "--wtr", "60000", "--holdoff", "200", "--json"});
  EXPECT_EQ(json::parse(set.out),
            (json{{"guard_ms", 700}, {"wtr_minutes", 1}, {"holdoff_ms", 200}}));
  ASSERT_NO_FATAL_FAILURE(stop());
}

// Another process of the daemon's own user posts events that only the node itself may post.
TEST_F(ErpsdNetwork, EventWithAPointerFromAnotherProcessIsDroppedAndLogged) {
  ASSERT_NO_FATAL_FAILURE(start());
  const mqd_t door = mq_open(mgmt::kEventQueueName, O_WRONLY);
  ASSERT_NE(door, static_cast<mqd_t>(-1));
  const auto post = [door](uintptr_t event_class, uintptr_t type, size_t length) {
    ERPS_EVENT_MSG_T event{};
    event.event_class = event_class;
    event.type = type;
    event.payload = 0xDEADBEEFDEADBEEF;
    char bytes[sizeof event];
    memcpy(bytes, &event, sizeof event);
    EXPECT_EQ(mq_send(door, bytes, length, 0), 0) << strerror(errno);
  };
  constexpr uintptr_t kClass = mgmt::kEventClass;
  const auto drops = [this] {
    size_t count = 0;
    const std::string text = journal();
    for (size_t at = 0; (at = text.find("\"door-drop\"", at)) != std::string::npos; ++at) {
      ++count;
    }
    return count;
  };
  size_t expected = 0;
  for (const uintptr_t type : {1, 2, 3, 7, 10, 99}) {
    post(kClass, type, sizeof(ERPS_EVENT_MSG_T));
    ++expected;
    EXPECT_TRUE(eventually([&] { return drops() == expected; }, kLimit))
        << "type " << type << " was not dropped\n"
        << journal();
  }
  post(kClass + 1, mgmt::kEventTypeConf, sizeof(ERPS_EVENT_MSG_T));
  post(kClass, mgmt::kEventTypeConf, sizeof(ERPS_EVENT_MSG_T) - 1);
  mq_close(door);
  EXPECT_TRUE(eventually([&] { return drops() == expected + 2; }, kLimit)) << journal();
  EXPECT_TRUE(contains(daemon_->err(), "outside door: dropped a message of another process"))
      << daemon_->err();
  EXPECT_EQ(run_program({ERPSCTL, "show", "1"}).status, 0) << "the daemon does not answer any more";
  ASSERT_NO_FATAL_FAILURE(stop());
}

// Runs a command as a user of no privilege in one group.
Outcome as_stranger(const char* group, std::vector<std::string> command) {
  command.insert(command.begin(), {"setpriv", "--reuid=65534", std::string("--regid=") + group,
                                   "--clear-groups", "--"});
  return run_program(command);
}

TEST_F(ErpsdNetwork, OnlyTheConfiguredGroupMayAsk) {
  if (geteuid() != 0) {
    GTEST_SKIP() << "NOT TESTED: needs root to run erpsctl as somebody else";
  }
  const TemporaryFile erpsctl_copy("");
  shell("cp " ERPSCTL " " + erpsctl_copy.path() + " && chmod 755 " + erpsctl_copy.path());
  const std::vector<std::string> ask{erpsctl_copy.path(), "show"};

  ASSERT_NO_FATAL_FAILURE(start());
  const Outcome refused = as_stranger("daemon", ask);
  EXPECT_EQ(refused.status, 3);
  EXPECT_EQ(refused.err, "erpsctl: no permission to use the management queue (key 10552)\n");
  ASSERT_NO_FATAL_FAILURE(stop());

  const TemporaryFile config(std::string(kConfig) + "[management]\ngroup = \"daemon\"\n");
  ASSERT_NO_FATAL_FAILURE(start(config.path()));
  const Outcome member = as_stranger("daemon", ask);
  EXPECT_EQ(member.status, 0) << member.err;
  EXPECT_EQ(as_stranger("nogroup", ask).status, 3);
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdNetwork, InterfaceThatIsNoPortOfTheBridgeIsNamedAndNothingTouched) {
  const TemporaryFile config(std::string(kConfig) + "[[port]]\nid = 3\ninterface = \"far1\"\n");
  const Outcome daemon = run_program(command(config.path()));
  EXPECT_EQ(daemon.status, 1);
  EXPECT_TRUE(contains(daemon.err, "far1")) << daemon.err;
  EXPECT_FALSE(guarded("eth1"));
  EXPECT_FALSE(guarded("eth2"));
  EXPECT_EQ(msgget(mgmt::kQueueKey, 0), -1);
}

TEST_F(ErpsdNetwork, SubRingAtAnInterconnectionNodeIsAttachedFromTheFile) {
  shell(
      "ip link add eth3 index 103 type veth peer name far3 index 203 && ip link set eth3 master "
      "br0 "
      "&& ip link set eth3 up && ip link set far3 up");
  const TemporaryFile config(std::string(kConfig) +
                             "[[port]]\nid = 3\ninterface = \"eth3\"\n"
                             "[[sub_ring]]\nid = 2\nmajor_ring = 1\nport = 3\n"
                             "interconnection = \"watching\"\n");
  ASSERT_NO_FATAL_FAILURE(start(config.path()));
  const json rings = shown()["rings"];
  ASSERT_EQ(rings.size(), 2u);
  EXPECT_EQ(rings[0]["interconnection"], (json{{"partner_ring", 2}, {"role", "watching"}}));
  EXPECT_EQ(rings[1]["ring_role"], "sub-ring at an interconnection node");
  EXPECT_EQ(rings[1]["ports"].size(), 1u);
  EXPECT_EQ(rings[1]["control_vlan"], 100);
  EXPECT_EQ(rings[1]["enabled"], true);
  ASSERT_NO_FATAL_FAILURE(stop());
  shell("ip link del eth3");
}

}  // namespace
}  // namespace erps::test
