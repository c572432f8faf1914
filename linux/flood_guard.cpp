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

FloodGuard::FloodGuard()
    : all_(kOfAll, 0), besides_floods_(kBesidesFloods, 0), strangers_(kOfStrangers, 0) {
  sources_.reserve(kSources);
}

bool FloodGuard::admits(const uint8_t* frame, size_t length, int64_t now_ns) {
  const uint64_t address = source_of(frame, length);
  auto found = sources_.find(address);
  if (found == sources_.end()) {
    if (!strangers_.take(now_ns) || !make_room(now_ns)) {
      return false;
    }
    found = sources_
                .emplace(address, Source{.own = TokenBucket(kOfSource, now_ns),
                                         .kept_to_it_since_ns = now_ns})
                .first;
  }
  found->second.heard_ns = now_ns;
  return admits_source(found->second, frame, length, now_ns);
}

bool FloodGuard::admits_source(Source& source, const uint8_t* frame, size_t length,
                               int64_t now_ns) {
  if (!source.own.take(now_ns)) {
    source.kept_to_it_since_ns = now_ns;
  } else if (now_ns - source.kept_to_it_since_ns >= kProvenNs) {
    return true;
  }
  if (all_.take(now_ns)) {
    return true;
  }
  const uint64_t content = content_of(frame, length);
  if (content == source.flood) {
    return false;
  }
  if (besides_floods_.take(now_ns)) {
    return true;
  }
  source.flood = content;
  return false;
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
