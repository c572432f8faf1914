#include "linux/event_queue.h"

#include <pthread.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "erps/mgmt/message.h"
#include "linux/cancel_guard.h"
#include "linux/clock.h"
#include "linux/log.h"

namespace erps::linux_platform {
namespace {

constexpr uintptr_t kLinkChange = 1;
constexpr uintptr_t kPacket = 2;
constexpr uintptr_t kTimer = 3;

// What a descriptor of the epoll set is; ports are numbered from 1, so their number says it.
constexpr uint64_t kInProcessSource = 1000;
constexpr uint64_t kNetlinkSource = 1001;
constexpr uint64_t kCarrierTimerSource = 1002;
constexpr uint64_t kDoorSource = 1003;
constexpr uint64_t kRetrySource = 1004;
constexpr uint64_t kThinningSource = 1005;

ERPS_EVENT_MSG_T make_event(uintptr_t type, const void* payload) {
  ERPS_EVENT_MSG_T event{};
  event.event_class = mgmt::kEventClass;
  event.type = type;
  event.payload = reinterpret_cast<uintptr_t>(payload);
  return event;
}

}  // namespace

EventQueue::EventQueue(RingPorts& ports, LinkMonitor& links, PortKeeper& keeper, History& history,
                       AtomicCounters& counters, std::optional<gid_t> door_group)
    : ports_(ports),
      links_(links),
      keeper_(keeper),
      history_(history),
      counters_(counters),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      door_(door_group),
      spare_(std::make_unique<Packet>()),
      thinning_timer_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
  if (!epoll_ || !thinning_timer_) {
    throw PlatformError(std::string("epoll set cannot be opened: ") + std::strerror(errno));
  }
  watch(in_process_.fd(), kInProcessSource);
  watch(links_.netlink_fd(), kNetlinkSource);
  watch(links_.timer_fd(), kCarrierTimerSource);
  watch(keeper_.retry_fd(), kRetrySource);
  watch(thinning_timer_.get(), kThinningSource);
  for (const auto& port : ports_.all()) {
    watch(port->frames.fd(), port->id);
  }
}

void EventQueue::watch(int fd, uint64_t source) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = source;
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) {
    throw PlatformError(std::string("epoll set: ") + std::strerror(errno));
  }
}

bool EventQueue::open(const std::string& name, int depth) {
  close();
  if (const int error = door_.open(name, depth); error != 0) {
    logf(LogLevel::kError, "outside door %s: cannot be made: %s", name.c_str(),
         std::strerror(error));
    return false;
  }
  watch(door_.fd(), kDoorSource);
  name_ = name;
  door_ready_ = false;
  std::fill(heads_.begin(), heads_.end(), nullptr);
  packets_.reset();
  in_process_.open();
  opened_ = true;
  return true;
}

void EventQueue::close() {
  if (!opened_) {
    return;
  }
  opened_ = false;
  in_process_.close();
  door_.close();  // closing takes it out of the epoll set too
  keeper_.abandon_event();
  current_cause() = Cause{};
}

bool EventQueue::send(const ERPS_EVENT_MSG_T& event) {
  return in_process_.push(event);
}

int EventQueue::receive(ERPS_EVENT_MSG_T& event) {
  pthread_testcancel();
  CancelGuard guard;
  keeper_.finish_event();
  current_cause() = Cause{};
  int found = epoll_wait(epoll_.get(), ready_.data(), kMaxReady, 0);
  for (;;) {
    look(found);
    if (in_process_.closed()) {
      return -1;
    }
    if (take_event(event)) {
      keeper_.begin_event();
      return 0;
    }
    if (!in_process_.prepare_sleep()) {
      found = 0;
      continue;
    }
    guard.lift();
    found = epoll_wait(epoll_.get(), ready_.data(), kMaxReady, -1);
    guard.hold();
    in_process_.awake();
  }
}

void EventQueue::look(int ready) {
  for (int i = 0; i < ready; ++i) {
    note_ready(ready_[static_cast<size_t>(i)].data.u64);
  }
}

void EventQueue::note_ready(uint64_t source) {
  switch (source) {
    case kInProcessSource:
      break;
    case kNetlinkSource:
      links_.drain();
      break;
    case kCarrierTimerSource:
      links_.poll_devices();
      break;
    case kRetrySource:
      keeper_.retry();
      break;
    case kThinningSource:
      hear_all_again();
      break;
    case kDoorSource:
      door_ready_ = true;
      break;
    default:
      frames_ready_ |= uint64_t{1} << source;
      break;
  }
}

