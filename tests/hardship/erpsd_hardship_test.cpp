// A daemon whose queues are full, whose management is flooded, whose disk is full and whose clock
// jumps: the ring goes on protecting, nothing configured is lost, and it is said what is wrong.
#include <fcntl.h>
#include <mqueue.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <thread>

#include "erps/mgmt/message.h"
#include "platform/event_queue.h"
#include "tests/host/erpsd_fixture.h"

namespace erps::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// From the loss of a carrier to the guard on its port, on a machine that does other things too.
constexpr milliseconds kProtected{50};

class ErpsdHardship : public ErpsdNetwork {
 protected:
  // Cuts the link of eth1, the port that carries the traffic, and sees it guarded and the RPL open.
  void expect_protection() {
    const auto cut = mono_now();
    cut_the_far_end();
    EXPECT_TRUE(eventually([] { return guarded("eth1") && !guarded("eth2"); }, kLimit));
    if (has_journal_) {
      expect_protected_within_bound(cut);
    } else {
      EXPECT_LT(mono_now() - cut, 10 * kProtected) << "asking the kernel costs some processes, too";
    }
  }

  // By what the daemon wrote down, for to ask the kernel takes a process and its time. The clock is
  // the same in all processes.
  void expect_protected_within_bound(nanoseconds cut) {
    const auto applied = [&](const char* state, int port) {
      std::istringstream lines(journal());
      for (std::string line; std::getline(lines, line);) {
        if (!contains(line, "\"port-state\"")) {
          continue;
        }
        const json record = json::parse(line, nullptr, false);
        if (!record.is_discarded() && record.value("phase", "") == "applied" &&
            record.value("state", "") == state && record.value("port", 0) == port &&
            nanoseconds(record["mono_ns"]) > cut) {
          return nanoseconds(record["mono_ns"]) - cut;
        }
      }
      return nanoseconds::max();
    };
    EXPECT_TRUE(eventually([&] { return applied("forwarding", 2) < kLimit; }, kLimit));
    EXPECT_LT(applied("discarding", 1), kProtected);
    EXPECT_LT(applied("forwarding", 2), kProtected);
  }

  // In this process, so that the time of the cut is known.
  static void cut_the_far_end() {
    const int control = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "far1");
    EXPECT_EQ(ioctl(control, SIOCGIFFLAGS, &request), 0) << strerror(errno);
    request.ifr_flags = static_cast<short>(request.ifr_flags & ~IFF_UP);
    EXPECT_EQ(ioctl(control, SIOCSIFFLAGS, &request), 0) << strerror(errno);
    close(control);
  }

  static nanoseconds mono_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return seconds(now.tv_sec) + nanoseconds(now.tv_nsec);
  }

  void expect_restoration() {
    shell("ip link set far1 up");
    EXPECT_TRUE(becomes_idle()) << daemon_->err();
    EXPECT_FALSE(guarded("eth1"));
    EXPECT_TRUE(guarded("eth2"));
  }

  static std::string text_of(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  }

  void expect_configuration_kept() {
    const json rings = shown()["rings"];
    ASSERT_EQ(rings.size(), 1u);
    EXPECT_EQ(rings[0]["ring"], 1);
    EXPECT_EQ(rings[0]["enabled"], true);
    EXPECT_EQ(rings[0]["control_vlan"], 100);
  }

  bool has_journal_ = true;  // and everything is in it
};

