// A platform for unit tests: it does nothing, writes down every call and answers as told.
//
// One object serves the whole process and defines all platform calls. Any thread; one mutex guards
// everything in it (but see run_free). Calls and log lines go into one journal in the order in
// which they came. Nothing fails unless a test asks for it: links are up, ports answer with the
// state last set, sends succeed.
//
// The module's clock and its sleep belong to this platform too (link option --wrap), so that time
// stands still until a test moves it.
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/event_queue.h"
#include "platform/field_processor.h"
#include "platform/task.h"

namespace erps::test {

using MacAddress = std::array<uint8_t, 6>;

// What an event points to: a message buffer or a timer.
inline void* payload_of(const ERPS_EVENT_MSG_T& event) {
  return reinterpret_cast<void*>(event.payload);  // NOLINT(performance-no-int-to-ptr)
}

inline constexpr uint32_t kStartSeconds = 1'000'000;
inline constexpr uint32_t kStartMicroseconds = 250'000;
inline constexpr uint64_t kStartUs = uint64_t{kStartSeconds} * 1'000'000 + kStartMicroseconds;

struct LogLine {
  int level = 0;
  int facility = 0;
  std::string label;
  std::string text;
};

// One platform call. `arguments` is their text in the order of the declaration, numbers in decimal,
// outputs and buffers left out; `bytes` is the frame that was sent, or the classifier rule as it
// came in.
struct Call {
  std::string name;
  std::string arguments;
  std::vector<uint8_t> bytes;

  std::string text() const { return name + "(" + arguments + ")"; }
};

struct SentFrame {
  uint32_t port = 0;
  uint32_t arg2 = 0;
  uint32_t arg4 = 0;
  std::vector<uint8_t> bytes;
};

struct TraceLine {
  std::string location;
  std::string text;
};

class RecordingPlatform {
 public:
  static RecordingPlatform& instance();

  // Back to the state of a new process; no task may run.
  void reset();

  // --- What happened.
  std::vector<Call> journal() const;       // calls, log lines included as Log_logging_func
  std::vector<std::string> calls() const;  // texts of all calls but logging and tracing
  std::vector<std::string> calls(const std::set<std::string>& names) const;  // only these
  std::vector<LogLine> log() const;
  std::vector<TraceLine> trace() const;
  std::vector<SentFrame> sent_frames() const;
  void clear_journal();
  // For runs of several threads: calls are answered with success, links are up, nothing is written
  // down, no action runs, and no lock is taken that could order one task behind the other and so
  // hide a race from ThreadSanitizer. The event queue and the tasks work as always.
  void run_free(bool free);
  // Runs `action` in the calling thread each time the call is made, before it takes effect.
  // The fixture forgets the actions before it clears up.
  void on_call(const std::string& name, std::function<void()> action);
  void forget_actions();

  // --- What the switch answers. Result 0 is success.
  void set_port_state_result(uint32_t port, int result);
  void set_port_state_read_result(uint32_t port, int result);
  void set_port_state_answer(uint32_t port, uint32_t state);  // instead of the state last set
  void set_flush_result(int result);
  void set_transmit_result(int result);
  void set_link(uint32_t port, uint32_t value);
  void set_link_result(uint32_t port, int result);
  void set_nic_address(const MacAddress& mac);
  void set_nic_result(int result);
  void set_rule_results(int action, int qualifier, int add, int remove);
  // The frame that adp_receive_frame hands out from now on, and its result.
  void set_received_frame(std::vector<uint8_t> frame, uint16_t vlan, uint32_t port);
  void set_receive_result(int result);

  // --- The event queue.
  void set_queue_create_fails(bool fails);
  void set_queue_open_fails(bool fails);
  void set_send_result(int result);  // default 1; 0 and below refuse the event
  void* receiver_handle() { return &receiver_; }
  void* sender_handle() { return &sender_; }
  std::vector<ERPS_EVENT_MSG_T> take_events();  // everything posted and not yet received
  void post(const ERPS_EVENT_MSG_T& event);     // as another sender would
  void close_queue_for_receiver();              // equeue_recv returns -1 once the queue is empty
  // Waits, bounded, until a task waits in equeue_recv with nothing left to receive.
  bool wait_until_receiver_idle();

