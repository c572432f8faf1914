// What the timer task repeats while the protocol task handles an event is not the event's.
#include <gtest/gtest.h>

#include "tests/ring/test_network.h"
#include "tests/ring/violations.h"

namespace erps::sim {

namespace {

constexpr NodeIndex kNode = 0;
constexpr int64_t kHalfSecondUs = kSecondUs / 2;

// Counts what the timer task of the node sends in the middle of an event.
class Repetitions final : public Observer {
 public:
  explicit Repetitions(const Simulation& simulation) : simulation_(simulation) {}

  void on_record(const Record& record) override {
    if (record.node != kNode) {
      return;
    }
    if (record.kind == RecordKind::kEvent) {
      in_event_ = true;
    } else if (record.kind == RecordKind::kFrameSent && in_event_ &&
               !simulation_.handles_event(kNode)) {
      ++count_;
    }
  }
  void on_event_done(int64_t /*time_us*/, NodeIndex node) override {
    in_event_ = in_event_ && node != kNode;
  }
  size_t count() const { return count_; }

 private:
  const Simulation& simulation_;
  bool in_event_ = false;
  size_t count_ = 0;
};

}  // namespace

// The failure of one port is repeated at the very tick at which the hold-off of the other one ends.
TEST(RepetitionInAnEvent, IsNotTakenForWhatTheEventSays) {
  constexpr LinkIndex kFirst = 2;  // at the node's port 1
  constexpr LinkIndex kSecond = 0;
  size_t repetitions = 0;
  for (uint64_t seed = 1; seed <= 10; ++seed) {
    Options options = options_with(seed);
    options.timing.preempt_one_in = 2;
    options.timing.preempt_us = {100, 500};
    for (int64_t wait_us = 6 * kSecondUs; wait_us < 11 * kSecondUs; wait_us += kHalfSecondUs) {
      Simulation simulation(make_ring({.nodes = 3, .ring_role = 1, .holdoff_ms = 1000}), options);
      Inspection inspection(simulation);
      Repetitions repeated(simulation);
      simulation.observe(repeated);
      inspection.expect_home();
      simulation.cut(kFirst);
      simulation.run_for(wait_us);
      simulation.cut(kSecond);
      simulation.run_for(kSettledUs);
      EXPECT_TRUE(inspection.clean()) << "seed " << seed << ", after " << wait_us << " us:\n"
                                      << text_of(violations(inspection));
      repetitions += repeated.count();
    }
  }
  EXPECT_GT(repetitions, 0U);
}

}  // namespace erps::sim
