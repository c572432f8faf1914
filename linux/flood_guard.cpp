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

bool FloodGuard::admits(uint32_t port, const uint8_t* frame, size_t length, int64_t now_ns) {
  Port& at = ports_[port];
  const uint64_t address = source_of(frame, length);
  const auto found = at.sources.find(address);
  return found == at.sources.end() ? admits_new(at, address, now_ns)
                                   : admits_known(at, found->second, frame, length, now_ns);
}

bool FloodGuard::admits_new(Port& port, uint64_t address, int64_t now_ns) {
  Source source{
      .own = TokenBucket(kOfSource, now_ns), .kept_to_it_since_ns = now_ns, .heard_ns = now_ns};
  const bool proven = std::any_of(ports_.begin(), ports_.end(), [&](const auto& other) {
    const auto found = other.second.sources.find(address);
    return found != other.second.sources.end() && is_proven(found->second, now_ns);
  });
  if (proven) {
    source.kept_to_it_since_ns = now_ns - kProvenNs;
  } else if (!port.strangers.take(now_ns) || !make_room(port.sources, now_ns)) {
    return false;
  }
  source.own.take(now_ns);
  port.sources.emplace(address, source);
  return true;
}

bool FloodGuard::admits_known(Port& port, Source& source, const uint8_t* frame, size_t length,
                              int64_t now_ns) {
  source.heard_ns = now_ns;
  if (!source.own.take(now_ns)) {
    source.kept_to_it_since_ns = now_ns;
  } else if (is_proven(source, now_ns)) {
    return true;
  }
  if (port.all.take(now_ns)) {
    return true;
  }
  const uint64_t content = content_of(frame, length);
  if (content == source.flood) {
    return false;
  }
  if (port.besides_floods.take(now_ns)) {
    return true;
  }
  source.flood = content;
  return false;
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
