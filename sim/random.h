// Random numbers that are the same on every machine and with every compiler.
//
// One seed stands for a whole simulation; each concern draws from a stream of its own, so that an
// additional draw in one of them does not shift the others.
#pragma once

#include <cstdint>

namespace erps::sim {

// Inclusive bounds; low is at most high.
struct Range {
  int64_t low = 0;
  int64_t high = 0;
};

class Random {
 public:
  Random(uint64_t seed, uint64_t stream) : state_(seed ^ (stream * 0xD1B54A32D192ED03U)) { next(); }

  // splitmix64
  uint64_t next() {
    state_ += 0x9E3779B97F4A7C15U;
    uint64_t z = state_;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }

  int64_t in(Range range) {
    const uint64_t width = static_cast<uint64_t>(range.high) - static_cast<uint64_t>(range.low) + 1;
    const uint64_t drawn = width == 0 ? next() : next() % width;  // 0: all 64 bits
    return static_cast<int64_t>(static_cast<uint64_t>(range.low) + drawn);
  }

  bool per_million(uint32_t chance) { return chance != 0 && next() % 1'000'000 < chance; }

 private:
  uint64_t state_;
};

}  // namespace erps::sim
