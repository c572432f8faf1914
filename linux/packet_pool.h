// The packet buffers that received frames wait in.
//
// Threading: the protocol task only, from the receive to the release. A fixed number of buffers,
// allocated once.
// Errors: an empty pool gives no buffer; a handle or pointer that is not out is refused.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace erps::linux_platform {

struct RingPort;

// The module reads the handle at byte 8 and the length at byte 14; the rest is the platform's.
struct Packet {
  static constexpr size_t kTagLength = 4;
  static constexpr size_t kFrameCapacity = 2048;

  uint64_t reserved = 0;
  uint32_t handle = 0;
  uint16_t port_id = 0;
  uint16_t length = 0;  // of the frame, at most kFrameCapacity; longer ones are cut off
  uint16_t vlan = 0;    // VLAN ID, 0 untagged
  uint16_t start = 0;   // where in `bytes` the frame starts
  bool out = false;
  RingPort* port = nullptr;
  int64_t arrival_wall_ns = 0;
  // A frame is received behind room for a tag, so that putting the tag back moves 12 bytes only.
  std::array<uint8_t, kTagLength + kFrameCapacity> bytes;

  uint8_t* frame() { return bytes.data() + start; }
};
static_assert(offsetof(Packet, handle) == 8 && offsetof(Packet, length) == 14);

class PacketPool {
 public:
  static constexpr size_t kPackets = 192;

  PacketPool();

  Packet* take();
  // False when the pointer is none of ours or was given back already.
  bool give_back(void* packet);
  // The packet that is out under this handle, or null.
  Packet* find(uint32_t handle);
  // Takes everything back: the task that held packets is gone.
  void reset();

 private:
  std::unique_ptr<Packet[]> packets_;
  std::vector<uint32_t> free_;
};

}  // namespace erps::linux_platform
