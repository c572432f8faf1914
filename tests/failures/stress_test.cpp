// Everything at once, in real threads: operators add, change, switch and remove rings while timers
// fire as fast as they can, frames of every kind arrive, links flap, strangers post events and the
// module is stopped and started. Under ThreadSanitizer this finds what the two tasks share without
// the right to.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <optional>
#include <random>
#include <shared_mutex>
#include <thread>

#include "erps/mgmt/message.h"
#include "erps/raps/frame.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/module.h"
#include "tests/failures/threaded_platform.h"

namespace erps::failures {
namespace {

using std::chrono::milliseconds;

using Arguments = std::vector<uint32_t>;

class Stress : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(erps_module_init(), 0);
    ASSERT_EQ(erps_module_start(), 0);
  }

  // The return code, or nothing within the time that an operator waits.
  std::optional<uint8_t> ask(long type, uint8_t command, const Arguments& arguments) {
    std::vector<uint8_t> request(8 + 4 * arguments.size());
    request[0] = command;
    std::memcpy(&request[8], arguments.data(), 4 * arguments.size());
    std::vector<uint8_t> reply;
    while (restart_wanted_) {  // or the restart would never get its turn
      std::this_thread::yield();
    }
    const std::shared_lock running(restarting_);
    if (!platform_.ask(type, request, reply)) {
      return std::nullopt;
    }
    return reply.at(8);
  }