bool EventQueue::take_event(ERPS_EVENT_MSG_T& event) {
  if (take_link(event) || take_in_process(event)) {
    return true;
  }
  doors_turn_ = !doors_turn_;
  return doors_turn_ ? take_from_door(event) || take_frame(event)
                     : take_frame(event) || take_from_door(event);
}

bool EventQueue::take_link(ERPS_EVENT_MSG_T& event) {
  LinkChange change;
  if (!links_.next(change)) {
    return false;
  }
  LinkRecord& record = link_records_[next_link_record_++ % kLinkRecords];
  record = LinkRecord{.unused = 0,
                      .interface = static_cast<uint16_t>(change.port->id),
                      .state = static_cast<uint16_t>(change.up ? 1 : 0)};
  event = make_event(kLinkChange, &record);
  current_cause() = Cause{.kind = change.up ? CauseKind::kLinkUp : CauseKind::kLinkDown,
                          .port = static_cast<uint8_t>(change.port->id)};
  count(counters_.link_events);
  return true;
}

bool EventQueue::take_in_process(ERPS_EVENT_MSG_T& event) {
  if (!in_process_.pop(event)) {
    return false;
  }
  if (event.type == kTimer) {
    current_cause() = Cause{.kind = CauseKind::kTimer};
  } else if (event.type == mgmt::kEventTypeConf) {
    current_cause() = Cause{.kind = CauseKind::kCommand};
    history_.add(History::make(HistoryKind::kCommand, 0));
  } else {
    current_cause() = Cause{.kind = CauseKind::kEvent, .value = static_cast<uint8_t>(event.type)};
  }
  count(counters_.in_process_events);
  return true;
}

bool EventQueue::take_from_door(ERPS_EVENT_MSG_T& event) {
  constexpr int kRefusalsAtOnce = 16;
  for (int i = 0; door_ready_ && i < kRefusalsAtOnce; ++i) {
    size_t length = 0;
    const DoorVerdict verdict = door_.take(event, length);
    if (verdict == DoorVerdict::kEmpty) {
      door_ready_ = false;
    } else if (verdict != DoorVerdict::kAccepted) {
      refuse(verdict, length);
    } else {
      count(counters_.door_accepted);
      current_cause() = Cause{.kind = CauseKind::kCommand};
      HistoryRecord record = History::make(HistoryKind::kCommand, 0, Cause{});
      record.length = static_cast<uint16_t>(length);
      std::snprintf(record.text, sizeof record.text, "request type %" PRIuPTR, event.payload);
      history_.add(record);
      return true;
    }
  }
  return false;
}

void EventQueue::refuse(DoorVerdict verdict, size_t length) {
  count(verdict == DoorVerdict::kWrongSize ? counters_.door_wrong_size
                                           : counters_.door_wrong_event);
  HistoryRecord record = History::make(HistoryKind::kDoorDrop, 0, Cause{});
  record.reason = static_cast<uint8_t>(verdict);
  record.length = static_cast<uint16_t>(length);
  // A stranger who posts without end does not push everything else out of the history.
  if (refusals_recorded_.take(record.mono_ns)) {
    history_.add(record);
  }
  constexpr int64_t kQuietNs = 1'000'000'000;
  if (record.mono_ns - last_refusal_logged_ns_ >= kQuietNs) {
    last_refusal_logged_ns_ = record.mono_ns;
    logf(LogLevel::kError,
         "outside door: dropped a message of another process: %s (%zu bytes; %" PRIu64
         " dropped so far)",
         verdict_text(verdict), length,
         counters_.door_wrong_size.load() + counters_.door_wrong_event.load());
  }
}

void EventQueue::read_ahead() {
  for (const auto& port : ports_.all()) {
    if ((frames_ready_ & uint64_t{1} << port->id) != 0 && heads_[port->id] == nullptr) {
      heads_[port->id] = read_admitted(*port);
    }
  }
}

// The port's next frame, or null. A flood is emptied out a stretch at a time, so that links,
// timers and commands have their turn in between.
Packet* EventQueue::read_admitted(RingPort& port) {
  constexpr int kMostAtOnce = 64;
  Packet* packet = packets_.take();
  for (int i = 0; i < kMostAtOnce; ++i) {
    Packet& received = packet != nullptr ? *packet : *spare_;
    if (port.frames.receive(received) != 0) {
      // EAGAIN: no more frames. Anything else is the interface going down, told once.
      frames_ready_ &= ~(uint64_t{1} << port.id);
      break;
    }
    if (!flood_guard_.admits(port.id, received.frame(), received.length, mono_now_ns())) {
      refuse_frame(port, received);
    } else if (packet == nullptr) {  // whoever receives keeps its packets: what comes in is lost
      count(port.frames_dropped);
    } else {
      packet->port = &port;
      packet->port_id = static_cast<uint16_t>(port.id);
      return packet;
    }
  }
  if (packet != nullptr) {
    packets_.give_back(packet);
  }
  return nullptr;
}

