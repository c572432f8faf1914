// A daemon whose queues are full, whose management is flooded, whose disk is full and whose clock
// jumps: the ring goes on protecting, nothing configured is lost, and it is said what is wrong.
#include <fcntl.h>
#include <mqueue.h>
#include <sys/ipc.h>
#include <sys/msg.h>

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
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// From the loss of a carrier to the guard on its port, on a machine that does other things too.
constexpr milliseconds kProtected{50};

class ErpsdHardship : public ErpsdNetwork {
 protected:
  // Cuts the link of eth1, the port that carries the traffic, and sees it guarded and the RPL open.
  void expect_protection() {
    const auto cut = Clock::now();
    shell("ip link set far1 down");
    EXPECT_TRUE(eventually([] { return guarded("eth1") && !guarded("eth2"); }, kLimit));
    // Asking the kernel costs some processes, too.
    EXPECT_LT(Clock::now() - cut, 4 * kProtected);
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

class ErpsdSteppedClock : public ErpsdHardship {
 protected:
  void step(const std::string& seconds_text) { std::ofstream(step_.path()) << seconds_text; }

  TemporaryFile step_{"0"};
};

// The timers of the ring take their time, whatever becomes of the time of day.
TEST_F(ErpsdSteppedClock, AnHourForthAndBackDisturbsNoTimer) {
  std::vector<std::string> line = {"/usr/bin/env", "LD_PRELOAD=" STEPPED_CLOCK,
                                   "ERPS_STEPPED_CLOCK=" + step_.path()};
  const std::vector<std::string> daemon = command(config_.path());
  line.insert(line.end(), daemon.begin(), daemon.end());
  ASSERT_NO_FATAL_FAILURE(start_with(line));
  ASSERT_TRUE(becomes_idle());
  for (const char* to : {"3600", "0", "-3600", "0"}) {
    expect_protection();
    step(to);
    const auto restored = Clock::now();
    expect_restoration();
    // WTR is a second, and guard and tick come on top.
    EXPECT_GT(Clock::now() - restored, milliseconds(900)) << to;
    EXPECT_LT(Clock::now() - restored, seconds(9)) << to;
  }
  EXPECT_TRUE(contains(journal(), "\"link\"")) << "the journal is written on";
  ASSERT_NO_FATAL_FAILURE(stop());
}

}  // namespace
}  // namespace erps::test