// Requests that nobody announces stay on the queue.
TEST_F(ErpsdHardship, FullManagementQueueIsToldAndTheRingGoesOn) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  const int queue = msgget(mgmt::kQueueKey, 0);
  ASSERT_GE(queue, 0);
  struct {
    long type = 0x7777;
    char text[256] = {};
  } junk;
  size_t put = 0;
  while (msgsnd(queue, &junk, sizeof junk.text, IPC_NOWAIT) == 0) {
    ++put;
  }
  ASSERT_EQ(errno, EAGAIN);
  ASSERT_GT(put, 0u);

  const Outcome asked = run_program({ERPSCTL, "show", "1"});
  EXPECT_NE(asked.status, 0);
  EXPECT_TRUE(contains(asked.err, "full")) << asked.err;
  expect_protection();

  for (; put > 0; --put) {
    ASSERT_GE(msgrcv(queue, &junk, sizeof junk.text, junk.type, IPC_NOWAIT), 0);
  }
  expect_configuration_kept();
  expect_restoration();
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdHardship, FullEventQueueIsToldAndEmptiedByItself) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  const mqd_t door = mq_open(mgmt::kEventQueueName, O_WRONLY | O_NONBLOCK);
  ASSERT_NE(door, static_cast<mqd_t>(-1));
  daemon_->signal(SIGSTOP);
  const std::string stat = "/proc/" + std::to_string(daemon_->pid()) + "/stat";
  ASSERT_TRUE(eventually([&] { return contains(text_of(stat), ") T "); }, kLimit));
  ERPS_EVENT_MSG_T event{};
  event.event_class = mgmt::kEventClass;
  event.type = mgmt::kEventTypeConf;
  event.payload = 4321;
  char bytes[sizeof event];
  memcpy(bytes, &event, sizeof event);
  while (mq_send(door, bytes, sizeof bytes, 0) == 0) {
  }
  ASSERT_EQ(errno, EAGAIN);
  const Outcome asked = run_program({ERPSCTL, "show", "1"});
  EXPECT_NE(asked.status, 0);
  EXPECT_TRUE(contains(asked.err, "full")) << asked.err;
  daemon_->signal(SIGCONT);
  mq_close(door);

  expect_protection();
  expect_configuration_kept();
  expect_restoration();
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdHardship, FloodOfRequestsDelaysNeitherProtectionNorAnAnswerForLong) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  const mqd_t door = mq_open(mgmt::kEventQueueName, O_WRONLY);
  ASSERT_NE(door, static_cast<mqd_t>(-1));
  const int queue = msgget(mgmt::kQueueKey, 0);
  std::atomic<bool> over{false};
  std::atomic<uint64_t> requests{0};
  std::thread flood([&] {
    struct {
      long type = 0x4444;
      mgmt::RequestText text{};
    } request;
    request.text.cmd = mgmt::kGetRing;
    ERPS_EVENT_MSG_T event{};
    event.event_class = mgmt::kEventClass;
    event.type = mgmt::kEventTypeConf;
    event.payload = static_cast<uintptr_t>(request.type);
    char bytes[sizeof event];
    memcpy(bytes, &event, sizeof event);
    char reply[4096];
    while (!over) {
      if (msgsnd(queue, &request, sizeof request.text, IPC_NOWAIT) == 0) {
        ++requests;
        mq_send(door, bytes, sizeof bytes, 0);
      }
      while (msgrcv(queue, reply, sizeof reply - sizeof(long),
                    (request.type & mgmt::kReplyTypeMask) | mgmt::kReplyTypeFlag,
                    IPC_NOWAIT | MSG_NOERROR) >= 0) {
      }
    }
  });
  has_journal_ = false;  // it does not keep up
  const auto deadline = Clock::now() + seconds(2);
  while (Clock::now() < deadline) {
    const auto asked = Clock::now();
    const Outcome answer = run_program({ERPSCTL, "show", "1"});
    EXPECT_EQ(answer.status, 0) << answer.err;
    EXPECT_LT(Clock::now() - asked, seconds(1));
  }
  expect_protection();
  over = true;
  flood.join();
  mq_close(door);
  EXPECT_GT(requests, 1000u) << "no flood";
  expect_configuration_kept();
  expect_restoration();
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdHardship, DiskWithoutRoomForTheLogsIsToldOnce) {
  std::vector<std::string> line = command(config_.path());
  line.back() = "/dev/full";
  has_journal_ = false;
  ASSERT_NO_FATAL_FAILURE(start_with(line));
  ASSERT_TRUE(becomes_idle());
  expect_protection();
  expect_restoration();
  expect_configuration_kept();
  const std::string told = daemon_->err();
  const size_t first = told.find("No space left on device");
  EXPECT_NE(first, std::string::npos) << told;
  EXPECT_EQ(told.find("No space left on device", first + 1), std::string::npos) << told;
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdHardship, LogThatCannotBeWrittenStopsNothing) {
  std::string quoted;
  for (const std::string& word : command(config_.path())) {
    quoted += " '" + word + "'";
  }
  daemon_ = std::make_unique<Running>(
      std::vector<std::string>{"/bin/sh", "-c", "exec" + quoted + " 2>/dev/full"});
  ASSERT_TRUE(eventually([] { return run_program({ERPSCTL, "show", "1"}).status == 0; }, kLimit));
  ASSERT_TRUE(becomes_idle());
  expect_protection();
  expect_restoration();
  ASSERT_NO_FATAL_FAILURE(stop());
}

