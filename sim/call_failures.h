// Which of a node's calls to its platform fail.
//
// Threading: one thread. Errors: none. A failure is in the trace and, unless the call is the C
// library's, in the log.
#pragma once

#include <vector>

#include "sim/platform_call.h"
#include "sim/world.h"

namespace erps::sim {

class CallFailures {
 public:
  CallFailures(World& world, NodeIndex node) : world_(world), node_(node) {}

  // The nth call of this kind from now on fails, counted from 1, and those behind it: `times` in
  // all.
  void fail(PlatformCall call, uint64_t nth, uint64_t times);
  // Nothing that was asked for fails any more.
  void forget() { asked_.clear(); }

  // Whether any call may fail.
  bool may_strike() const { return !asked_.empty() || world_.failing_per_million != 0; }
  // Whether the call that is being made fails.
  [[nodiscard]] bool strike(PlatformCall call) { return may_strike() && decide(call); }
  // How many calls have failed since the node exists.
  uint64_t struck() const { return struck_; }

 private:
  struct Asked {
    PlatformCall call;
    uint64_t before;  // calls that still succeed
    uint64_t times;
  };

  bool decide(PlatformCall call);
  bool is_asked(PlatformCall call);
  void tell(PlatformCall call);

  World& world_;
  const NodeIndex node_;
  std::vector<Asked> asked_;
  uint64_t struck_ = 0;
};

}  // namespace erps::sim
