// Whole rings of three nodes in virtual time: link events, power failures, commands, frames from
// outside and passing time in any order, with all checkers on.
//
// Whatever happens, no node may misuse its platform. After faults alone, or switches alone, the
// ring comes home. Both at once may leave it split or open, as may frames from outside and requests
// other than switches; nothing is expected of its way home then.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "erps/raps/frame.h"
#include "sim/checks/inspection.h"
#include "sim/simulation.h"
#include "tests/fuzz/fail.h"
#include "tests/fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace erps::fuzz {
namespace {

constexpr size_t kNodes = 3;
constexpr uint32_t kRing = 1;
constexpr int kMostSteps = 48;
constexpr int64_t kSettledUs = 2 * sim::kSecondUs;
// A frame from outside that nobody takes for his own goes round for ever. Nothing new comes of it
// after so much.
constexpr uint64_t kMostRecords = 5000;
constexpr int64_t kSliceUs = 10 * sim::kMillisecondUs;

// Prints what happens, for whoever looks at a finding: set ERPS_FUZZ_TRACE in the environment.
class Printer final : public sim::Observer {
 public:
  void on_record(const sim::Record& record) override {
    std::fprintf(stderr, "%10.3f ms node %u %s\n", static_cast<double>(record.time_us) / 1000,
                 record.node, sim::to_text(record).c_str());
  }
};

class Counter final : public sim::Observer {
 public:
  void on_record(const sim::Record& /*record*/) override { ++records; }
  uint64_t records = 0;
};

class RingSession {
 public:
  explicit RingSession(Input& input)
      : input_(input), simulation_(topology(), options()), inspection_(simulation_) {
    simulation_.observe(counter_);
    if (std::getenv("ERPS_FUZZ_TRACE") != nullptr) {
      simulation_.observe(printer_);
    }
  }

  void run() {
    for (int step = 0; step < kMostSteps && !input_.empty() && !is_flooded(); ++step) {
      take_step();
    }
    if (trusted_) {
      come_home();
    }
    stop_all();
  }

 private:
  sim::Topology topology() {
    const uint8_t what = input_.byte();
    sim::RingPlan plan;
    plan.nodes = kNodes;
    plan.ring_role = what & 1;
    plan.neighbour = (what & 2) == 0;
    plan.owner_has_lowest_id = (what & 4) == 0;
    plan.revertive = (what & 0xE0) != 0xE0;
    plan.wtr_ms = (what & 8) != 0 ? 1000 : 5000;
    plan.holdoff_ms = (what & 0x10) != 0 ? 1000 : 0;
    trusted_ = plan.revertive;
    return sim::make_ring(plan);
  }

  sim::Options options() {
    sim::Options options;
    options.seed = input_.byte();
    options.module_path = ERPS_MODULE;
    return options;
  }

  sim::LinkIndex link() { return input_.byte() % kNodes; }
  sim::NodeIndex node() { return input_.byte() % kNodes; }

  void take_step() {
    switch (input_.byte() % 16) {
      case 0:
        fault();
        return simulation_.cut(link());
      case 1:
        fault();
        return simulation_.restore(link());
      case 2: {
        fault();
        const uint8_t what = input_.byte();
        return simulation_.fail_strand(what % kNodes, (what >> 4) & 1, (what & 0x80) != 0);
      }
      case 3: {
        fault();
        const uint8_t what = input_.byte();
        return simulation_.repair_strand(what % kNodes, (what >> 4) & 1);
      }
      case 4:
        fault();
        return simulation_.crash(node());
      case 5:
        fault();
        return simulation_.restart(node());
      case 6:
        return operate(mgmt::kForcedSwitch, {kRing, 1 + input_.byte() % 2U});
      case 7:
        return operate(mgmt::kManualSwitch, {kRing, 1 + input_.byte() % 2U});
      case 8:
        return operate(mgmt::kClear, {kRing});
      case 9:
        return inject();
      case 10:
        return any_request();
      case 11:
        simulation_.send_probe(node(), std::nullopt);
        return;
      case 12:
        return pass(int64_t{input_.byte()} * 100);  // within one exchange of messages
      default:
        return pass(int64_t{input_.byte()} * 20 * sim::kMillisecondUs);
    }
  }

