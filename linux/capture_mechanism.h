// How the kernel is told to keep R-APS frames from the bridge while the packet sockets still see
// them.
//
// Threading: one thread at a time. Not on the hot path: rules change when a ring is enabled or an
// interface comes back.
// Errors: texts, "" when all went well. Nothing is logged here.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "linux/raps_filter.h"

namespace erps::linux_platform {

// Frames of this kind that come in at this interface go to the node alone.
struct CaptureEntry {
  std::string interface;
  uint32_t ifindex = 0;
  FrameMatch match;
};

class CaptureMechanism {
 public:
  virtual ~CaptureMechanism() = default;

  virtual std::string name() const = 0;
  // Tries the mechanism on these interfaces and leaves nothing behind. Also clears away what a
  // daemon that was killed left.
  virtual std::string probe(const std::vector<CaptureEntry>& entries) = 0;
  // Puts these entries in the place of all that were installed before.
  virtual std::string install(const std::vector<CaptureEntry>& entries) = 0;
  virtual void remove() = 0;
  // The mechanism that this one is built on, when this one is not wanted after all.
  virtual std::unique_ptr<CaptureMechanism> give_back_software() { return nullptr; }
};

// Drops in an nftables table of our own at the ingress of the interface.
std::unique_ptr<CaptureMechanism> make_nftables_capture(const std::string& bridge);
// Drops in a classifier at the ingress of the interface.
std::unique_ptr<CaptureMechanism> make_clsact_capture();
// Lets switch hardware hand R-APS to the processor, on top of a mechanism of the software bridge.
std::unique_ptr<CaptureMechanism> make_trap_capture(std::unique_ptr<CaptureMechanism> software);

}  // namespace erps::linux_platform
