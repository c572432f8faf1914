// Checks that every protocol timer takes its time: WTR, WTB, guard and hold-off neither end early
// nor are overdue, and what a node has to say is repeated every five seconds.
//
// The module looks at its timers once a second, so a timer is late by up to a tick, and by more
// behind another one in the list that is due later; repetitions are not later for that the next
// time; WTR counts whole seconds from the second
// in which it starts, so it is early by up to one. What a node was
// measuring when its processor stood still, or its clock was set, is not judged.
#pragma once

#include <array>
#include <map>

#include "sim/checks/checker.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/ring_watch.h"

namespace erps::sim {

class TimerChecker final : public Checker, public Observer, public StepListener {
 public:
  // The watch observes before this does.
  TimerChecker(const Topology& topology, const RingWatch& watch, const Mishaps& mishaps);

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  enum Kind { kWtr, kWtb, kGuard, kHoldoff, kKinds };
  static constexpr int64_t kNone = -1;

  // The last message that left, and when the next repetition is due. That keeps to the five
  // seconds from when the message was new, however late any repetition is.
  struct Sent {
    int64_t at_us = kNone;
    int64_t due_us = kNone;
  };
  struct Timers {
    std::array<int64_t, kKinds> since_us{kNone, kNone, kNone, kNone};
    int64_t has_to_send_since_us = kNone;
    std::map<uint32_t, Sent> sent;  // by port
  };

  struct Limits {
    int64_t least_us = 0;
    int64_t most_us = 0;
  };
  Limits limits(NodeIndex node, Kind kind) const;
  int64_t tolerance_us(NodeIndex node) const;
  int64_t lateness_us(NodeIndex node) const;
  void start(Timers& timers, Kind kind, int64_t time_us) { timers.since_us[kind] = time_us; }
  void end(Timers& timers, Kind kind) { timers.since_us[kind] = kNone; }
  void expect_not_early(const Step& step, const Timers& timers, Kind kind);
  void expect_not_overdue(NodeIndex node, uint32_t ring, const Timers& timers, int64_t now_us,
                          FindingList& into) const;
  void expect_repeated(NodeIndex node, uint32_t ring, const Timers& timers, int64_t now_us,
                       FindingList& into) const;
  void watch_sending(const Step& step, Timers& timers);
  void on_sent(const Record& record);
  void expect_due(const Record& record, Sent& sent);
  void on_timer(const Record& record);
  void forget(NodeIndex node);

  const Topology& topology_;
  const RingWatch& watch_;
  const Mishaps& mishaps_;
  std::map<std::pair<NodeIndex, uint32_t>, Timers> timers_;  // by node and ring
  std::vector<int64_t> slowness_;                            // by node
  std::vector<int64_t> late_until_us_;  // by node, what is sent was due while it stood still
  FindingList findings_;
};

}  // namespace erps::sim
