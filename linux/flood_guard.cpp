#include "linux/flood_guard.h"

#include <algorithm>

namespace erps::linux_platform {
namespace {

constexpr size_t kSourceOffset = 6;
constexpr size_t kAddressesLength = 12;
// Tag, PDU and their end; what may be behind them says nothing.
constexpr size_t kTellingLength = 60;

uint64_t source_of(const uint8_t* frame, size_t length) {
  uint64_t address = 0;
  for (size_t i = kSourceOffset; i < std::min(length, kAddressesLength); ++i) {
    address = address << 8U | frame[i];
  }
  return address;
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

bool FloodGuard::Bucket::take(int64_t now_ns) {
  const int64_t full = budget_.burst * kUnit;
  // Beyond this it is full whatever it held, and the product stays in range.
  const int64_t most_ns = full / budget_.per_second;
  const int64_t passed_ns = std::clamp<int64_t>(now_ns - filled_ns_, 0, most_ns);
  level_ = std::min(full, level_ + passed_ns * budget_.per_second);
  filled_ns_ = now_ns;
  if (level_ < kUnit) {
    return false;
  }
  level_ -= kUnit;
  return true;
}

FloodGuard::FloodGuard() : strangers_(kOfStrangers, 0) {
  sources_.reserve(kSources);
}

bool FloodGuard::admits(const uint8_t* frame, size_t length, int64_t now_ns) {
  const uint64_t address = source_of(frame, length);
  const auto found = sources_.find(address);
  if (found == sources_.end()) {
    return admits_stranger(address, now_ns);
  }
  Source& source = found->second;
  source.heard_ns = now_ns;
  if (source.frames.take(now_ns)) {
    return true;
  }
  const uint64_t content = content_of(frame, length);
  if (content == source.flood) {
    return false;
  }
  if (source.besides_flood.take(now_ns)) {
    return true;
  }
  source.flood = content;
  return false;
}

bool FloodGuard::admits_stranger(uint64_t address, int64_t now_ns) {
  if (!strangers_.take(now_ns) || !make_room(now_ns)) {
    return false;
  }
  sources_.emplace(address, Source{.frames = Bucket(kOfSource, now_ns),
                                   .besides_flood = Bucket(kBesidesFlood, now_ns),
                                   .heard_ns = now_ns});
  return true;
}

bool FloodGuard::make_room(int64_t now_ns) {
  if (sources_.size() < kSources) {
    return true;
  }
  const auto silent = std::min_element(
      sources_.begin(), sources_.end(),
      [](const auto& a, const auto& b) { return a.second.heard_ns < b.second.heard_ns; });
  if (now_ns - silent->second.heard_ns < kForgettableNs) {
    return false;
  }
  sources_.erase(silent);
  return true;
}

}  // namespace erps::linux_platform
