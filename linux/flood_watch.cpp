#include "linux/flood_watch.h"

#include <algorithm>

#include "erps/raps/frame.h"

namespace erps::linux_platform {
namespace {

FloodMatch sender_of(const uint8_t* frame, size_t length) {
  FloodMatch sender;
  if (length < raps::kUntaggedPdu) {
    return sender;
  }
  std::copy_n(frame + raps::kSourceOffset, sender.source.size(), sender.source.begin());
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

}  // namespace

std::optional<FloodMatch> FloodWatch::refused(const uint8_t* frame, size_t length, int64_t now_ns) {
  const FloodMatch sender = sender_of(frame, length);
  if (count_ == 0 || now_ns - since_ns_ > kWindowNs) {
    suspect(sender, now_ns);
  }
  if (sender.source != suspected_.source) {
    return {};
  }
  if (sender.content != suspected_.content) {
    suspected_.content.reset();
  }
  if (++count_ < kMany) {
    return {};
  }
  count_ = 0;
  return suspected_;
}

void FloodWatch::suspect(const FloodMatch& sender, int64_t now_ns) {
  suspected_ = sender;
  count_ = 0;
  since_ns_ = now_ns;
}

}  // namespace erps::linux_platform
