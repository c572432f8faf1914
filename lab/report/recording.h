// What a simulation did, as the report needs it: plain data in the order of time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/topology.h"

namespace erps::lab {

// A node's part in a ring: node states and timers belong to it.
struct RingPlace {
  RingIndex ring = 0;
  NodeIndex node = 0;
};

// Something that holds until the next change of the same kind and subject.
enum class ChangeKind : uint8_t {
  kStrand = 0,   // subject: 2 * link + the end that it leads away from; value: 1 carries, 0 failed
  kCarrier = 1,  // subject: 2 * link + end; value: 1 detected, 0 lost
  kPort = 2,     // subject: 2 * link + end; value: 1 forwards, 0 blocked
  kPower = 3,    // subject: node; value: a NodePower
  kState = 4,    // subject: place; value: a NodeState
};

enum class NodePower : uint8_t { kOff = 0, kBooting = 1, kRunning = 2, kStopped = 3 };

struct Change {
  int64_t time_us = 0;
  ChangeKind kind{};
  uint32_t subject = 0;
  uint32_t value = 0;
};

// Something that happens at one instant.
enum class MarkKind : uint8_t {
  kFlush = 0,        // subject: 2 * link + end; value: addresses forgotten
  kCommand = 1,      // subject: node; value: 256 * ring ID + the management command
  kRefused = 2,      // subject: node; value: 256 * return code + the management command
  kCirculating = 3,  // subject: node: it took a frame off the network that went round and round
  kCallFailed = 4,   // subject: node; value: a sim::PlatformCall
  kClockStep = 5,    // subject: node; value: seconds forth, or back as a negative number
  kSlowed = 6,       // subject: node; value: how many times slower than usual from now on
  kStalled = 7,      // subject: node; value: for how many ms it has no processor
};

struct Mark {
  int64_t time_us = 0;
  MarkKind kind{};
  uint32_t subject = 0;
  uint32_t value = 0;
};

enum class TimerKind : uint8_t { kGuard = 0, kWtr = 1, kWtb = 2, kHoldOff = 3 };
enum class TimerEnd : uint8_t { kRunning = 0, kExpired = 1, kStopped = 2 };

struct TimerRun {
  uint32_t place = 0;
  TimerKind kind{};
  int64_t from_us = 0;
  int64_t to_us = 0;  // meaningless while it runs
  TimerEnd end = TimerEnd::kRunning;
};

// An R-APS message on one link, by what it says.
struct MessageText {
  uint32_t ring = 0;  // ID
  uint32_t request = 0;
  uint32_t status = 0;
  bool marked = false;
  uint32_t node_id = 0;  // its last two bytes

  friend bool operator==(const MessageText&, const MessageText&) = default;
};

enum class Fate : uint8_t { kUnderWay = 0, kArrived = 1, kLost = 2 };

struct Message {
  int64_t from_us = 0;
  int64_t to_us = 0;    // meaningless while it is under way
  uint32_t strand = 0;  // 2 * link + the end that it left
  uint32_t text = 0;    // index into Recording::texts
  Fate fate = Fate::kUnderWay;
  bool repeated = false;  // the same was sent there a moment ago
};

struct Recording {
  std::vector<RingPlace> places;
  std::vector<MessageText> texts;
  std::vector<Change> changes;
  std::vector<Mark> marks;
  std::vector<TimerRun> timers;
  std::vector<Message> messages;
  // From when on something is missing, because there was more of it than a page can hold.
  std::optional<int64_t> changes_end_us;
  std::optional<int64_t> marks_end_us;
  std::optional<int64_t> timers_end_us;
  std::optional<int64_t> messages_end_us;
  std::optional<int64_t> repeats_end_us;  // of repeated messages
};

}  // namespace erps::lab
