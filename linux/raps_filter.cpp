#include "linux/raps_filter.h"

namespace erps::linux_platform {
namespace {

constexpr uint16_t kLoadWord = BPF_LD | BPF_W | BPF_ABS;
constexpr uint16_t kLoadHalf = BPF_LD | BPF_H | BPF_ABS;
constexpr uint16_t kLoadByteBehind = BPF_LD | BPF_B | BPF_IND;  // X bytes further
constexpr uint16_t kSetX = BPF_LDX | BPF_IMM;
constexpr uint16_t kJump = BPF_JMP | BPF_JA;
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
  // With no operation code wanted, the last test is jumped over.
  const sock_filter operation =
      match.opcode ? sock_filter{kJumpEqual, 0, 1, *match.opcode} : sock_filter{kJump, 0, 0, 0};
  const sock_filter read_operation =
      match.opcode ? sock_filter{kLoadByteBehind, 0, 0, 1} : sock_filter{kJump, 0, 0, 0};
  // Jump offsets count from the next instruction; 16 is "matched", 17 is "other". X is where the
  // PDU begins.
  return FilterProgram{{
      /*  0 */ {kLoadWord, 0, 0, 0},
      /*  1 */ {kAnd, 0, 0, word(match.mask)},
      /*  2 */ {kJumpEqual, 0, 14, word(wanted)},
      /*  3 */ {kLoadHalf, 0, 0, 4},
      /*  4 */ {kAnd, 0, 0, half(match.mask)},
      /*  5 */ {kJumpEqual, 0, 11, half(wanted)},
      /*  6 */ {kSetX, 0, 0, 14},
      /*  7 */ {kLoadHalf, 0, 0, 12},
      /*  8 */ {kJumpEqual, 5, 0, type},
      /*  9 */ {kJumpEqual, 1, 0, 0x8100},
      /* 10 */ {kJumpEqual, 0, 6, 0x88A8},
      /* 11 */ {kSetX, 0, 0, 18},
      /* 12 */ {kLoadHalf, 0, 0, 16},
      /* 13 */ {kJumpEqual, 0, 3, type},
      /* 14 */ read_operation,
      /* 15 */ operation,
      /* 16 */ {kReturn, 0, 0, matched},
      /* 17 */ {kReturn, 0, 0, other},
  }};
}

}  // namespace erps::linux_platform
