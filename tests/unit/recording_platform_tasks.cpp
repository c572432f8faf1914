// The recording platform's event queue, time and tasks.
#include <cerrno>
#include <ctime>

#include "tests/unit/recording_platform.h"
#include "tests/unit/recording_platform_internal.h"

namespace erps::test {
namespace {

constexpr int kWaitSeconds = 30;  // bound of every wait; far beyond what a passing test needs

class Counted {
 public:
  explicit Counted(int& count) : count_(count) { ++count_; }
  ~Counted() { --count_; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  int& count_;
};

}  // namespace

bool RecordingPlatform::wait_for(const std::function<bool()>& condition) {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += kWaitSeconds;
  while (!condition()) {
    if (pthread_cond_timedwait(&changed_, &mutex_, &deadline) == ETIMEDOUT) {
      return condition();
    }
  }
  return true;
}

// --- The event queue.

void RecordingPlatform::set_queue_create_fails(bool fails) {
  const Guard guard(mutex_);
  settings_.create_fails = fails;
}

void RecordingPlatform::set_queue_open_fails(bool fails) {
  const Guard guard(mutex_);
  settings_.open_fails = fails;
}

void* RecordingPlatform::queue_create() {
  const Guard guard(mutex_);
  return settings_.create_fails ? nullptr : &receiver_;
}

void* RecordingPlatform::queue_open() {
  const Guard guard(mutex_);
  return settings_.open_fails ? nullptr : &sender_;
}

void RecordingPlatform::set_send_result(int result) {
  const Guard guard(mutex_);
  settings_.send_result = result;
}

int RecordingPlatform::queue_send(const void* queue, const ERPS_EVENT_MSG_T& message) {
  if (queue == nullptr) {
    return -1;
  }
  const Guard guard(mutex_);
  if (settings_.send_result > 0) {
    events_.push_back(message);
    pthread_cond_broadcast(&changed_);
  }
  return settings_.send_result;
}

void RecordingPlatform::post(const ERPS_EVENT_MSG_T& event) {
  const Guard guard(mutex_);
  events_.push_back(event);
  pthread_cond_broadcast(&changed_);
}

std::vector<ERPS_EVENT_MSG_T> RecordingPlatform::take_events() {
  const Guard guard(mutex_);
  std::vector<ERPS_EVENT_MSG_T> events(events_.begin(), events_.end());
  events_.clear();
  return events;
}

void RecordingPlatform::close_queue_for_receiver() {
  const Guard guard(mutex_);
  settings_.queue_gone = true;
  pthread_cond_broadcast(&changed_);
}

int RecordingPlatform::queue_receive(ERPS_EVENT_MSG_T* message) {
  const Guard guard(mutex_);
  const Counted waiting(receivers_waiting_);
  while (events_.empty()) {
    if (settings_.queue_gone) {
      return -1;
    }
    pthread_cond_broadcast(&changed_);
    pthread_cond_wait(&changed_, &mutex_);
  }
  *message = events_.front();
  events_.pop_front();
  return 0;
}

bool RecordingPlatform::wait_until_receiver_idle() {
  const Guard guard(mutex_);
  return wait_for([this] { return events_.empty() && receivers_waiting_ > 0; });
}

std::string RecordingPlatform::handle_name(const void* handle) const {
  if (handle == &receiver_) {
    return "receiver";
  }
  if (handle == &sender_) {
    return "sender";
  }
  return handle == nullptr ? "null" : "unknown";
}

// --- Time.

void RecordingPlatform::set_time(uint32_t seconds, uint32_t microseconds) {
  now_us_ = uint64_t{seconds} * 1'000'000 + microseconds;
}

void RecordingPlatform::advance_ms(uint64_t ms) {
  now_us_.fetch_add(ms * 1000, std::memory_order_relaxed);
}

std::pair<uint32_t, uint32_t> RecordingPlatform::now() const {
  const uint64_t now = now_us_.load(std::memory_order_relaxed);
  return {static_cast<uint32_t>(now / 1'000'000), static_cast<uint32_t>(now % 1'000'000)};
}

void RecordingPlatform::tick(int count) {
  const Guard guard(mutex_);
  settings_.ticks += count;
  pthread_cond_broadcast(&changed_);
}

void RecordingPlatform::script_selects(const std::vector<int>& results) {
  const Guard guard(mutex_);
  settings_.select_results.assign(results.begin(), results.end());
  pthread_cond_broadcast(&changed_);
}

int RecordingPlatform::sleep_one_tick() {
  const Guard guard(mutex_);
  const Counted sleeping(sleepers_);
  while (settings_.ticks == 0) {
    if (!settings_.select_results.empty()) {
      const int result = settings_.select_results.front();
      settings_.select_results.pop_front();
      return result;
    }
    pthread_cond_broadcast(&changed_);
    pthread_cond_wait(&changed_, &mutex_);
  }
  --settings_.ticks;
  return 0;
}

bool RecordingPlatform::wait_until_sleeper_idle() {
  const Guard guard(mutex_);
  return wait_for(
      [this] { return settings_.ticks == 0 && settings_.select_results.empty() && sleepers_ > 0; });
}

// --- Tasks.

void RecordingPlatform::run_tasks(bool run) {
  const Guard guard(mutex_);
  settings_.run_tasks = run;
}

void RecordingPlatform::set_task_start_result(const std::string& name, int result) {
  const Guard guard(mutex_);
  settings_.task_start_results[name] = result;
}

namespace {

void* run_task(void* argument) {
  auto* task = static_cast<erps_task_desc*>(argument);
  task->entry(task);
  return nullptr;
}

constexpr uintptr_t kNotRunning = static_cast<uintptr_t>(-1);

}  // namespace

int RecordingPlatform::task_start(erps_task_desc* task) {
  bool runs = false;
  int result = 0;
  {
    const Guard guard(mutex_);
    result = value_or(settings_.task_start_results, std::string(task->name), 0);
    if (result < 0) {
      return result;
    }
    runs = settings_.run_tasks;
    settings_.notified[task] = std::nullopt;
  }
  if (task->init != nullptr && task->init(task) != 0) {
    return -1;
  }
  if (!runs) {
    const Guard guard(mutex_);
    task->thread_id = next_fake_thread_++;
    return result;
  }
  pthread_t thread{};
  if (pthread_create(&thread, nullptr, run_task, task) != 0) {
    return -1;
  }
  task->thread_id = thread;
  {
    const Guard guard(mutex_);
    wait_for([this, task] { return settings_.notified[task].has_value(); });
    result = settings_.notified[task].value_or(-1);
  }
  if (result < 0) {
    pthread_join(thread, nullptr);
    task->thread_id = kNotRunning;
  }
  return result;
}

int RecordingPlatform::task_stop(erps_task_desc* task) {
  bool running = false;
  {
    const Guard guard(mutex_);
    running = settings_.run_tasks;
  }
  if (running) {
    pthread_cancel(task->thread_id);
    pthread_join(task->thread_id, nullptr);
  }
  task->thread_id = kNotRunning;
  return 0;
}

int RecordingPlatform::task_notify(erps_task_desc* task, int result) {
  const Guard guard(mutex_);
  settings_.notified[task] = result;
  pthread_cond_broadcast(&changed_);
  return 0;
}

}  // namespace erps::test
