// The in-memory history and the cause that its records carry.
//
// Threading: any thread records, any thread reads; neither waits. A cause belongs to the thread
// that handles an event, so what the module asks for while it handles a link change is recorded
// with that link change as its cause.
#pragma once

#include <vector>

#include "linux/history_record.h"
#include "linux/overwrite_ring.h"

namespace erps::linux_platform {

struct Cause {
  CauseKind kind = CauseKind::kNone;
  uint8_t port = 0;
  uint8_t value = 0;
  std::array<uint8_t, 6> node_id{};
};

// The calling thread's present cause.
Cause& current_cause();

class History {
 public:
  static constexpr size_t kCapacity = 4096;

  // A record of this moment with the calling thread's cause; the caller fills in the rest.
  static HistoryRecord make(HistoryKind kind, uint32_t port);
  static HistoryRecord make(HistoryKind kind, uint32_t port, const Cause& cause);

  // Fills in what an R-APS frame says. False when the frame is no R-APS or too short to read.
  static bool describe_raps(const uint8_t* frame, size_t length, HistoryRecord& record);

  void add(const HistoryRecord& record) { ring_.push(record); }

  // The latest records, oldest first.
  std::vector<HistoryRecord> latest(size_t limit) const;

  // Reads forward from `next`: calls `sink` for each finished record, moves `next` behind it and
  // returns how many records were overwritten before they could be read.
  template <typename Sink>
  uint64_t drain(uint64_t& next, Sink sink) const {
    uint64_t lost = 0;
    HistoryRecord record;
    while (next < ring_.next()) {
      if (next + kCapacity < ring_.next()) {
        lost += ring_.next() - kCapacity - next;
        next = ring_.next() - kCapacity;
      }
      const auto result = ring_.read(next, record);
      if (result == Ring::Read::kNotYet) {
        break;
      }
      if (result == Ring::Read::kDone) {
        record.sequence = next;
        sink(record);
      } else {
        ++lost;
      }
      ++next;
    }
    return lost;
  }

 private:
  using Ring = OverwriteRing<HistoryRecord, kCapacity>;
  Ring ring_;
};

}  // namespace erps::linux_platform
