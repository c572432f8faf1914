// R-APS frames of one ring port: an AF_PACKET socket with a kernel filter.
//
// A socket for the CFM EtherType alone hears nothing on a bridge port, because the bridge takes the
// frame before it looks for such sockets; one for all protocols with a filter hears every R-APS in
// every port state.
//
// Threading: send(), listen() and thin_out() from any thread; the rest from the thread that
// receives.
// Errors: open() throws PlatformError; the others return an errno. Nothing is logged here.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

#include "linux/packet_pool.h"
#include "linux/raps_filter.h"
#include "linux/unique_fd.h"

namespace erps::linux_platform {

class FrameSocket {
 public:
  // Creates the socket; it hears nothing and cannot send before bind().
  void open();
  int bind(uint32_t ifindex);

  // Hears the frames that match, or nothing at all (null).
  int listen(const FrameMatch* match);

  // Of what is heard, only some of the flood's frames; all of them again (null).
  int thin_out(const FloodMatch* flood);

  // Sends the frame as it stands at traffic-control priority. Never waits.
  int send(const uint8_t* frame, size_t length) const;

  // Takes the oldest frame into `packet`, its tag in place. Returns 0, EAGAIN when there is none,
  // or another errno.
  int receive(Packet& packet) const;

  // Frames that the kernel dropped for a full buffer since the last call.
  uint32_t take_drops() const;

  int fd() const { return fd_.get(); }

 private:
  UniqueFd fd_;
  std::mutex mutex_;
  std::optional<FrameMatch> heard_;
};

}  // namespace erps::linux_platform