  // --- Tasks. By default they are initialised and written down: they run when run_tasks(true).
  void run_tasks(bool run);
  void set_task_start_result(const std::string& name, int result);

  // --- Time.
  void set_time(uint32_t seconds, uint32_t microseconds);
  void advance_ms(uint64_t ms);
  std::pair<uint32_t, uint32_t> now() const;  // seconds, microseconds
  // Lets a task that sleeps in select wake up `count` times, without moving the clock.
  void tick(int count = 1);
  // What the next sleeps return at once, without waiting for a tick: -1 fails.
  void script_selects(const std::vector<int>& results);
  // Waits, bounded, until every tick was used and the task sleeps again.
  bool wait_until_sleeper_idle();
  void set_trace(int value);

  // --- Memory and System V queue calls of the module.
  // The n-th allocation from now (1 the next) fails; 0 none.
  void fail_allocation(int nth);
  void fail_msgget(bool fail);
  void set_mq_unlink_result(int result);

  // --- Entry points of the calls; not for tests.
  void record(const char* name, std::string arguments, std::vector<uint8_t> bytes = {});
  void record_log(int level, int facility, const char* label, std::string text);
  void record_trace(const char* location, const char* text);
  int port_state_set(uint32_t port, uint32_t state);
  int port_state_get(uint32_t port, uint32_t* state);
  int flush_result() const;
  int transmit(const SentFrame& frame);
  int receive(uint8_t* frame, uint16_t capacity, uint16_t* length, uint16_t* vlan, uint32_t* port);
  int link_get(uint32_t port, uint32_t* value);
  int nic_get(uint8_t* mac) const;
  int rule_result(int which) const;
  int trace_switch() const;
  void* queue_create();
  void* queue_open();
  int queue_receive(ERPS_EVENT_MSG_T* message);
  int queue_send(const void* queue, const ERPS_EVENT_MSG_T& message);
  int task_start(erps_task_desc* task);
  int task_stop(erps_task_desc* task);
  int task_notify(erps_task_desc* task, int result);
  int sleep_one_tick();
  bool allocation_fails();
  bool msgget_fails() const;
  int mq_unlink_result() const;
  std::string handle_name(const void* handle) const;

 private:
  RecordingPlatform();

  // What a test sets and reset() takes back.
  struct Settings {
    std::map<uint32_t, int> port_state_results;
    std::map<uint32_t, int> port_state_read_results;
    std::map<uint32_t, uint32_t> port_state_answers;
    std::map<uint32_t, uint32_t> port_states;
    std::map<uint32_t, uint32_t> links;
    std::map<uint32_t, int> link_results;
    int flush_result = 0;
    int transmit_result = 0;
    MacAddress nic = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    int nic_result = 0;
    std::array<int, 4> rule_results{};
    std::vector<uint8_t> received_frame;
    uint16_t received_vlan = 0;
    uint32_t received_port = 0;
    int receive_result = 0;
    bool create_fails = false;
    bool open_fails = false;
    int send_result = 1;
    bool run_tasks = false;
    std::map<std::string, int> task_start_results;
    bool msgget_fails = false;
    int mq_unlink_result = 0;
    std::map<std::string, std::function<void()>> hooks;
    bool queue_gone = false;
    int ticks = 0;
    std::deque<int> select_results;
    std::map<erps_task_desc*, std::optional<int>> notified;
  };

  bool wait_for(const std::function<bool()>& condition);

  bool free_running() const { return free_running_.load(std::memory_order_relaxed); }

  mutable pthread_mutex_t mutex_;
  pthread_cond_t changed_;
  Settings settings_;
  // Read by every task at any time: relaxed, so that reading them orders nothing.
  std::atomic<bool> free_running_ = false;
  std::atomic<uint64_t> now_us_ = kStartUs;
  std::atomic<int> trace_switch_ = 0;
  std::atomic<int> failing_allocation_ = 0;
  std::vector<Call> journal_;
  std::vector<LogLine> log_;
  std::vector<TraceLine> trace_;
  std::vector<SentFrame> sent_;
  std::deque<ERPS_EVENT_MSG_T> events_;
  int receivers_waiting_ = 0;
  int sleepers_ = 0;
  uintptr_t next_fake_thread_ = 100;
  char receiver_ = 0;
  char sender_ = 0;
};

}  // namespace erps::test
