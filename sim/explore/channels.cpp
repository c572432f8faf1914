#include "sim/explore/channels.h"

#include <limits>
#include <stdexcept>

namespace erps::sim::explore {

Channels::Channels() {
  keep({});
}

FrameId Channels::keep_frame(const std::vector<uint8_t>& bytes) {
  const std::string key(bytes.begin(), bytes.end());
  const auto [found, is_new] = frame_ids_.emplace(key, static_cast<FrameId>(frames_.size()));
  if (is_new) {
    if (frames_.size() > std::numeric_limits<FrameId>::max()) {
      throw std::length_error("more than 65,536 different frames");
    }
    frames_.push_back(bytes);
  }
  return found->second;
}

ChannelId Channels::keep(Content content) {
  std::string key;
  content.passed = 0;
  for (const auto* items : {&content.frames, &content.news}) {
    key.push_back(static_cast<char>(items->size()));
    for (const Item& item : *items) {
      key.push_back(static_cast<char>(item.what & 0xFFU));
      key.push_back(static_cast<char>(item.what >> 8U));
      key.push_back(static_cast<char>(item.passed));
      content.passed |= item.passed;
    }
  }
  const auto found = ids_.find(key);
  if (found != ids_.end()) {
    return found->second;
  }
  if (contents_.size() > std::numeric_limits<ChannelId>::max()) {
    throw std::length_error("strands have had more than 65,536 different contents");
  }
  content.stepped.fill(kUnknown);
  content.without_frame = kUnknown;
  const auto id = static_cast<ChannelId>(contents_.size());
  contents_.push_back(std::move(content));
  ids_.emplace(std::move(key), id);
  return id;
}

ChannelId Channels::with_frame(ChannelId id, FrameId frame, uint32_t already_passed) {
  const uint64_t key = uint64_t{already_passed} << 32U | uint64_t{id} << 16U | frame;
  if (const uint32_t* known = appended_.find(key)) {
    return static_cast<ChannelId>(*known);
  }
  Content content = contents_[id];
  content.frames.push_back({frame, static_cast<uint8_t>(already_passed)});
  const ChannelId made = keep(std::move(content));
  appended_.set(key, made);
  return made;
}

ChannelId Channels::with_news(ChannelId id, bool up) {
  Content content = contents_[id];
  content.news.push_back({static_cast<uint16_t>(up ? 1 : 0), 0});
  return keep(std::move(content));
}

ChannelId Channels::without_first_frame(ChannelId id) {
  if (contents_[id].without_frame == kUnknown) {
    Content content = contents_[id];
    content.frames.erase(content.frames.begin());
    const ChannelId made = keep(std::move(content));
    contents_[id].without_frame = made;
  }
  return static_cast<ChannelId>(contents_[id].without_frame);
}

ChannelId Channels::without_first_news(ChannelId id) {
  Content content = contents_[id];
  content.news.erase(content.news.begin());
  return keep(std::move(content));
}

ChannelId Channels::with_first_frames_only(ChannelId id, size_t count) {
  Content content = contents_[id];
  content.frames.resize(count);
  return keep(std::move(content));
}

ChannelId Channels::with_step(ChannelId id, size_t node) {
  if (contents_[id].stepped.at(node) == kUnknown) {
    Content content = contents_[id];
    for (auto* items : {&content.frames, &content.news}) {
      for (Item& item : *items) {
        item.passed = static_cast<uint8_t>(item.passed | 1U << node);
      }
    }
    const ChannelId made = keep(std::move(content));
    contents_[id].stepped.at(node) = made;
  }
  return static_cast<ChannelId>(contents_[id].stepped[node]);
}

}  // namespace erps::sim::explore
