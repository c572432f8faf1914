// What start() refuses, that it says why, and that it leaves everything as it was.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "linux/flush_worker.h"
#include "linux/port_keeper.h"
#include "platform/switch_adaptation.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

// Everything that start() could have touched.
std::string everything() {
  return output_of(
             "bridge -d link show; tc filter show dev p1 ingress; tc qdisc show dev p1; "
             "ip -o link show master br0") +
         packet_rules();
}

class ConfigTest : public PlatformTest {
 protected:
  // Starts with the configuration and expects an error that contains every one of the words.
  void expect_refused(const Config& configuration, const std::vector<std::string>& words) {
    const std::string before = everything();
    try {
      start(configuration);
      ADD_FAILURE() << "not refused";
      stop();
    } catch (const PlatformError& error) {
      for (const std::string& word : words) {
        EXPECT_NE(std::string(error.what()).find(word), std::string::npos)
            << "\"" << word << "\" is missing in: " << error.what();
      }
    }
    EXPECT_FALSE(running());
    EXPECT_EQ(everything(), before);
  }
};

TEST_F(ConfigTest, BridgeThatDoesNotExist) {
  Config c = config();
  c.bridge = "br9";
  expect_refused(c, {"br9", "no such interface"});
}

TEST_F(ConfigTest, BridgeThatIsNone) {
  Config c = config();
  c.bridge = "w1";
  expect_refused(c, {"w1", "no bridge"});
}

TEST_F(ConfigTest, NamesThatNoInterfaceCanHave) {
  Config c = config();
  c.bridge = "";
  expect_refused(c, {"bridge", "1 to 15"});
  c = config();
  c.ports[1].interface = "an-interface-name-too-long";
  expect_refused(c, {"port 2", "an-interface-name-too-long", "1 to 15"});
}

TEST_F(ConfigTest, NoPorts) {
  Config c = config();
  c.ports.clear();
  expect_refused(c, {"ports", "at least one"});
}

TEST_F(ConfigTest, PortNumberOutOfRange) {
  for (const uint32_t number : {0u, 64u, 255u}) {
    Config c = config();
    c.ports[0].id = number;
    expect_refused(c, {"port " + std::to_string(number), "1 to 63"});
  }
}

TEST_F(ConfigTest, PortNumberGivenTwice) {
  Config c = config();
  c.ports[1].id = 1;
  expect_refused(c, {"port 1", "twice", "p1", "p2"});
}

TEST_F(ConfigTest, InterfaceGivenTwice) {
  Config c = config();
  c.ports[1].interface = "p1";
  expect_refused(c, {"port 2", "p1", "port 1 already"});
}

TEST_F(ConfigTest, InterfaceThatDoesNotExist) {
  Config c = config();
  c.ports[1].interface = "p7";
  expect_refused(c, {"port 2", "p7", "does not exist"});
}

TEST_F(ConfigTest, InterfaceThatIsNoPortOfTheBridge) {
  Config c = config();
  c.ports[1].interface = "w2";
  expect_refused(c, {"port 2", "w2", "no port of bridge br0", "ip link set w2 master br0"});
}

TEST_F(ConfigTest, InterfaceThatIsAPortOfAnotherBridge) {
  run("ip link add br1 type bridge");
  run("ip link set w2 master br1");
  Config c = config();
  c.ports[1].interface = "w2";
  expect_refused(c, {"port 2", "w2", "no port of bridge br0"});
}

TEST_F(ConfigTest, TheBridgeItselfAsAPort) {
  Config c = config();
  c.ports[1].interface = "br0";
  expect_refused(c, {"port 2", "br0", "the bridge itself"});
}

TEST_F(ConfigTest, KernelSpanningTree) {
  run("ip link set br0 type bridge stp_state 1");
  expect_refused(config(), {"br0", "spanning tree", "ip link set br0 type bridge stp_state 0"});
}

TEST_F(ConfigTest, NumbersOutOfRange) {
  Config c = config();
  c.carrier_poll_ms = 1001;
  expect_refused(c, {"carrier_poll_ms 1001", "0 to 1000"});
  c.carrier_poll_ms = -1;
  expect_refused(c, {"carrier_poll_ms -1"});
  c = config();
  c.realtime_priority = 100;
  expect_refused(c, {"realtime_priority 100", "0 to 99"});
}

TEST_F(ConfigTest, NodeAddressThatNamesNoNode) {
  Config c = config();
  c.node_address = MacAddress{};
  expect_refused(c, {"node_address", "no node"});
  c.node_address = MacAddress{0x01, 0x19, 0xA7, 0, 0, 1};
  expect_refused(c, {"node_address", "group address"});
}

TEST_F(ConfigTest, JournalThatCannotBeWritten) {
  Config c = config();
  c.journal_path = "/no/such/directory/journal";
  expect_refused(c, {"journal_path", "/no/such/directory/journal", "No such file"});
}

TEST_F(ConfigTest, SecondStartInOneProcess) {
  start_platform();
  EXPECT_THROW(start(config()), PlatformError);
  EXPECT_TRUE(running());
}

