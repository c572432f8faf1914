// A state of a whole network, and a step from one to the next.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/explore/channels.h"
#include "sim/explore/local_states.h"

namespace erps::sim::explore {

inline constexpr size_t kMostLinks = 4;
inline constexpr uint32_t kMostFaults = 15;  // of each kind

// The bit of a node, strand or clock in a set of them.
inline uint8_t bit(size_t number) {
  return static_cast<uint8_t>(1U << number);
}

struct NetworkState {
  std::array<LocalId, kMostNodes> local{};
  std::array<ChannelId, 2 * kMostLinks> channel{};  // 2 * link + the end that it leads away from
  std::array<uint8_t, kMostNodes> own_passed{};     // as Channels::passed, of waiting own events
  uint8_t second_half = 0;                          // bit n: of node n's present second
  uint8_t ahead = 0;     // bit n: node n's clock has taken the step that others still have to
  uint8_t working = 0;   // bit s: strand s carries frames
  uint8_t switched = 0;  // bit n: a forced or manual switch was commanded at node n, not cleared
  uint8_t cuts = 0;      // faults that there have been
  uint8_t strand_failures = 0;
  uint8_t crashes = 0;
  uint8_t commands = 0;
  uint16_t halves = 0;  // half seconds since the last fault, when they are counted

  friend bool operator==(const NetworkState&, const NetworkState&) = default;
};

// As 32-bit words, as many as the network needs.
class Packing {
 public:
  Packing(size_t nodes, size_t links) : nodes_(nodes), links_(links) {}

  size_t words() const { return nodes_ + links_ + 2; }
  void pack(const NetworkState& state, uint32_t* words) const;
  NetworkState unpack(const uint32_t* words) const;

 private:
  size_t nodes_;
  size_t links_;
};

enum class StepKind : uint8_t {
  kHalf,      // node: the first half of its second is over
  kTick,      // node: its second is over, it ticks
  kOwnEvent,  // node: handles the first event that it has posted to itself
  kFrame,     // node, port: handles the first frame on its way to it
  kCarrier,   // node, port: notices a change of the carrier
  kCommand,   // node, command
  kCut,       // link; kept: frames that are handled yet, by strand
  kFail,      // link, end: the strand away from this end; kept[0]
  kRestore,   // link
  kCrash,     // node; kept: by port of the node, in the order of the topology's links
  kRestart,   // node
};

enum class SwitchCommand : uint8_t { kForced, kManual, kClear };

struct Step {
  StepKind kind{};
  uint8_t node = 0;
  uint8_t port = 0;  // of kFrame, kCarrier and the two switch commands
  uint8_t link = 0;
  uint8_t end = 0;
  SwitchCommand command{};
  std::array<uint8_t, 2> kept{};

  friend bool operator==(const Step&, const Step&) = default;
};

}  // namespace erps::sim::explore
