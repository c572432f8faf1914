#include "linux/flood_watch.h"

#include "linux/raps_sender.h"

namespace erps::linux_platform {

std::optional<FloodMatch> FloodWatch::refused(const uint8_t* frame, size_t length, int64_t now_ns) {
  const RapsSender from = sender_of(frame, length);
  const FloodMatch sender{.source = from.source, .content = from.content, .spared = {}};
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
