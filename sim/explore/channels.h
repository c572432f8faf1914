// What is on its way on one strand, as numbers: frames in their order, and news of the carrier for
// the port at its end, in theirs. The contents that strands have had are kept once each.
//
// Everything on its way remembers which nodes' clocks have taken a step since it set out.
//
// Threading: one thread. Errors: std::length_error when there are more different contents or frames
// than numbers; never in a ring that settles.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "sim/explore/flat_map.h"

namespace erps::sim::explore {

inline constexpr size_t kMostNodes = 4;

using FrameId = uint16_t;
using ChannelId = uint16_t;
inline constexpr ChannelId kEmptyChannel = 0;

class Channels {
 public:
  Channels();

  FrameId keep_frame(const std::vector<uint8_t>& bytes);
  const std::vector<uint8_t>& frame(FrameId id) const { return frames_[id]; }
  size_t frame_kinds() const { return frames_.size(); }
  size_t size() const { return contents_.size(); }

  bool has_frame(ChannelId id) const { return !contents_[id].frames.empty(); }
  size_t frames(ChannelId id) const { return contents_[id].frames.size(); }
  FrameId first_frame(ChannelId id) const { return contents_[id].frames.front().what; }
  uint32_t first_frame_passed(ChannelId id) const { return contents_[id].frames.front().passed; }
  bool has_news(ChannelId id) const { return !contents_[id].news.empty(); }
  bool first_news(ChannelId id) const { return contents_[id].news.front().what != 0; }
  // The nodes whose clocks have taken a step past something that is here, bit by bit.
  uint32_t passed(ChannelId id) const { return contents_[id].passed; }

  // already_passed: by the clocks of these nodes, on the strands that the message came here by.
  ChannelId with_frame(ChannelId id, FrameId frame, uint32_t already_passed);
  ChannelId with_news(ChannelId id, bool up);
  ChannelId without_first_frame(ChannelId id);
  ChannelId without_first_news(ChannelId id);
  // The first `count` frames alone, and the news.
  ChannelId with_first_frames_only(ChannelId id, size_t count);
  // A node's clock takes a step.
  ChannelId with_step(ChannelId id, size_t node);

 private:
  struct Item {
    uint16_t what = 0;
    uint8_t passed = 0;
  };
  struct Content {
    std::vector<Item> frames;
    std::vector<Item> news;
    uint32_t passed = 0;
    // What has been made of it, or kUnknown.
    std::array<uint32_t, kMostNodes> stepped{};
    uint32_t without_frame = 0;
  };
  static constexpr uint32_t kUnknown = ~uint32_t{0};

  ChannelId keep(Content content);

  std::vector<Content> contents_;
  std::unordered_map<std::string, ChannelId> ids_;
  FlatMap appended_;  // channel, frame and the clocks that passed it
  std::vector<std::vector<uint8_t>> frames_;
  std::unordered_map<std::string, FrameId> frame_ids_;
};

}  // namespace erps::sim::explore
