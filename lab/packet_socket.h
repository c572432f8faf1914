// An AF_PACKET socket on one interface of the network namespace that it is opened in.
//
// Threading: one thread at a time. Errors: LabError at opening. Logs nothing.
#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "lab/unique_fd.h"

namespace erps::lab {

struct PacketSocketOptions {
  uint32_t interface = 0;
  uint16_t protocol = 0;  // EtherType, machine order; ETH_P_ALL for all, 0 to receive nothing
  bool see_outgoing = false;
  std::vector<sock_filter> filter;  // empty: no filter
  int receive_buffer_bytes = 0;     // 0: as it is
};

// One frame as the kernel hands it over.
struct ReceivedFrame {
  const uint8_t* bytes;  // valid during the call only
  size_t length;
  int64_t real_ns;  // CLOCK_REALTIME of its arrival, stamped by the kernel
  bool outgoing;    // sent by this machine out of the interface
  bool has_tag;     // the kernel took an IEEE 802.1Q tag off
  uint16_t tag;     // its control information
};

class PacketSocket {
 public:
  explicit PacketSocket(const PacketSocketOptions& options);

  int fd() const { return fd_.get(); }
  // Hands over everything that waits and returns how many frames that were. Never blocks.
  size_t drain(const std::function<void(const ReceivedFrame&)>& take);
  // False when the frame could not be sent.
  bool send(const uint8_t* bytes, size_t length);
  // Frames that the kernel dropped since the last call, because this socket was not drained in
  // time.
  uint64_t take_drops();

 private:
  UniqueFd fd_;
};

}  // namespace erps::lab
