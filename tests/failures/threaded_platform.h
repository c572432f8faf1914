// A platform of real threads for the module in this process: tasks are threads, the queues are
// locked lists, a tick lasts a millisecond while the clock says a second. Everything may be called
// from any thread.
//
// It takes no lock on behalf of the switch's calls, so that it orders nothing between the two tasks
// that the module does not order itself: what ThreadSanitizer does not see here, a host may meet.
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "platform/event_queue.h"
#include "platform/task.h"

namespace erps::failures {

inline constexpr uint32_t kPorts = 16;

class ThreadedPlatform {
 public:
  static ThreadedPlatform& instance();

  // --- What happens outside. False while nobody receives, or too much waits: it is gone then.
  bool post_frame(uint32_t port, std::vector<uint8_t> frame);
  bool post_link(uint16_t port, bool up);
  bool post_event(uintptr_t type, uintptr_t payload);

  // A management request and the wait for its answer, thirty seconds at most: false without one.
  bool ask(long type, const std::vector<uint8_t>& request, std::vector<uint8_t>& reply);

  uint64_t ticks() const { return ticks_.load(std::memory_order_relaxed); }
  uint64_t frames_handled() const { return released_.load(std::memory_order_relaxed); }
  // Packets that are still out, to be asked when the module has stopped.
  int64_t packets_out() const { return packets_out_.load(); }

  // --- For the calls.
  void open_queue();
  int receive(ERPS_EVENT_MSG_T& event);
  bool post(const ERPS_EVENT_MSG_T& event);
  void close_queue();
  int fetch(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length, uint32_t* port);
  void release(void* packet);
  int start(erps_task_desc& task);
  void stop(erps_task_desc& task);
  void notify(erps_task_desc& task, int result);
  int sleep_a_tick();
  int64_t now_us() const { return now_us_.load(std::memory_order_relaxed); }
  long take_message(void* message, size_t capacity, long type);
  void put_message(const void* message, size_t size);
  std::array<std::atomic<uint32_t>, kPorts> links{};
  std::array<std::atomic<uint32_t>, kPorts> states{};

 private:
  struct Packet;
  struct LinkRecord;
  struct Message {
    long type;
    std::vector<uint8_t> text;
  };

  ThreadedPlatform();
  bool post_from_outside(const ERPS_EVENT_MSG_T& event);
  void drop(const ERPS_EVENT_MSG_T& event);

  pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t changed_{};
  bool open_ = false;
  std::deque<ERPS_EVENT_MSG_T> events_;
  std::map<uint32_t, Packet*> packets_;
  uint32_t next_handle_ = 1;
  LinkRecord* given_link_ = nullptr;
  std::deque<Message> messages_;
  std::map<const erps_task_desc*, int> notified_;
  std::atomic<int64_t> now_us_ = 1'700'000'000'000'000;
  std::atomic<uint64_t> ticks_ = 0;
  std::atomic<uint64_t> released_ = 0;
  std::atomic<int64_t> packets_out_ = 0;
};

}  // namespace erps::failures
