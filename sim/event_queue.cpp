#include "sim/event_queue.h"

#include <cstddef>

#include "sim/race_detector.h"

namespace erps::sim {

namespace {
constexpr uintptr_t kEventClass = 3;
constexpr uintptr_t kLinkChange = 1;
constexpr uintptr_t kPacket = 2;
// What the sockets of a node hold before they drop.
constexpr size_t kMostArrivals = 1024;
}  // namespace

void EventQueue::close() {
  opened_ = false;
  receiver_ = nullptr;
  links_.clear();
  events_.clear();
  arrivals_.clear();
  given_link_.reset();
  given_packet_.reset();
}

void EventQueue::wake_receiver() {
  races::release(this);
  if (receiver_ != nullptr) {
    receiver_->wake_after(pace_.wakeup_us());
    receiver_ = nullptr;
  }
}

void EventQueue::post_link_change(uint32_t port, bool up) {
  if (!opened_) {
    return;
  }
  auto record = std::make_unique<LinkRecord>();
  record->interface = static_cast<uint16_t>(port);
  record->state = up ? 1 : 0;
  links_.push_back(std::move(record));
  wake_receiver();
}

void EventQueue::post_frame(uint32_t port, Frame frame) {
  if (!opened_ || arrivals_.size() >= kMostArrivals) {
    return;
  }
  auto buffer = std::make_unique<PacketBuffer>();
  static_assert(offsetof(PacketHead, handle) == 8 && offsetof(PacketHead, length) == 14);
  buffer->head.handle = next_handle_++;
  buffer->head.length = static_cast<uint16_t>(frame.bytes.size());
  buffer->packet = {buffer->head.handle, port, std::move(frame)};
  arrivals_.push_back({std::move(buffer), {}});
  wake_receiver();
}

void EventQueue::post_announcement(const ERPS_EVENT_MSG_T& event) {
  if (opened_) {
    arrivals_.push_back({nullptr, event});
    wake_receiver();
  }
}

bool EventQueue::post(const ERPS_EVENT_MSG_T& event) {
  if (!opened_) {
    return false;
  }
  events_.push_back(event);
  wake_receiver();
  return true;
}

bool EventQueue::take(ERPS_EVENT_MSG_T& event) {
  if (!links_.empty()) {
    given_link_ = std::move(links_.front());
    links_.pop_front();
    event = {kEventClass, 0, kLinkChange, {}, reinterpret_cast<uintptr_t>(given_link_.get())};
    return true;
  }
  if (!events_.empty()) {
    event = events_.front();
    events_.pop_front();
    return true;
  }
  if (arrivals_.empty()) {
    return false;
  }
  Arrival arrival = std::move(arrivals_.front());
  arrivals_.pop_front();
  if (arrival.packet == nullptr) {
    event = arrival.announcement;
  } else {
    given_packet_ = std::move(arrival.packet);
    event = {kEventClass, 0, kPacket, {}, reinterpret_cast<uintptr_t>(&given_packet_->head)};
  }
  return true;
}

bool EventQueue::receive(ERPS_EVENT_MSG_T& event, Task& receiver) {
  if (given_packet_ != nullptr) {
    world_.report("a packet buffer was not given back before the next event");
  }
  given_link_.reset();
  for (;;) {
    receiver.cancellation_point();
    if (!opened_) {
      return false;
    }
    if (take(event)) {
      races::acquire(this);
      return true;
    }
    receiver_ = &receiver;
    receiver.wait();
    receiver_ = nullptr;
  }
}

const EventQueue::Packet* EventQueue::find_packet(uint32_t handle) const {
  return given_packet_ != nullptr && given_packet_->head.handle == handle ? &given_packet_->packet
                                                                          : nullptr;
}

void EventQueue::release_packet(const void* packet) {
  if (given_packet_ == nullptr || packet != &given_packet_->head) {
    world_.report("a packet buffer was given back twice, or never given out");
    return;
  }
  given_packet_.reset();
}

}  // namespace erps::sim