void EventQueue::refuse_frame(RingPort& port, Packet& packet) {
  count(port.frames_refused);
  thin_out_flood(port, packet);
  FloodNews& news = flood_news_[port.id];
  ++news.refused;
  news.thinned = news.thinned || (thinned_ >> port.id & 1) != 0;
  constexpr int64_t kQuietNs = 1'000'000'000;
  HistoryRecord record = History::make(HistoryKind::kFlood, static_cast<uint8_t>(port.id), Cause{});
  if (record.mono_ns - news.told_ns < kQuietNs) {
    return;
  }
  constexpr size_t kSourceOffset = 6;
  if (packet.length >= kSourceOffset + record.source.size()) {
    std::copy_n(packet.frame() + kSourceOffset, record.source.size(), record.source.begin());
  }
  const char* how_exact = news.thinned ? "at least " : "";
  std::snprintf(record.text, sizeof record.text, "%s%" PRIu64 " refused", how_exact, news.refused);
  history_.add(record);
  const auto& source = record.source;
  logf(LogLevel::kError,
       "port %u (%s): flood of R-APS frames: %s%" PRIu64
       " refused, the last one from %02x:%02x:%02x:%02x:%02x:%02x",
       port.id, port.interface.c_str(), how_exact, news.refused, source[0], source[1], source[2],
       source[3], source[4], source[5]);
  news = {.told_ns = record.mono_ns, .refused = 0, .thinned = false};
}

// To refuse 100,000 frames a second takes a fifth of a processor, which a link change then waits
// for. For a second at a time the kernel drops most of what shows itself to be a flood.
void EventQueue::thin_out_flood(RingPort& port, Packet& packet) {
  const int64_t now_ns = mono_now_ns();
  auto flood = flood_watches_[port.id].refused(packet.frame(), packet.length, now_ns);
  if (!flood) {
    return;
  }
  if (!flood->content) {
    flood->spared = flood_guard_.trusted_nodes(port.id, flood->source, now_ns);
  }
  if (port.frames.thin_out(&*flood) != 0) {
    return;
  }
  if (thinned_ == 0) {
    const itimerspec once{.it_interval = {}, .it_value = {.tv_sec = 1, .tv_nsec = 0}};
    timerfd_settime(thinning_timer_.get(), 0, &once, nullptr);
  }
  thinned_ |= uint64_t{1} << port.id;
}

void EventQueue::hear_all_again() {
  uint64_t expirations = 0;
  [[maybe_unused]] const ssize_t ignored =
      read(thinning_timer_.get(), &expirations, sizeof expirations);
  for (const auto& port : ports_.all()) {
    if ((thinned_ >> port->id & 1) != 0) {
      port->frames.thin_out(nullptr);
    }
  }
  thinned_ = 0;
}

bool EventQueue::take_frame(ERPS_EVENT_MSG_T& event) {
  read_ahead();
  Packet* oldest = nullptr;
  for (Packet* head : heads_) {
    if (head != nullptr && (oldest == nullptr || head->arrival_wall_ns < oldest->arrival_wall_ns)) {
      oldest = head;
    }
  }
  if (oldest == nullptr) {
    return false;
  }
  heads_[oldest->port_id] = nullptr;
  event = make_event(kPacket, oldest);
  count(oldest->port->frames_received);
  count(counters_.frame_events);

  HistoryRecord record = History::make(HistoryKind::kRapsReceived, oldest->port_id, Cause{});
  const int64_t waited_ns = std::max<int64_t>(record.wall_ns - oldest->arrival_wall_ns, 0);
  record.took_ns = waited_ns;
  record.mono_ns -= waited_ns;
  record.wall_ns -= waited_ns;
  if (!History::describe_raps(oldest->frame(), oldest->length, record)) {
    record.kind = HistoryKind::kMalformed;
  }
  history_.add(record);
  current_cause() = Cause{.kind = CauseKind::kRaps,
                          .port = static_cast<uint8_t>(oldest->port_id),
                          .value = record.request,
                          .node_id = record.node_id};
  return true;
}

}  // namespace erps::linux_platform
