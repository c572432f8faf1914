// The module's records as they are read from its memory, against what the module answers itself.
#include <gmock/gmock.h>

#include "sim/module_symbols.h"
#include "sim/simulation.h"

namespace erps::sim {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::ThrowsMessage;

namespace {

constexpr uint32_t kRing = 1;
constexpr int64_t kSettledUs = 12 * kSecondUs;

Options options_with(uint64_t seed) {
  Options options;
  options.seed = seed;
  options.module_path = ERPS_MODULE;
  return options;
}

uint32_t word(const Reply& reply, mgmt::RingConfWord index) {
  const uint8_t* bytes = reply.data.data() + size_t{4} * index;
  return uint32_t{bytes[0]} << 24U | uint32_t{bytes[1]} << 16U | uint32_t{bytes[2]} << 8U |
         bytes[3];
}

void expect_same_port(const PortSnapshot& port, const Reply& reply, mgmt::RingConfWord id) {
  EXPECT_EQ(port.port, word(reply, id));
  EXPECT_EQ(port.forwarding ? kForwarding : kDiscarding,
            word(reply, static_cast<mgmt::RingConfWord>(id + 1)));
  EXPECT_EQ(port.link_up ? 1 : 0, word(reply, static_cast<mgmt::RingConfWord>(id + 2)));
}

void expect_same(const RingSnapshot& ring, const Reply& reply) {
  EXPECT_EQ(ring.ring, word(reply, mgmt::kRingId));
  EXPECT_EQ(ring.state, word(reply, mgmt::kState));
  EXPECT_EQ(ring.node_role, word(reply, mgmt::kNodeRole));
  EXPECT_EQ(ring.ring_role, word(reply, mgmt::kRingRoleWord));
  EXPECT_EQ(ring.revertive ? 0 : 1, word(reply, mgmt::kNonRevertive));
  EXPECT_EQ(ring.sending ? 1 : 0, word(reply, mgmt::kSending));
  EXPECT_EQ(ring.local_priority, word(reply, mgmt::kLocalPriority));
  EXPECT_EQ(ring.current_priority, word(reply, mgmt::kCurrentPriority));
  EXPECT_EQ(ring.enabled ? 1 : 0, word(reply, mgmt::kEnabled));
  EXPECT_EQ(ring.guard_running ? 1 : 0, word(reply, mgmt::kGuardRunning));
  EXPECT_EQ(ring.holdoff_running ? 1 : 0, word(reply, mgmt::kHoldoffRunning));
  EXPECT_TRUE(std::equal(ring.local_node_id.begin(), ring.local_node_id.end(),
                         reply.data.begin() + mgmt::kRingConfNodeIdOffset));
  expect_same_port(ring.ports[0], reply, mgmt::kPort0Id);
  if (ring.ports[1].present) {
    expect_same_port(ring.ports[1], reply, mgmt::kPort1Id);
  }
}

std::optional<TimerSnapshot> find(const ModuleRecords& records, TimerKind kind) {
  for (const TimerSnapshot& timer : records.timers()) {
    if (timer.kind == kind) {
      return timer;
    }
  }
  return std::nullopt;
}

}  // namespace

// Whatever stands still while the module answers, it answers as it was read: through a start, a
// cut, a restore, a forced switch and its clearing.
TEST(ModuleRecords, AreWhatTheModuleAnswers) {
  Simulation simulation(make_ladder({}), options_with(1));
  simulation.at(20 * kSecondUs, [&] { simulation.cut(1); });
  simulation.at(27 * kSecondUs, [&] { simulation.restore(1); });
  simulation.at(50 * kSecondUs, [&] {
    simulation.ask(2, make_request(mgmt::kForcedSwitch, {kRing, 1}));
  });
  simulation.at(55 * kSecondUs, [&] { simulation.ask(2, make_request(mgmt::kClear, {kRing})); });
  simulation.run_for(kSecondUs);
  size_t compared = 0;
  while (simulation.now_us() < 65 * kSecondUs) {
    for (NodeIndex node = 0; node < simulation.topology().nodes.size(); ++node) {
      for (const RingSnapshot& before : simulation.records(node).rings()) {
        const Reply reply = simulation.execute(node, make_request(mgmt::kGetRing, {before.ring}));
        ASSERT_TRUE(reply.accepted());
        const auto after = simulation.records(node).rings();
        if (std::find(after.begin(), after.end(), before) != after.end()) {
          expect_same(before, reply);
          ++compared;
        }
      }
    }
    simulation.run_for(37 * kMillisecondUs);
  }
  EXPECT_GT(compared, 8 * simulation.topology().nodes.size());
}

TEST(ModuleRecords, ReadingThemChangesNothing) {
  const auto hash_after = [](bool reading) {
    Simulation simulation(make_ring({}), options_with(7));
    for (int step = 0; step < 200; ++step) {
      simulation.run_for(97 * kMillisecondUs);
      for (NodeIndex node = 0; reading && node < 4; ++node) {
        EXPECT_EQ(1U, simulation.records(node).rings().size());
        EXPECT_THAT(simulation.records(node).timers().size(), testing::Le(5U));
      }
    }
    return simulation.trace_hash();
  };
  EXPECT_EQ(hash_after(false), hash_after(true));
}

TEST(ModuleRecords, TellWhatIsLeftOfEachTimer) {
  RingPlan plan;
  plan.wtr_ms = 60'000;
  Simulation simulation(make_ring(plan), options_with(3));
  simulation.run_for(kSettledUs);
  simulation.cut(1);
  simulation.run_for(kSecondUs);
  simulation.restore(1);
  simulation.run_for(100 * kMillisecondUs);
  const auto guard = find(simulation.records(1), TimerKind::kGuard);
  ASSERT_TRUE(guard);
  EXPECT_THAT(guard->left_ms, testing::AllOf(testing::Gt(300), testing::Le(500)));

  while (!find(simulation.records(0), TimerKind::kWtr)) {
    ASSERT_LT(simulation.now_us(), 30 * kSecondUs);
    simulation.run_for(10 * kMillisecondUs);
  }
  const int64_t left_ms = find(simulation.records(0), TimerKind::kWtr)->left_ms;
  EXPECT_THAT(left_ms, testing::AllOf(testing::Gt(58'900), testing::Le(60'000)));
  simulation.run_for(10 * kSecondUs);
  EXPECT_EQ(left_ms - 10'000, find(simulation.records(0), TimerKind::kWtr)->left_ms);
}

TEST(ModuleRecords, ANodeWithoutPowerHasNone) {
  Simulation simulation(make_ring({}), options_with(1));
  simulation.run_for(kSettledUs);
  simulation.crash(2);
  EXPECT_THAT(simulation.records(2).rings(), IsEmpty());
  EXPECT_THAT(simulation.records(2).timers(), IsEmpty());
  simulation.restart(2);
  simulation.run_for(kSecondUs);
  EXPECT_EQ(1U, simulation.records(2).rings().size());
}

TEST(ModuleRecords, OfAStrippedModuleCannotBeReadAndSaySo) {
  Options options = options_with(1);
  options.module_path = ERPS_STRIPPED_MODULE;
  Simulation simulation(make_ring({}), options);
  simulation.run_for(kSecondUs);
  EXPECT_THAT([&] { simulation.records(0).rings(); },
              ThrowsMessage<SimError>(AllOf(HasSubstr("stripped"), HasSubstr("unstripped build"))));
}

TEST(ModuleSymbols, ANameThatNothingHasIsNamed) {
  const ModuleSymbols symbols(ERPS_MODULE);
  EXPECT_THAT([&] { symbols.variable("no_such_list"); },
              ThrowsMessage<SimError>(HasSubstr("no variable no_such_list")));
}

TEST(ModuleSymbols, AFileThatIsNoModuleIsRefused) {
  EXPECT_THAT([] { ModuleSymbols(__FILE__); },
              ThrowsMessage<SimError>(HasSubstr("no shared object")));
  EXPECT_THAT([] { ModuleSymbols("/nowhere/liberps.so"); },
              ThrowsMessage<SimError>(HasSubstr("cannot read the module /nowhere/liberps.so")));
}

}  // namespace erps::sim