  void operate(unsigned seed) {
    std::minstd_rand random(seed);
    const auto below = [&](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    const long type = 1 + static_cast<long>(seed);
    while (!over_) {
      const uint32_t ring = 1 + below(4);
      const uint32_t role = 1U << below(3);
      switch (below(14)) {
        case 0:
        case 1:
          command(type, mgmt::kAddRing, {ring, 2 * ring, 2 * ring + 1, 100 + ring, role, below(2)});
          break;
        case 2:
          command(type, mgmt::kAddRing,
                  {ring, 2 * ring + 1, 2 * ring, 100 + ring + 10 * below(3), role, below(2)});
          break;
        case 3:
          command(type, mgmt::kAttachSubRing, {ring, 5 + ring, 10 + ring, role, below(2)});
          break;
        case 4:
        case 5:
        case 6:
          command(type, mgmt::kSetEnable, {ring + 5 * below(2), 1});
          break;
        case 7:
          command(type, mgmt::kSetEnable, {ring + 5 * below(2), 0});
          break;
        case 8:
          command(type, mgmt::kDeleteRing, {ring + 5 * below(2)});
          break;
        case 9:
          command(type, mgmt::kForcedSwitch, {ring, 2 * ring + below(2)});
          break;
        case 10:
          command(type, mgmt::kManualSwitch, {ring, 2 * ring + below(2)});
          break;
        case 11:
          command(type, mgmt::kClear, {ring});
          break;
        case 12:
          command(type, below(2) == 0 ? mgmt::kSetWtrTime : mgmt::kSetHoldoffTime,
                  {1000 * below(4)});
          break;
        default:
          command(type, mgmt::kGetRing, {ring});
          break;
      }
    }
  }

  void command(long type, uint8_t cmd, const Arguments& arguments) {
    if (!ask(type, cmd, arguments)) {
      ++unanswered_;
    }
    ++asked_;
  }

  void flap_links() {
    std::minstd_rand random(7);
    while (!over_) {
      platform_.post_link(static_cast<uint16_t>(1 + random() % 14), random() % 3 != 0);
      std::this_thread::yield();
    }
  }

  void send_frames() {
    std::minstd_rand random(8);
    constexpr uint8_t kRequests[] = {raps::kNr, raps::kNr, raps::kSf,
                                     raps::kMs, raps::kFs, raps::kEvent};
    while (!over_) {
      const auto ring = static_cast<uint32_t>(1 + random() % 9);
      const uint8_t node[6] = {0x00, 0x11, 0x22, 0x33, 0x44, static_cast<uint8_t>(random() % 256)};
      raps::Message message{};
      message.ring_id = ring;
      message.vlan_id = 100 + ring;
      message.request = kRequests[random() % std::size(kRequests)];
      message.rb = random() % 2;
      message.dnf = random() % 2;
      message.bpr = random() % 2;
      message.source = node;
      message.node_id = node;
      std::vector<uint8_t> frame(raps::kTaggedLength);
      raps::build(message, frame.data());
      platform_.post_frame(static_cast<uint32_t>(1 + random() % 14), std::move(frame));
      std::this_thread::yield();
    }
  }

  void post_nonsense() {
    uintptr_t type = 0;
    while (!over_) {
      constexpr uintptr_t kHarmless[] = {5, 6, 8, 9, 11};
      platform_.post_event(kHarmless[type++ % std::size(kHarmless)], 999'999);
      std::this_thread::sleep_for(milliseconds(1));
    }
  }

  // The rings stay; what was in the queue is gone.
  void restart_module() {
    restart_wanted_ = true;
    const std::unique_lock nobody_asks(restarting_);
    restart_wanted_ = false;
    erps_module_stop();
    ASSERT_EQ(pthread_mutex_trylock(&erps_timer_lock), 0) << "the timer lock is held";
    pthread_mutex_unlock(&erps_timer_lock);
    ASSERT_EQ(erps_module_start(), 0);
  }

  // Everything for a while; each part of it ends with a restart.
  void put_under_load(int restarts, milliseconds pause) {
    std::vector<std::thread> threads;
    threads.emplace_back([this] { operate(1); });
    threads.emplace_back([this] { operate(2); });
    threads.emplace_back([this] { flap_links(); });
    threads.emplace_back([this] { send_frames(); });
    threads.emplace_back([this] { post_nonsense(); });
    for (int restart = 0; restart < restarts; ++restart) {
      std::this_thread::sleep_for(pause);  // it is the load that takes this time
      restart_module();
    }
    over_ = true;
    for (std::thread& thread : threads) {
      thread.join();
    }
  }

  // Nothing is left of it.
  void expect_clean_end() {
    for (const uint32_t ring : {1U, 2U, 3U, 4U, 6U, 7U, 8U, 9U}) {
      ask(1, mgmt::kSetEnable, {ring, 0});
      ask(1, mgmt::kDeleteRing, {ring});
    }
    erps_module_stop();
    EXPECT_EQ(erps_get_list_head(), nullptr);
    EXPECT_EQ(g_erps_timer_list.next, &g_erps_timer_list) << "a timer is left without a ring";
    EXPECT_EQ(platform_.packets_out(), 0);
  }

  ThreadedPlatform& platform_ = ThreadedPlatform::instance();
  std::atomic<bool> over_ = false;
  std::atomic<bool> restart_wanted_ = false;
  std::shared_mutex restarting_;
  std::atomic<uint64_t> asked_ = 0;
  std::atomic<uint64_t> unanswered_ = 0;
};

TEST_F(Stress, EverythingAtOnce) {
  put_under_load(8, milliseconds(1000));
  EXPECT_EQ(unanswered_, 0U);
  // Some of everything, even on a slow machine.
  EXPECT_GT(asked_, 200U);
  EXPECT_GT(platform_.ticks(), 200U);
  EXPECT_GT(platform_.frames_handled(), 200U);
  expect_clean_end();
  RecordProperty("requests", std::to_string(asked_));
  RecordProperty("ticks", std::to_string(platform_.ticks()));
  RecordProperty("frames", std::to_string(platform_.frames_handled()));
}

// The tasks meet in their beginnings and ends.
TEST_F(Stress, RestartedAllTheTime) {
  put_under_load(30, milliseconds(20));
  EXPECT_EQ(unanswered_, 0U);
  expect_clean_end();
}

}  // namespace
}  // namespace erps::failures
