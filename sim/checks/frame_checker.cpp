#include "sim/checks/frame_checker.h"

#include <algorithm>

#include "sim/checks/raps_dissector.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

std::string hexadecimal(std::span<const uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4U];
    text += kDigits[byte & 0xFU];
  }
  return text;
}

}  // namespace

FrameChecker::FrameChecker(const Topology& topology)
    : has_sub_rings_(std::any_of(topology.nodes.begin(), topology.nodes.end(),
                                 [](const NodePlan& node) { return !node.sub_rings.empty(); })),
      marked_(2 * topology.nodes.size()) {}

void FrameChecker::on_transmission(int64_t time_us, NodeIndex node, uint32_t port,
                                   std::span<const uint8_t> bytes) {
  const FrameFault fault = dissect(bytes);
  if (fault == FrameFault::kNone) {
    return;
  }
  const bool is_marked = fault == FrameFault::kMarkedSubCode || fault == FrameFault::kMarkedEvent;
  if (is_marked && has_sub_rings_) {
    Marked& marked = marked_[2 * node + (fault == FrameFault::kMarkedEvent ? 1 : 0)];
    marked.first_us = marked.frames++ == 0 ? time_us : marked.first_us;
    marked.last_us = time_us;
    return;
  }
  findings_.add({"frame",
                 time_us,
                 time_us,
                 node,
                 "frame out of port " + std::to_string(port) + ": " + text_of(fault) + ": " +
                     hexadecimal(bytes),
                 {}});
}

void FrameChecker::collect(int64_t /*now_us*/, std::vector<Finding>& findings) {
  findings_.append_to(findings);
  for (size_t i = 0; i < marked_.size(); ++i) {
    const Marked& marked = marked_[i];
    const bool events = i % 2 == 1;
    if (marked.frames != 0) {
      findings.push_back(
          {"frame", marked.first_us, marked.last_us, i / 2,
           std::to_string(marked.frames) + (events ? " Events" : " frames") + " with sub-code 1010",
           events ? surprise::kMarkedEvent : surprise::kInterconnectionMark});
    }
  }
}

}  // namespace erps::sim
