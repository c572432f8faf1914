// Tells the trace what an event or a walk of the timers has changed in a module's records: the
// state of each ring, and which of its timers run.
//
// Threading: that of the simulation. Errors: none; a module that was stripped is not watched.
#pragma once

#include <optional>
#include <vector>

#include "sim/module_records.h"
#include "sim/world.h"

namespace erps::sim {

class RecordWatch {
 public:
  RecordWatch(World& world, NodeIndex node) : world_(world), node_(node) {}

  // A copy of the module, loaded just now: it has no rings yet.
  void begin(const ModuleCopy& module);
  void end() { addresses_ = {}; }

  // Records what has changed since the last look. clock_us: the node's time of day.
  void look(int64_t clock_us) {
    if (addresses_.rings != nullptr) {
      ModuleRecords(addresses_, clock_us).read_words(now_);
      if (now_ != before_) {
        record_changes(clock_us);
        before_ = now_;
      }
    }
  }

  // Another number after every change that was seen.
  uint64_t version() const { return version_; }
  // When the first timer that runs is due, on the node's clock, as of the last look.
  std::optional<int64_t> next_expiry_us() const;

  // Null for a module that is not watched.
  const RecordAddresses& addresses() const { return addresses_; }

 private:
  void record_changes(int64_t clock_us);
  void record_ring(const RingWords& ring, const RingWords* before, int64_t clock_us);

  World& world_;
  const NodeIndex node_;
  RecordAddresses addresses_;
  uint64_t version_ = 0;
  std::vector<RingWords> before_;
  std::vector<RingWords> now_;
};

}  // namespace erps::sim
