#include "linux/raps_filter.h"

namespace erps::linux_platform {
namespace {

constexpr uint16_t kLoadWord = BPF_LD | BPF_W | BPF_ABS;
constexpr uint16_t kLoadHalf = BPF_LD | BPF_H | BPF_ABS;
constexpr uint16_t kAnd = BPF_ALU | BPF_AND | BPF_K;
constexpr uint16_t kJumpEqual = BPF_JMP | BPF_JEQ | BPF_K;
constexpr uint16_t kReturn = BPF_RET | BPF_K;

uint32_t word(const MacAddress& mac) {
  return static_cast<uint32_t>(mac[0]) << 24 | static_cast<uint32_t>(mac[1]) << 16 |
         static_cast<uint32_t>(mac[2]) << 8 | mac[3];
}

uint32_t half(const MacAddress& mac) {
  return static_cast<uint32_t>(mac[4]) << 8 | mac[5];
}

MacAddress masked(const FrameMatch& match) {
  MacAddress result{};
  for (size_t i = 0; i < result.size(); ++i) {
    result[i] = match.destination[i] & match.mask[i];
  }
  return result;
}

}  // namespace

FilterProgram make_filter(const FrameMatch& match, uint32_t matched, uint32_t other) {
  const MacAddress wanted = masked(match);
  const uint32_t type = match.ether_type;
  // Jump offsets count from the next instruction; 13 is "matched", 14 is "other".
  return FilterProgram{{
      /*  0 */ {kLoadWord, 0, 0, 0},
      /*  1 */ {kAnd, 0, 0, word(match.mask)},
      /*  2 */ {kJumpEqual, 0, 11, word(wanted)},
      /*  3 */ {kLoadHalf, 0, 0, 4},
      /*  4 */ {kAnd, 0, 0, half(match.mask)},
      /*  5 */ {kJumpEqual, 0, 8, half(wanted)},
      /*  6 */ {kLoadHalf, 0, 0, 12},
      /*  7 */ {kJumpEqual, 5, 0, type},
      /*  8 */ {kJumpEqual, 2, 0, 0x8100},
      /*  9 */ {kJumpEqual, 1, 0, 0x88A8},
      /* 10 */ {kReturn, 0, 0, other},
      /* 11 */ {kLoadHalf, 0, 0, 16},
      /* 12 */ {kJumpEqual, 0, 1, type},
      /* 13 */ {kReturn, 0, 0, matched},
      /* 14 */ {kReturn, 0, 0, other},
  }};
}

}  // namespace erps::linux_platform
