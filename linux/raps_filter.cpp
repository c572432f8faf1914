#include "linux/raps_filter.h"

namespace erps::linux_platform {
namespace {

constexpr uint16_t kLoadWord = BPF_LD | BPF_W | BPF_ABS;
constexpr uint16_t kLoadHalf = BPF_LD | BPF_H | BPF_ABS;
constexpr uint16_t kLoadByteBehind = BPF_LD | BPF_B | BPF_IND;  // X bytes further
constexpr uint16_t kLoadHalfBehind = BPF_LD | BPF_H | BPF_IND;
constexpr uint16_t kLoadWordBehind = BPF_LD | BPF_W | BPF_IND;
constexpr uint16_t kSetX = BPF_LDX | BPF_IMM;
constexpr uint16_t kJump = BPF_JMP | BPF_JA;
constexpr uint16_t kAnd = BPF_ALU | BPF_AND | BPF_K;
constexpr uint16_t kJumpEqual = BPF_JMP | BPF_JEQ | BPF_K;
constexpr uint16_t kReturn = BPF_RET | BPF_K;

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

uint32_t word(const uint8_t* bytes) {
  return static_cast<uint32_t>(bytes[0]) << 24 | static_cast<uint32_t>(bytes[1]) << 16 |
         static_cast<uint32_t>(bytes[2]) << 8 | bytes[3];
}

// Everything but the end; behind it X is where the PDU begins.
FilterProgram start_filter(const FrameMatch& match, uint32_t other) {
  const MacAddress wanted = masked(match);
  const uint32_t type = match.ether_type;
  // With no operation code wanted, the last test is jumped over.
  const sock_filter read_operation =
      match.opcode ? sock_filter{kLoadByteBehind, 0, 0, 1} : sock_filter{kJump, 0, 0, 0};
  const sock_filter operation =
      match.opcode ? sock_filter{kJumpEqual, 1, 0, *match.opcode} : sock_filter{kJump, 0, 0, 1};
  // Jump offsets count from the next instruction; 16 is "other", 17 is what matched.
  return {
      /*  0 */ {kLoadWord, 0, 0, 0},
      /*  1 */ {kAnd, 0, 0, word(match.mask.data())},
      /*  2 */ {kJumpEqual, 0, 13, word(wanted.data())},
      /*  3 */ {kLoadHalf, 0, 0, 4},
      /*  4 */ {kAnd, 0, 0, half(match.mask)},
      /*  5 */ {kJumpEqual, 0, 10, half(wanted)},
      /*  6 */ {kSetX, 0, 0, 14},
      /*  7 */ {kLoadHalf, 0, 0, 12},
      /*  8 */ {kJumpEqual, 5, 0, type},
      /*  9 */ {kJumpEqual, 1, 0, 0x8100},
      /* 10 */ {kJumpEqual, 0, 5, 0x88A8},
      /* 11 */ {kSetX, 0, 0, 18},
      /* 12 */ {kLoadHalf, 0, 0, 16},
      /* 13 */ {kJumpEqual, 0, 2, type},
      /* 14 */ read_operation,
      /* 15 */ operation,
      /* 16 */ {kReturn, 0, 0, other},
  };
}

}  // namespace

FilterProgram make_filter(const FrameMatch& match, uint32_t matched, uint32_t other) {
  FilterProgram program = start_filter(match, other);
  program.push_back({kReturn, 0, 0, matched});
  return program;
}

FilterProgram make_thinning_filter(const FrameMatch& match, const FloodMatch& flood,
                                   uint32_t matched, uint32_t other) {
  constexpr uint32_t kRandom = static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_RANDOM);
  constexpr uint32_t kSource = 6;
  constexpr uint32_t kContent = 4;  // in the PDU, as the next one is
  constexpr uint32_t kNodeId = 6;
  FilterProgram tests = {
      {kLoadWord, 0, 0, kSource},
      {kJumpEqual, 0, 0, word(flood.source.data())},
      {kLoadHalf, 0, 0, kSource + 4},
      {kJumpEqual, 0, 0, half(flood.source)},
  };
  if (flood.content) {
    tests.insert(tests.end(), {{kLoadWordBehind, 0, 0, kContent},
                               {kJumpEqual, 0, 0, word(flood.content->data())},
                               {kLoadWordBehind, 0, 0, kContent + 4},
                               {kJumpEqual, 0, 0, word(flood.content->data() + 4)}});
  }
  const size_t in_common = tests.size();
  std::vector<size_t> spares;
  for (const MacAddress& node : flood.spared) {
    tests.insert(tests.end(), {{kLoadWordBehind, 0, 0, kNodeId},
                               {kJumpEqual, 0, 2, word(node.data())},
                               {kLoadHalfBehind, 0, 0, kNodeId + 4},
                               {kJumpEqual, 0, 0, half(node)}});
    spares.push_back(tests.size() - 1);
  }
  tests.push_back({kLoadWord, 0, 0, kRandom});
  tests.push_back({kAnd, 0, 0, kThinning - 1});
  for (size_t i = 0; i < in_common; ++i) {
    if (tests[i].code == kJumpEqual) {
      tests[i].jf = static_cast<uint8_t>(tests.size() - i);  // what is no part of the flood matches
    }
  }
  for (const size_t i : spares) {
    tests[i].jt = static_cast<uint8_t>(tests.size() - i);
  }
  FilterProgram program = start_filter(match, other);
  program.insert(program.end(), tests.begin(), tests.end());
  program.push_back({kJumpEqual, 0, 1, 0});
  program.push_back({kReturn, 0, 0, matched});
  program.push_back({kReturn, 0, 0, other});
  return program;
}

}  // namespace erps::linux_platform
