#include "linux/packet_pool.h"

#include <functional>

namespace erps::linux_platform {
namespace {

constexpr uint32_t kIndexBits = 8;
constexpr uint32_t kIndexMask = (1u << kIndexBits) - 1;
static_assert(PacketPool::kPackets <= kIndexMask + 1);

}  // namespace

PacketPool::PacketPool() : packets_(std::make_unique<Packet[]>(kPackets)) {
  free_.reserve(kPackets);
  for (uint32_t i = 0; i < kPackets; ++i) {
    packets_[i].handle = 1u << kIndexBits | i;
    free_.push_back(i);
  }
}

Packet* PacketPool::take() {
  if (free_.empty()) {
    return nullptr;
  }
  Packet& packet = packets_[free_.back()];
  free_.pop_back();
  packet.out = true;
  return &packet;
}

bool PacketPool::give_back(void* packet) {
  const auto address = reinterpret_cast<uintptr_t>(packet);
  const auto first = reinterpret_cast<uintptr_t>(packets_.get());
  if (address < first || address >= first + kPackets * sizeof(Packet) ||
      (address - first) % sizeof(Packet) != 0) {
    return false;
  }
  const auto index = static_cast<uint32_t>((address - first) / sizeof(Packet));
  Packet& ours = packets_[index];
  if (!ours.out) {
    return false;
  }
  ours.out = false;
  ours.handle += 1u << kIndexBits;  // the old handle finds nothing any more
  free_.push_back(index);
  return true;
}

Packet* PacketPool::find(uint32_t handle) {
  const uint32_t index = handle & kIndexMask;
  if (index >= kPackets || !packets_[index].out || packets_[index].handle != handle) {
    return nullptr;
  }
  return &packets_[index];
}

void PacketPool::reset() {
  for (uint32_t i = 0; i < kPackets; ++i) {
    if (packets_[i].out) {
      give_back(&packets_[i]);
    }
  }
}

}  // namespace erps::linux_platform
