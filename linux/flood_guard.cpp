#include "linux/flood_guard.h"

#include <algorithm>

namespace erps::linux_platform {
namespace {

constexpr size_t kAddressesLength = 12;
// Tag, PDU and their end; what may be behind them says nothing.
constexpr size_t kTellingLength = 60;

uint64_t number_of(const MacAddress& address) {
  uint64_t number = 0;
  for (const uint8_t byte : address) {
    number = number << 8U | byte;
  }
  return number;
}

// FNV-1a
uint64_t content_of(const uint8_t* frame, size_t length) {
  uint64_t hash = 0xCBF29CE484222325U;
  for (size_t i = kAddressesLength; i < std::min(length, kTellingLength); ++i) {
    hash = (hash ^ frame[i]) * 0x100000001B3U;
  }
  return hash;
}

}  // namespace

bool FloodGuard::admits(uint32_t port, const uint8_t* frame, size_t length, int64_t now_ns) {
  const RapsSender sender = sender_of(frame, length);
  const Look look{.address = sender.source,
                  .node = sender.node(),
                  .content = content_of(frame, length),
                  .now_ns = now_ns};
  Port& at = ports_[port];
  const auto found = at.sources.find(number_of(look.address));
  return found == at.sources.end() ? admits_new(at, look) : admits_known(at, found->second, look);
}

bool FloodGuard::admits_new(Port& port, const Look& frame) {
  Source source{.own = TokenBucket(kOfSource, frame.now_ns),
                .node = frame.node,
                .kept_to_it_since_ns = frame.now_ns,
                .heard_ns = frame.now_ns};
  if (const Source* elsewhere = find_proven(frame); elsewhere != nullptr) {
    source.node = elsewhere->node;
    source.kept_to_it_since_ns = elsewhere->kept_to_it_since_ns;
    source.first_frames = 0;
  } else if (!port.strangers.take(frame.now_ns) || !make_room(port.sources, frame.now_ns)) {
    return false;
  }
  const auto added = port.sources.emplace(number_of(frame.address), source).first;
  return admits_known(port, added->second, frame);
}

bool FloodGuard::admits_known(Port& port, Source& source, const Look& frame) {
  source.heard_ns = frame.now_ns;
  if (is_own(source, frame)) {
    if (!source.own.take(frame.now_ns)) {
      source.kept_to_it_since_ns = frame.now_ns;
    } else if (is_proven(source, frame.now_ns)) {
      return true;
    } else if (source.first_frames > 0) {
      --source.first_frames;
      return true;
    }
  }
  if (port.all.take(frame.now_ns)) {
    return true;
  }
  if (frame.content == source.flood) {
    return false;
  }
  if (port.besides_floods.take(frame.now_ns)) {
    return true;
  }
  source.flood = frame.content;
  return false;
}

bool FloodGuard::is_own(const Source& source, const Look& frame) {
  return frame.node == source.node || frame.node == frame.address;
}

std::vector<MacAddress> FloodGuard::trusted_nodes(uint32_t port, const MacAddress& source,
                                                  int64_t now_ns) const {
  const auto at = ports_.find(port);
  if (at == ports_.end()) {
    return {};
  }
  const auto found = at->second.sources.find(number_of(source));
  if (found == at->second.sources.end() || !is_proven(found->second, now_ns)) {
    return {};
  }
  std::vector<MacAddress> nodes{source};
  if (const auto& node = found->second.node; node && *node != source) {
    nodes.push_back(*node);
  }
  return nodes;
}

const FloodGuard::Source* FloodGuard::find_proven(const Look& frame) const {
  for (const auto& [port, at] : ports_) {
    const auto found = at.sources.find(number_of(frame.address));
    if (found != at.sources.end() && is_proven(found->second, frame.now_ns)) {
      return &found->second;
    }
  }
  return nullptr;
}

bool FloodGuard::is_proven(const Source& source, int64_t now_ns) {
  return now_ns - source.kept_to_it_since_ns >= kProvenNs;
}

bool FloodGuard::make_room(Sources& sources, int64_t now_ns) {
  if (sources.size() < kSources) {
    return true;
  }
  const auto silent = std::min_element(
      sources.begin(), sources.end(),
      [](const auto& a, const auto& b) { return a.second.heard_ns < b.second.heard_ns; });
  if (now_ns - silent->second.heard_ns < kForgettableNs) {
    return false;
  }
  sources.erase(silent);
  return true;
}

}  // namespace erps::linux_platform