// A process of the daemon's own user that posts without end what only the node may post, so that
// the event queue is full all the time.
TEST_F(ErpsdHardship, StrangerThatKeepsTheEventQueueFullDelaysNoProtection) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  const mqd_t door = mq_open(mgmt::kEventQueueName, O_WRONLY | O_NONBLOCK);
  ASSERT_NE(door, static_cast<mqd_t>(-1));
  std::atomic<bool> over{false};
  std::atomic<uint64_t> posted{0};
  std::atomic<uint64_t> found_full{0};
  std::thread stranger([&] {
    for (uint32_t i = 0; !over; ++i) {
      ERPS_EVENT_MSG_T event{};
      event.event_class = mgmt::kEventClass;
      event.type = std::array<uintptr_t, 5>{1, 2, 3, 7, 10}.at(i % 5);
      event.payload = 0xDEADBEEFDEADBEEF;
      char bytes[sizeof event];
      memcpy(bytes, &event, sizeof event);
      ++(mq_send(door, bytes, sizeof bytes, 0) == 0 ? posted : found_full);
    }
  });
  EXPECT_TRUE(eventually([&] { return posted > 1000 && found_full > 1000; }, kLimit)) << "no flood";
  expect_protection();
  over = true;
  stranger.join();
  mq_close(door);
  expect_configuration_kept();
  expect_restoration();
  const std::string told = daemon_->err();
  EXPECT_TRUE(contains(told, "outside door: dropped a message of another process")) << told;
  EXPECT_LT(std::count(told.begin(), told.end(), '\n'), 200) << "a line for each";
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdHardship, InterfaceThatIsDeletedAndMadeAgainIsAFailureThatIsOver) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  shell("ip link del eth1");
  EXPECT_TRUE(eventually([] { return !guarded("eth2"); }, kLimit)) << "the RPL protects";
  EXPECT_TRUE(daemon_->err_contains("interface eth1 is gone", kLimit)) << daemon_->err();
  expect_configuration_kept();
  shell("ip link add eth1 type veth peer name far1");
  shell("ip link set eth1 addrgenmode none");
  shell("ip link set far1 addrgenmode none up");
  shell("ip link set eth1 master br0 up");
  EXPECT_TRUE(becomes_idle()) << daemon_->err();
  EXPECT_TRUE(eventually([] { return !guarded("eth1") && guarded("eth2"); }, kLimit));
  EXPECT_TRUE(daemon_->err_contains("interface eth1 is there again", kLimit)) << daemon_->err();
  expect_protection();
  expect_restoration();
  ASSERT_NO_FATAL_FAILURE(stop());
}

TEST_F(ErpsdHardship, BridgeThatIsDeletedAndMadeAgainIsProtectedAgain) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  shell("ip link del br0");
  EXPECT_TRUE(daemon_->err_contains("bridge br0 is gone", kLimit)) << daemon_->err();
  expect_configuration_kept();
  shell("ip link add br0 type bridge mcast_snooping 0");
  shell("ip link set br0 up");
  for (const char* interface : {"eth2", "eth1"}) {
    shell(std::string("ip link set ") + interface + " master br0");
  }
  EXPECT_TRUE(becomes_idle()) << daemon_->err();
  EXPECT_TRUE(eventually([] { return !guarded("eth1") && guarded("eth2"); }, kLimit))
      << daemon_->err();
  expect_protection();
  expect_restoration();
  ASSERT_NO_FATAL_FAILURE(stop());
}

// More notifications of the kernel than its socket holds, with the one that counts among them.
TEST_F(ErpsdHardship, LinkNotificationsThatAreLostAreMadeUpFor) {
  ASSERT_NO_FATAL_FAILURE(start());
  ASSERT_TRUE(becomes_idle());
  shell("for i in $(seq 1 40); do echo link add d$i type bridge; done | ip -b -");
  daemon_->signal(SIGSTOP);
  const std::string changes =
      "for r in $(seq 1 30); do for i in $(seq 1 40); do echo link set d$i mtu $((1000 + r)); "
      "done; done | ip -b -";
  for (int i = 0; i < 12; ++i) {
    shell(changes);
  }
  cut_the_far_end();
  const auto awake = mono_now();
  daemon_->signal(SIGCONT);
  EXPECT_TRUE(eventually([] { return guarded("eth1") && !guarded("eth2"); }, kLimit));
  expect_protected_within_bound(awake);
  EXPECT_TRUE(daemon_->err_contains("link notifications were lost", kLimit)) << daemon_->err();
  expect_configuration_kept();
  expect_restoration();
  ASSERT_NO_FATAL_FAILURE(stop());
}

class ErpsdSteppedClock : public ErpsdHardship {
 protected:
  void step(const std::string& seconds_text) { std::ofstream(step_.path()) << seconds_text; }

  static std::string slow() {
    std::string text = kConfig;
    const std::string wtr = "wtr_ms = 1000";
    return text.replace(text.find(wtr), wtr.size(), "wtr_ms = 3000");
  }

  TemporaryFile slow_config_{slow()};
  TemporaryFile step_{"0"};
};

// The timers of the ring take their time, whatever becomes of the time of day.
TEST_F(ErpsdSteppedClock, AnHourForthAndBackDisturbsNoTimer) {
  std::vector<std::string> line = {"/usr/bin/env", "LD_PRELOAD=" STEPPED_CLOCK,
                                   "ERPS_STEPPED_CLOCK=" + step_.path()};
  const std::vector<std::string> daemon = command(slow_config_.path());
  line.insert(line.end(), daemon.begin(), daemon.end());
  ASSERT_NO_FATAL_FAILURE(start_with(line));
  ASSERT_TRUE(becomes_idle());
  for (const char* to : {"3600", "0", "-3600", "0"}) {
    expect_protection();
    step(to);
    const auto restored = Clock::now();
    expect_restoration();
    // The timers count by whole seconds, so WTR may be a second short; guard and tick come on top.
    EXPECT_GT(Clock::now() - restored, milliseconds(1900)) << to;
    EXPECT_LT(Clock::now() - restored, seconds(9)) << to;
  }
  EXPECT_TRUE(contains(journal(), "\"link\"")) << "the journal is written on";
  ASSERT_NO_FATAL_FAILURE(stop());
}

}  // namespace
}  // namespace erps::test
