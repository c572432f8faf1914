// What a node did, as its erpsd writes it: one JSON object a line.
//
// Threading: one thread at a time. Errors: lines that are none of these are passed over; a file
// that is not there yet is empty. Logs nothing.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace erps::lab {

enum class EventKind {
  kLinkDown,
  kLinkUp,
  kSent,
  kReceived,
  kBlocked,
  kOpened,
  kFlushed,
  kCommand
};

struct NodeEvent {
  int64_t mono_ns = 0;
  EventKind kind = EventKind::kCommand;
  uint32_t port = 0;    // 0: none
  uint32_t ring = 0;    // sent, received
  std::string message;  // sent, received: "SF", "NR,RB", "SF,DNF"
  std::string node_id;  // sent, received
  std::string cause;    // in the daemon's words
};

// "link-down", "raps-sent", "blocked", ...
const char* event_name(EventKind kind);

// Empty lines, unknown kinds and port states that were only asked for give nothing.
std::vector<NodeEvent> parse_journal(const std::string& lines);

// Reads on where it stopped.
class JournalReader {
 public:
  explicit JournalReader(std::string path) : path_(std::move(path)) {}
  // The events that were written since the last call, in the order of the file.
  std::vector<NodeEvent> read_on();

 private:
  std::string path_;
  std::streamoff read_ = 0;
};

}  // namespace erps::lab