  bool is_flooded() const { return !trusted_ && counter_.records > kMostRecords; }

  void pass(int64_t duration_us) {
    const int64_t until_us = simulation_.now_us() + duration_us;
    while (simulation_.now_us() < until_us && !is_flooded()) {
      simulation_.run_until(std::min(simulation_.now_us() + kSliceUs, until_us));
    }
  }

  // A failure, or a return. What was switched is in its way.
  void fault() {
    last_fault_us_ = simulation_.now_us();
    trusted_ = trusted_ && !operated_;
  }

  // An operator works on a ring that is whole and has been left alone for a while.
  void operate(mgmt::Command command, std::array<uint32_t, mgmt::kArgumentCount> arguments) {
    operated_ = true;
    trusted_ = trusted_ && is_whole() && simulation_.now_us() - last_fault_us_ > kSettledUs;
    simulation_.ask(node(), sim::make_request(command, arguments));
  }

  bool is_whole() {
    const sim::Forwarding& now = simulation_.forwarding();
    return std::all_of(now.powered.begin(), now.powered.end(), [](bool on) { return on; }) &&
           std::all_of(now.arcs.begin(), now.arcs.end(),
                       [](const sim::Arc& arc) { return arc.works; });
  }

  void inject() {
    trusted_ = false;
    const uint8_t what = input_.byte();
    const uint8_t who = input_.byte();
    const std::array<uint8_t, 6> stranger{0x02, 0, 0, 0, 1, who};
    const sim::MacAddress& known = simulation_.topology().nodes.at(who % kNodes).address;
    raps::Message message{};
    message.ring_id = (what & 0x80) != 0 ? 2 : kRing;
    message.vlan_id = simulation_.topology().nodes[0].rings[0].control_vlan;
    message.request = what & 0x0F;
    message.rb = (what >> 4) & 1;
    message.dnf = (what >> 5) & 1;
    message.bpr = (what >> 6) & 1;
    message.source = (who & 0x80) != 0 ? known.data() : stranger.data();
    message.node_id = (who & 0x40) != 0 ? known.data() : stranger.data();
    std::vector<uint8_t> frame(raps::kTaggedLength);
    frame.resize(raps::build(message, frame.data()));
    const uint8_t where = input_.byte();
    simulation_.inject({where % kNodes, 1 + (where >> 4) % 2U}, frame);
  }

  // Management may ask for anything, sensible or not.
  void any_request() {
    trusted_ = false;
    sim::Request request{};
    request.cmd = input_.byte() % mgmt::kCommandCount;
    for (uint32_t& argument : request.arg) {
      const uint8_t what = input_.byte();
      argument = what == 0xFF ? input_.word() : what % 16;
    }
    simulation_.ask(node(), request);
  }

  void come_home() {
    for (sim::LinkIndex link = 0; link < kNodes; ++link) {
      simulation_.restore(link);
    }
    for (sim::NodeIndex node = 0; node < kNodes; ++node) {
      simulation_.restart(node);
      if (operated_) {
        simulation_.ask(node, sim::make_request(mgmt::kClear, {kRing}));
      }
    }
    inspection_.expect_home();
    for (const sim::Finding& finding : inspection_.findings()) {
      if (finding.is_violation()) {
        fail(finding.check + " at " + std::to_string(finding.from_us) + " us: " + finding.text);
      }
    }
  }

  void stop_all() {
    for (sim::NodeIndex node = 0; node < kNodes; ++node) {
      simulation_.stop_module(node);
    }
    counter_.records = 0;
    pass(sim::kSecondUs);
  }

  bool trusted_ = false;  // all messages are the ring's, all requests an operator's
  bool operated_ = false;
  int64_t last_fault_us_ = 0;  // the start is one
  Input& input_;
  Printer printer_;
  Counter counter_;
  sim::Simulation simulation_;
  sim::Inspection inspection_;
};

}  // namespace
}  // namespace erps::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  erps::fuzz::Input input(data, size);
  try {
    erps::fuzz::RingSession(input).run();
  } catch (const erps::sim::Violation& violation) {
    erps::fuzz::fail(violation.what());
  }
  return 0;
}
