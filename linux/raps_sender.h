// What a received frame says of who sent it, whatever is true of it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "linux/platform.h"

namespace erps::linux_platform {

struct RapsSender {
  static constexpr size_t kNodeId = 2;  // in the content

  // The node ID, where the frame reaches that far.
  std::optional<MacAddress> node() const;

  MacAddress source{};  // what the frame is too short for is 0
  // Request, status and node ID, where the frame reaches that far.
  std::optional<std::array<uint8_t, 8>> content;
};

// `frame` from its destination address on.
RapsSender sender_of(const uint8_t* frame, size_t length);

}  // namespace erps::linux_platform
