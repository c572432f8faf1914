// The ticks that the simulator makes in the module's place leave the same trace as the module's
// own.
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

constexpr int64_t kEndUs = 300 * kSecondUs;

// Everything that can meet a tick half-way, at random times.
class Trouble {
 public:
  Trouble(Simulation& simulation, uint64_t seed) : simulation_(simulation), chance_(seed, 9) {
    for (int64_t at_us = 0; at_us < kEndUs; at_us += chance_.in({1, 4 * kSecondUs})) {
      simulation_.at(at_us, [this] { strike(); });
    }
  }

 private:
  void strike() {
    const size_t at = draw(simulation_.topology().nodes.size());
    switch (draw(12)) {
      case 0:
        return simulation_.cut(at);
      case 1:
      case 2:
        return simulation_.restore(at);
      case 3:
        return simulation_.crash(at);
      case 4:
        return simulation_.restart(at);
      case 5:
        return simulation_.stop_module(at);
      case 6:
        return simulation_.kill_module(at);
      case 7:
        return simulation_.start_module(at);
      case 8:
        return simulation_.slow_down(at, static_cast<uint32_t>(chance_.in({1, 20})));
      case 9:
        return simulation_.stall(at, chance_.in({1, kSecondUs}));
      case 10:
        simulation_.step_clock(at, chance_.in({-2 * kSecondUs, 4 * kSecondUs}));
        return simulation_.set_clock_drift(at, chance_.in({-50'000, 50'000}));
      default:
        simulation_.fail_call(at, draw(2) == 0 ? "select" : "adp_transmit_frame", 1 + draw(3));
        simulation_.ask(at, make_request(mgmt::kManualSwitch, {kRing, 1}));
        return;
    }
  }

  size_t draw(size_t count) {
    return static_cast<size_t>(chance_.in({0, static_cast<int64_t>(count) - 1}));
  }

  Simulation& simulation_;
  Random chance_;
};

uint64_t hash_after_trouble(Options options, bool skip_idle_ticks) {
  options.skip_idle_ticks = skip_idle_ticks;
  TestNetwork network(make_ring({.nodes = 4, .holdoff_ms = 400}), options);
  const Trouble trouble(network.simulation, options.seed);
  network.simulation.run_until(kEndUs);
  return network.simulation.trace_hash();
}

}  // namespace

TEST(IdleTicks, LeaveTheTraceOfTheModulesOwn) {
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    EXPECT_EQ(hash_after_trouble(options_with(seed), true),
              hash_after_trouble(options_with(seed), false))
        << "seed " << seed;
  }
}

TEST(IdleTicks, LeaveTheSameTraceWhereTheyMeetTheProtocolTaskAtTheirLock) {
  for (uint64_t seed = 1; seed <= 20; ++seed) {
    Options options = options_with(seed);
    options.timing.preempt_one_in = 2;
    options.timing.preempt_us = {1, 30'000};
    EXPECT_EQ(hash_after_trouble(options, true), hash_after_trouble(options, false))
        << "seed " << seed;
  }
}

}  // namespace erps::sim