// The ports that were guarded already are given back when a later one cannot be.
TEST_F(ConfigTest, GuardThatFailsHalfWayIsTakenBack) {
  run("bridge link set dev p1 flood off");
  const std::string before = everything();
  RingPorts ports;
  ports.add(1, "p1");
  ports.add(2, "w2");  // no port of a bridge
  for (const auto& port : ports.all()) {
    port->ifindex.store(kernel_link(port->interface).ifindex);
    port->enslaved.store(true);
  }
  History history;
  AtomicCounters counters;
  FlushWorker flushes(ports, history, counters);
  PortKeeper keeper(ports, history, counters, flushes);
  EXPECT_THROW(keeper.guard_all(), PlatformError);
  EXPECT_EQ(everything(), before);
}

// Runs the platform in a process of its own until it is told to end or is killed.
class OtherDaemon {
 public:
  OtherDaemon(const Config& configuration, const std::function<void()>& afterwards) {
    EXPECT_EQ(pipe(ready_), 0);
    child_ = fork();
    if (child_ == 0) {
      start(configuration);
      afterwards();
      [[maybe_unused]] const ssize_t told = write(ready_[1], "r", 1);
      for (;;) {
        pause();
      }
    }
    char byte = 0;
    close(ready_[1]);
    EXPECT_EQ(read(ready_[0], &byte, 1), 1);
  }
  ~OtherDaemon() { kill_it(); }
  OtherDaemon(const OtherDaemon&) = delete;
  OtherDaemon& operator=(const OtherDaemon&) = delete;

  void kill_it() {
    if (child_ > 0) {
      kill(child_, SIGKILL);
      waitpid(child_, nullptr, 0);
      close(ready_[0]);
      child_ = -1;
    }
  }

 private:
  int ready_[2] = {-1, -1};
  pid_t child_ = -1;
};

TEST_F(ConfigTest, BridgeThatAnotherDaemonProtectsIsRefusedUntilThatOneIsGone) {
  OtherDaemon other(config(), [] {
    if (add_capture_rule() != 0 || adp_set_port_erps_state(2, 4) != 0) {
      _exit(1);
    }
  });
  expect_refused(config(), {"br0", "another process"});
  other.kill_it();

  // What the killed one left is taken over: rule, guard and all.
  EXPECT_NE(packet_rules().find("erps_br0"), std::string::npos);
  ASSERT_NO_THROW(start_platform());
  EXPECT_TRUE(guarded("p1"));
  EXPECT_TRUE(guarded("p2"));
  ASSERT_EQ(add_capture_rule(), 0);
  ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  EXPECT_EQ(kernel_link("p1").port_flags, PortFlags{});
  stop();
  EXPECT_EQ(packet_rules().find("erps_br0"), std::string::npos);
}

TEST_F(ConfigTest, NodeAddressIsTheBridgesUnlessConfigured) {
  start_platform();
  uint8_t mac[6] = {};
  ASSERT_EQ(get_nic_address("eth0", 0, mac), 0);
  EXPECT_EQ((MacAddress{mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]}),
            (MacAddress{0x02, 0, 0, 0, 0, 0x01}));
  stop();

  Config c = config();
  c.node_address = MacAddress{0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
  start_platform(c);
  ASSERT_EQ(get_nic_address("anything", 3, mac), 0);
  EXPECT_EQ((MacAddress{mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]}), *c.node_address);
}

TEST_F(ConfigTest, NothingAnswersWhileThePlatformIsNotRunning) {
  uint32_t value = 0;
  uint8_t mac[6] = {};
  uint16_t length = 0;
  uint16_t vlan = 0;
  EXPECT_NE(adp_set_port_erps_state(1, 1), 0);
  EXPECT_NE(adp_get_port_erps_state(1, &value), 0);
  EXPECT_NE(adp_receive_frame(1, mac, 6, &length, &vlan, &value), 0);
  EXPECT_NE(get_nic_address("eth0", 0, mac), 0);
  EXPECT_EQ(equeue_make_extend("/erps_event_queue", 256, 1, 0), nullptr);
  EXPECT_THROW(status(), PlatformError);
  EXPECT_TRUE(history().empty());
  stop();  // harmless
}

TEST_F(ConfigTest, StatusTellsWhatRuns) {
  start_platform();
  const Status now = status();
  EXPECT_EQ(now.bridge, "br0");
  EXPECT_EQ(now.stp, "off");
  EXPECT_EQ(now.capture, "nftables netdev ingress");
  EXPECT_FALSE(now.capture_installed);
  EXPECT_GT(now.door_depth, 0u);
  ASSERT_EQ(now.ports.size(), 2u);
  EXPECT_EQ(now.ports[1].interface, "p2");
  EXPECT_EQ(now.ports[1].wanted, 1u);
  EXPECT_TRUE(now.ports[1].link_up);
  EXPECT_EQ(now.ports[1].kernel.state, "listening");
  EXPECT_TRUE(now.ports[1].kernel.guarded);
  EXPECT_TRUE(now.ports[1].kernel.carrier);
}

}  // namespace
}  // namespace erps::linux_platform::test
