#include "linux/raps_sender.h"

#include <algorithm>

#include "erps/raps/frame.h"

namespace erps::linux_platform {

std::optional<MacAddress> RapsSender::node() const {
  if (!content) {
    return {};
  }
  MacAddress id{};
  std::copy_n(content->begin() + kNodeId, id.size(), id.begin());
  return id;
}

RapsSender sender_of(const uint8_t* frame, size_t length) {
  RapsSender sender;
  for (size_t i = 0; i < sender.source.size() && raps::kSourceOffset + i < length; ++i) {
    sender.source[i] = frame[raps::kSourceOffset + i];
  }
  if (length < raps::kUntaggedPdu) {
    return sender;
  }
  const bool untagged =
      (frame[raps::kUntaggedPdu - 2] << 8 | frame[raps::kUntaggedPdu - 1]) == raps::kEtherTypeCfm;
  const size_t content = (untagged ? raps::kUntaggedPdu : raps::kTaggedPdu) + raps::kRequestOffset;
  std::array<uint8_t, 8> bytes{};
  if (length >= content + bytes.size()) {
    std::copy_n(frame + content, bytes.size(), bytes.begin());
    sender.content = bytes;
  }
  return sender;
}

}  // namespace erps::linux_platform
