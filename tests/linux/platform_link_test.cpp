// Link states: told once, told soon, told right.
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>

#include "platform/switch_adaptation.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

constexpr auto kShortWhile = std::chrono::milliseconds(50);

class LinkTest : public PlatformTest {
 protected:
  void expect_link(uint16_t port_id, uint16_t state) {
    const auto event = receive();
    ASSERT_TRUE(event) << "no event: port " << port_id << " state " << state;
    ASSERT_EQ(event->type, kLinkEvent);
    EXPECT_EQ(event->event_class, 3u);
    EXPECT_EQ(link_port(*event), port_id);
    EXPECT_EQ(link_state(*event), state);
  }

  static uint32_t asked(uint32_t port_id) {
    uint32_t value = 99;
    EXPECT_EQ(adp_get_phy_port_attr(port_id, 11, &value), 0);
    return value;
  }
};

TEST_F(LinkTest, NothingIsToldUntilALinkChanges) {
  start_platform();
  EXPECT_FALSE(receive(kShortWhile));
  EXPECT_EQ(asked(1), 1u);
  EXPECT_EQ(asked(2), 1u);
}

TEST_F(LinkTest, EachChangeIsToldOnce) {
  start_platform();
  set_up("w1", false);
  expect_link(1, 0);
  EXPECT_EQ(asked(1), 0u);
  set_up("w2", false);
  expect_link(2, 0);
  set_up("w1", true);
  expect_link(1, 1);
  EXPECT_EQ(asked(1), 1u);
  EXPECT_EQ(asked(2), 0u);
  EXPECT_FALSE(receive(kShortWhile));
  EXPECT_EQ(port(1).link_changes, 2u);
}

TEST_F(LinkTest, InterfaceThatIsSwitchedOffIsDown) {
  start_platform();
  set_up("p2", false);
  expect_link(2, 0);
  EXPECT_EQ(asked(2), 0u);
  set_up("p2", true);
  expect_link(2, 1);
  EXPECT_EQ(asked(2), 1u);
}

TEST_F(LinkTest, OtherChangesOfAnInterfaceAreNoLinkChange) {
  start_platform();
  run("ip link set p1 mtu 1400");
  run("ip link set p1 alias ring");
  run("bridge link set dev p1 cost 50");
  EXPECT_FALSE(receive(kShortWhile));
}

TEST_F(LinkTest, PortThatIsDownAtStartIsToldWhenItComesUp) {
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return !device_carrier("p1"); }));
  start_platform();
  EXPECT_EQ(asked(1), 0u);
  EXPECT_FALSE(port(1).link_up);
  set_up("w1", true);
  expect_link(1, 1);
}

// The module needs to know that the link was away and how it is now, not every flap between.
TEST_F(LinkTest, LongFlapThatNobodyReceivedEndsInTheRightState) {
  start_platform();
  for (int i = 0; i < 30; ++i) {
    set_up("w1", false);
    ASSERT_TRUE(eventually([] { return !device_carrier("p1"); }));
    set_up("w1", true);
    ASSERT_TRUE(eventually([] { return device_carrier("p1"); }));
  }
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return !device_carrier("p1"); }));
  std::vector<uint16_t> told;
  while (const auto event = receive(kShortWhile)) {
    ASSERT_EQ(event->type, kLinkEvent);
    told.push_back(link_state(*event));
  }
  ASSERT_FALSE(told.empty());
  EXPECT_LE(told.size(), 2u);
  EXPECT_EQ(told.front(), 0);
  EXPECT_EQ(told.back(), 0);
}

TEST_F(LinkTest, LinksAreReadAgainAfterNotificationsWereLost) {
  start_platform();
  // More notifications than any buffer holds, the one that counts somewhere among them.
  run("for i in $(seq 1 40); do echo link add d$i type bridge; done | ip -b -");
  const auto flood = [] {
    run("for r in $(seq 1 30); do for i in $(seq 1 40); do echo link set d$i mtu $((1000 + r)); "
        "done; done | ip -b -");
  };
  set_up("w2", false);
  for (int i = 0; i < 12; ++i) {
    flood();
  }
  set_up("w2", true);
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return !device_carrier("p1") && device_carrier("p2"); }));
  std::array<int, 3> last{-1, -1, -1};
  while (const auto event = receive(kShortWhile)) {
    ASSERT_EQ(event->type, kLinkEvent);
    last.at(link_port(*event)) = link_state(*event);
  }
  EXPECT_GT(status().counters.netlink_overruns, 0u);
  EXPECT_EQ(last[1], 0);
  EXPECT_NE(last[2], 0);
  EXPECT_TRUE(port(2).link_up);
  EXPECT_FALSE(port(1).link_up);
}

// A second network namespace, with a thread that works in it.
class OtherNamespace {
 public:
  OtherNamespace() : thread_([this] { work(); }) {
    eventually([this] { return tid_ != 0; });
  }
  ~OtherNamespace() {
    do_there([this] { done_ = true; });
    thread_.join();
  }
  OtherNamespace(const OtherNamespace&) = delete;
  OtherNamespace& operator=(const OtherNamespace&) = delete;

  pid_t tid() const { return tid_; }

  void do_there(std::function<void()> job) {
    std::unique_lock lock(mutex_);
    job_ = std::move(job);
    wake_.notify_all();
    wake_.wait(lock, [this] { return !job_; });
  }

 private:
  void work() {
    EXPECT_EQ(unshare(CLONE_NEWNET), 0);
    tid_ = static_cast<pid_t>(syscall(SYS_gettid));
    std::unique_lock lock(mutex_);
    while (!done_) {
      wake_.wait(lock, [this] { return static_cast<bool>(job_); });
      job_();
      job_ = nullptr;
      wake_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::function<void()> job_;
  bool done_ = false;
  std::atomic<pid_t> tid_{0};
  std::thread thread_;
};

// Both ends of a cable with the same interface index look to the kernel like a physical interface,
// whose carrier loss it may tell up to a second late when another link event came just before.
TEST_F(LinkTest, CarrierLossOfASlowInterfaceIsSeenWithinThePollInterval) {
  OtherNamespace wire_side;
  run("ip link del p1");
  run("ip link add p1 index 777 type veth peer name w1 index 777 netns " +
      std::to_string(wire_side.tid()));
  run("ip link set p1 addrgenmode none master br0 up");
  wire_side.do_there([] { set_up("w1", true); });
  ASSERT_TRUE(eventually([] { return device_carrier("p1"); }));
  ASSERT_EQ(kernel_link("p1").ifindex, 777u);

  Config c = config();
  c.carrier_poll_ms = 5;
  start_platform(c);
  ASSERT_TRUE(port(1).slow_carrier);
  ASSERT_FALSE(port(2).slow_carrier);
  // Each loss but the first falls into the second in which the kernel keeps quiet.
  for (int i = 0; i < 6; ++i) {
    const auto cut = std::chrono::steady_clock::now();
    wire_side.do_there([] { set_up("w1", false); });
    expect_link(1, 0);
    const auto told = std::chrono::steady_clock::now();
    EXPECT_LT(told - cut, std::chrono::milliseconds(150)) << "loss " << i;
    wire_side.do_there([] { set_up("w1", true); });
    expect_link(1, 1);
  }
}

TEST_F(LinkTest, InterfacesThatTellAtOnceAreNotPolled) {
  start_platform();
  EXPECT_FALSE(port(1).slow_carrier);
  EXPECT_FALSE(port(2).slow_carrier);
}

}  // namespace
}  // namespace erps::linux_platform::test
