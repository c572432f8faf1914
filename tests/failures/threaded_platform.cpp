#include "tests/failures/threaded_platform.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "erps/runtime/event_queue.h"

namespace erps::failures {

namespace {

constexpr size_t kMostWaiting = 200;
constexpr time_t kPatienceSeconds = 30;
constexpr uintptr_t kEventClass = 3;

// Not std::lock_guard: a task may be cancelled while it waits, and the lock must be given back
// while the stack unwinds.
class Guard {
 public:
  explicit Guard(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  ~Guard() { pthread_mutex_unlock(&mutex_); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

timespec deadline() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  time.tv_sec += kPatienceSeconds;
  return time;
}

ERPS_EVENT_MSG_T make_event(uintptr_t type, uintptr_t payload) {
  ERPS_EVENT_MSG_T event{};
  event.event_class = kEventClass;
  event.type = type;
  event.payload = payload;
  return event;
}

}  // namespace

// What the module reads of it: a handle at byte 8 and a length at byte 14.
struct ThreadedPlatform::Packet {
  uint64_t unused = 0;
  uint32_t handle = 0;
  uint16_t unused_too = 0;
  uint16_t length = 0;
  uint32_t port = 0;
  std::vector<uint8_t> frame;
};

struct ThreadedPlatform::LinkRecord {
  uint32_t unused = 0;
  uint16_t interface = 0;
  uint16_t state = 0;
};

ThreadedPlatform& ThreadedPlatform::instance() {
  static ThreadedPlatform platform;
  return platform;
}

ThreadedPlatform::ThreadedPlatform() {
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&changed_, &attributes);
  pthread_condattr_destroy(&attributes);
  for (auto& link : links) {
    link = 1;
  }
}

// --- The event queue.

bool ThreadedPlatform::post_frame(uint32_t port, std::vector<uint8_t> frame) {
  auto* packet = new Packet;
  packet->port = port;
  packet->length = static_cast<uint16_t>(frame.size());
  packet->frame = std::move(frame);
  ++packets_out_;
  {
    const Guard guard(mutex_);
    packet->handle = next_handle_++;
    packets_[packet->handle] = packet;
  }
  return post_from_outside(make_event(ERPS_EVENT_T_PACKET, reinterpret_cast<uintptr_t>(packet)));
}

bool ThreadedPlatform::post_link(uint16_t port, bool up) {
  links.at(port).store(up ? 1 : 0, std::memory_order_relaxed);
  auto* record = new LinkRecord;
  record->interface = port;
  record->state = up ? 1 : 0;
  return post_from_outside(
      make_event(ERPS_EVENT_T_LINK_CHANGE, reinterpret_cast<uintptr_t>(record)));
}

bool ThreadedPlatform::post_event(uintptr_t type, uintptr_t payload) {
  return post_from_outside(make_event(type, payload));
}

bool ThreadedPlatform::post_from_outside(const ERPS_EVENT_MSG_T& event) {
  {
    const Guard guard(mutex_);
    if (open_ && events_.size() < kMostWaiting) {
      events_.push_back(event);
      pthread_cond_broadcast(&changed_);
      return true;
    }
  }
  drop(event);
  return false;
}

void ThreadedPlatform::drop(const ERPS_EVENT_MSG_T& event) {
  void* payload = reinterpret_cast<void*>(event.payload);  // NOLINT(performance-no-int-to-ptr)
  switch (event.type) {
    case ERPS_EVENT_T_LINK_CHANGE:
      delete static_cast<LinkRecord*>(payload);
      break;
    case ERPS_EVENT_T_PACKET:
      release(payload);
      break;
    case ERPS_EVENT_T_TOPO_CHANGE:
    case ERPS_EVENT_T_NOTIFY_SUB_RING:
      erps_pkt_buf_free(payload);
      break;
    default:
      break;
  }
}

void ThreadedPlatform::open_queue() {
  const Guard guard(mutex_);
  open_ = true;
}

bool ThreadedPlatform::post(const ERPS_EVENT_MSG_T& event) {
  const Guard guard(mutex_);
  if (open_) {
    events_.push_back(event);
    pthread_cond_broadcast(&changed_);
  }
  return open_;
}

int ThreadedPlatform::receive(ERPS_EVENT_MSG_T& event) {
  const Guard guard(mutex_);
  delete given_link_;  // it is good until the next event is asked for
  given_link_ = nullptr;
  while (events_.empty()) {
    pthread_cond_wait(&changed_, &mutex_);
  }
  event = events_.front();
  events_.pop_front();
  if (event.type == ERPS_EVENT_T_LINK_CHANGE) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    given_link_ = reinterpret_cast<LinkRecord*>(event.payload);
  }
  return 0;
}

void ThreadedPlatform::close_queue() {
  std::deque<ERPS_EVENT_MSG_T> left;
  {
    const Guard guard(mutex_);
    open_ = false;
    left.swap(events_);
    delete given_link_;
    given_link_ = nullptr;
  }
  for (const ERPS_EVENT_MSG_T& event : left) {
    drop(event);
  }
}

int ThreadedPlatform::fetch(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                            uint32_t* port) {
  const Guard guard(mutex_);
  const auto found = packets_.find(handle);
  if (found == packets_.end()) {
    return -1;
  }
  const Packet& packet = *found->second;
  *length = std::min<uint16_t>(capacity, packet.length);
  std::copy_n(packet.frame.begin(), *length, frame);
  *port = packet.port;
  return 0;
}

void ThreadedPlatform::release(void* packet) {
  auto* own = static_cast<Packet*>(packet);
  {
    const Guard guard(mutex_);
    packets_.erase(own->handle);
  }
  delete own;
  --packets_out_;
  released_.fetch_add(1, std::memory_order_relaxed);
}

// --- Tasks.

namespace {
void* run_task(void* argument) {
  auto* task = static_cast<erps_task_desc*>(argument);
  task->entry(task);
  return nullptr;
}
}  // namespace

int ThreadedPlatform::start(erps_task_desc& task) {
  {
    const Guard guard(mutex_);
    notified_.erase(&task);
  }
  pthread_t thread{};
  if ((task.init != nullptr && task.init(&task) != 0) ||
      pthread_create(&thread, nullptr, run_task, &task) != 0) {
    return -1;
  }
  task.thread_id = thread;
  const Guard guard(mutex_);
  while (notified_.count(&task) == 0) {
    pthread_cond_wait(&changed_, &mutex_);
  }
  return notified_[&task];
}

void ThreadedPlatform::stop(erps_task_desc& task) {
  pthread_cancel(task.thread_id);
  pthread_join(task.thread_id, nullptr);
  task.thread_id = static_cast<uintptr_t>(-1);
}

void ThreadedPlatform::notify(erps_task_desc& task, int result) {
  const Guard guard(mutex_);
  notified_[&task] = result;
  pthread_cond_broadcast(&changed_);
}

int ThreadedPlatform::sleep_a_tick() {
  const timespec tick{0, 1'000'000};
  nanosleep(&tick, nullptr);
  now_us_.fetch_add(1'000'000, std::memory_order_relaxed);
  ticks_.fetch_add(1, std::memory_order_relaxed);
  return 0;
}

// --- The management queue.

bool ThreadedPlatform::ask(long type, const std::vector<uint8_t>& request,
                           std::vector<uint8_t>& reply) {
  {
    const Guard guard(mutex_);
    messages_.push_back({type, request});
  }
  while (!post_event(ERPS_EVENT_T_CONF, static_cast<uintptr_t>(type))) {
    const timespec moment{0, 100'000};
    nanosleep(&moment, nullptr);  // too much waits
  }
  const long reply_type = type | 0x40000000;
  const timespec until = deadline();
  const Guard guard(mutex_);
  for (;;) {
    const auto found =
        std::find_if(messages_.begin(), messages_.end(),
                     [=](const Message& message) { return message.type == reply_type; });
    if (found != messages_.end()) {
      reply = std::move(found->text);
      messages_.erase(found);
      return true;
    }
    if (pthread_cond_timedwait(&changed_, &mutex_, &until) == ETIMEDOUT) {
      return false;
    }
  }
}

long ThreadedPlatform::take_message(void* message, size_t capacity, long type) {
  const Guard guard(mutex_);
  const auto found = std::find_if(messages_.begin(), messages_.end(),
                                  [=](const Message& one) { return one.type == type; });
  if (found == messages_.end()) {
    errno = ENOMSG;
    return -1;
  }
  const size_t length = std::min(found->text.size(), capacity);
  std::memcpy(message, &found->type, sizeof found->type);
  std::memcpy(static_cast<uint8_t*>(message) + sizeof found->type, found->text.data(), length);
  messages_.erase(found);
  return static_cast<long>(length);
}

void ThreadedPlatform::put_message(const void* message, size_t size) {
  Message reply{};
  std::memcpy(&reply.type, message, sizeof reply.type);
  const auto* text = static_cast<const uint8_t*>(message) + sizeof reply.type;
  reply.text.assign(text, text + size);
  const Guard guard(mutex_);
  messages_.push_back(std::move(reply));
  pthread_cond_broadcast(&changed_);
}

}  // namespace erps::failures
