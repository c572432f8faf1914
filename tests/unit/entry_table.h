// Tables of entry actions in the words of ITU-T G.8032, and what they come to on a ring in a given
// condition. Written on their own: nothing here asks the module.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace erps::test {

// A ring before an entry action runs.
struct RingCondition {
  int32_t state;
  uint32_t node_role;
  uint32_t ring_role;
  uint8_t non_revertive;
  uint32_t links[2];
  uint32_t states[2];
  uint32_t request_port;
  int32_t event_port;
  int32_t flush_port;
  uint32_t local_priority;
  bool remote_is_lower;  // node ID of the last accepted message, against the own one
  bool holdoff_running;
};

std::string describe(const RingCondition& condition);

// One row: in these states, when all of these hold, then do this.
//
// `when`: owner, neighbour, plain (bits 1, 2, 4 of the node role), revertive (mode 0),
// non-revertive (mode 1), any-blocked, RPL-blocked, requested-blocked, failed-blocked,
// lower-remote, hold-off; "!" in front negates.
// `then`: steps in order, joined with "; ":
//   block RPL, unblock non-RPL, block requested, unblock non-requested, block failed,
//   unblock non-failed, unblock ring ports     port operations
//   tx NR,RB,DNF                               start sending
//   stop tx                                    stop sending
//   flush, flush ring, name first port         addresses of the named port, of all ring ports
//   start/stop WTR, WTB, guard, hold-off       timers
//   error: text                                an error is logged; $S stands for the state
//   -> state                                   enter it; "stay" enters the present one again
// An empty `then` ignores the request altogether.
struct EntryRow {
  EntryRow(const char* states_text, const char* when_text, const char* then_text);

  std::vector<std::string> states;
  std::vector<std::string> when;
  std::vector<std::string> then;
};

struct EntryTable {
  std::string name;     // of the state-list row
  uint32_t mach_enter;  // its number: the cause of what it sends
  std::vector<EntryRow> rows;
};

inline void PrintTo(const EntryTable& table, std::ostream* out) {
  *out << table.name;
}

// The tables of all requests but the one that starts a ring.
const std::vector<EntryTable>& entry_tables();

// What the ring shows afterwards.
struct EntryOutcome {
  std::string steps;  // as steps_of() tells them
  int32_t state;
  bool state_entered;
  bool repeating;  // the five-second repetition runs
  uint32_t local_priority;
  int32_t event_port;
  int32_t flush_port;

  bool operator==(const EntryOutcome&) const = default;
};

void PrintTo(const EntryOutcome& outcome, std::ostream* out);

// The outcome that the table demands. `repeating` tells whether a message is being repeated before.
// Throws std::logic_error unless exactly one row matches.
EntryOutcome expected_outcome(const EntryTable& table, const RingCondition& condition,
                              bool repeating);

}  // namespace erps::test
