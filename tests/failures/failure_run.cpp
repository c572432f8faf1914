#include "tests/failures/failure_run.h"

#include <utility>

#include "sim/checks/convergence.h"
#include "sim/checks/loop_checker.h"
#include "sim/checks/partition_checker.h"

namespace erps::failures {

using sim::kSecondUs;

namespace {

constexpr int64_t kStartUs = 8 * kSecondUs;
constexpr int64_t kRepairUs = kSecondUs;  // far longer than a protection switch takes
constexpr uint32_t kWtrMs = 5000;

class Watch final : public sim::Observer {
 public:
  explicit Watch(sim::NodeIndex node) : node_(node) {}

  void on_record(const sim::Record& record) override {
    if (record.node == node_ && record.kind == sim::RecordKind::kCallFailed) {
      ++failed;
    }
  }
  void on_log(int64_t /*time_us*/, sim::NodeIndex node, int /*level*/,
              const std::string& text) override {
    if (node == node_ && failed != 0) {
      log.push_back(text);
    }
  }

  uint64_t failed = 0;
  std::vector<std::string> log;

 private:
  sim::NodeIndex node_;
};

class Life {
 public:
  explicit Life(const Place& place)
      : place_(place), simulation_(place.topology, options()), watch_(place.node) {
    simulation_.observe(watch_);
    simulation_.observe(loops_);
    simulation_.observe(partitions_);
  }

  Outcome live(const FailingCall& call) {
    simulation_.fail_call(place_.node, call.name, call.nth, call.times);
    simulation_.run_for(kStartUs);
    outcome_.started = simulation_.configured(place_.node);
    check_rings_are_whole_or_absent();
    switch_over();
    simulation_.run_for(kStartUs);
    if (call.times == kOnce && outcome_.started && watch_.failed != 0) {
      check_protection("without a new start", outcome_.unhealed);
    }
    simulation_.stop_module(place_.node);
    simulation_.run_for(5 * kSecondUs);

    simulation_.fail_calls(0);
    outcome_.failed = watch_.failed;
    outcome_.log = watch_.log;
    start_anew();
    check_protection("after a new start", outcome_.mistakes);
    check_memory();
    return std::move(outcome_);
  }

 private:
  static sim::Options options() {
    sim::Options options;
    options.module_path = ERPS_MODULE;
    options.log_level = 7;
    return options;
  }

  void mistake(std::string text) { outcome_.mistakes.push_back(std::move(text)); }

  std::vector<uint32_t> ring_ids() const {
    std::vector<uint32_t> ids;
    const sim::NodePlan& plan = place_.topology.nodes.at(place_.node);
    for (const sim::RingConfig& ring : plan.rings) {
      ids.push_back(ring.ring);
    }
    for (const sim::SubRingConfig& ring : plan.sub_rings) {
      ids.push_back(ring.ring);
    }
    return ids;
  }

  // Without an answer when the host waits for the module for ever.
  sim::Reply ask(const sim::Request& request) {
    const auto reply = simulation_.ask(place_.node, request);
    simulation_.run_for(3 * kSecondUs);
    return *reply;
  }

  // What management gets to see of a ring: all of it, or an error at configuration.
  void check_rings_are_whole_or_absent() {
    for (const uint32_t ring : ring_ids()) {
      const sim::Reply reply = ask(sim::make_request(mgmt::kGetRing, {ring}));
      if (reply.accepted() && reply.data.size() != mgmt::kRingConfBytes) {
        mistake("ring " + std::to_string(ring) + " is answered with " +
                std::to_string(reply.data.size()) + " bytes");
      }
      if (reply.done && !reply.accepted() && reply.ret_code != sim::kNoAnswer && outcome_.started) {
        mistake("ring " + std::to_string(ring) + " is gone, and no error was reported");
      }
    }
  }

  void switch_over() {
    simulation_.cut(place_.cut);
    simulation_.run_for(2 * kSecondUs);
    simulation_.restore(place_.cut);
  }

  // As a host's service manager would.
  void start_anew() {
    simulation_.kill_module(place_.node);
    simulation_.start_module(place_.node);
    simulation_.run_for(2 * kSecondUs);
    if (!simulation_.configured(place_.node)) {
      mistake("the module does not start again");
    }
  }

  void expect_home(const std::string& when, std::vector<std::string>& wrong) {
    const auto reason = sim::run_until_home(simulation_, sim::home_bound_us(place_.topology));
    if (reason) {
      wrong.push_back(when + ": " + *reason);
    }
  }

  void check_protection(const std::string& when, std::vector<std::string>& wrong) {
    expect_home(when, wrong);
    simulation_.cut(place_.cut);
    simulation_.run_for(kRepairUs);
    if (partitions_.partitions().holds()) {
      wrong.push_back("a cut link is not protected " + when);
    }
    simulation_.restore(place_.cut);
    expect_home("the link has returned, " + when, wrong);
    if (loops_.loops().holds()) {
      wrong.push_back("frames circulate " + when);
    }
  }

  // Rings that are deleted and a module that is stopped leave nothing behind.
  void check_memory() {
    std::vector<uint32_t> ids = ring_ids();
    for (const uint32_t ring : ids) {
      for (const auto& request : {sim::make_request(mgmt::kSetEnable, {ring, 0}),
                                  sim::make_request(mgmt::kDeleteRing, {ring})}) {
        if (!ask(request).accepted()) {
          mistake("ring " + std::to_string(ring) + " cannot be deleted");
        }
      }
    }
    simulation_.stop_module(place_.node);
    simulation_.run_for(kSecondUs);
    if (simulation_.memory_blocks(place_.node) != 0) {
      mistake("memory is left: " + std::to_string(simulation_.memory_blocks(place_.node)) +
              " blocks");
    }
  }

  const Place& place_;
  sim::Simulation simulation_;
  Watch watch_;
  sim::LoopChecker loops_;
  sim::PartitionChecker partitions_;
  Outcome outcome_;
};

}  // namespace

Place at_the_owner() {
  sim::RingPlan plan;
  plan.nodes = 3;
  plan.wtr_ms = kWtrMs;
  return {"owner", sim::make_ring(plan), 0, 0};
}

Place at_the_interconnection_node() {
  sim::LadderPlan plan;
  plan.wtr_ms = kWtrMs;
  return {"interconnection node", sim::make_ladder(plan), 1, 1};
}

Outcome live_through(const Place& place, const FailingCall& call) {
  try {
    return Life(place).live(call);
  } catch (const sim::Violation& violation) {
    Outcome outcome;
    outcome.failed = 1;
    outcome.mistakes.push_back(violation.what());
    return outcome;
  }
}

}  // namespace erps::failures
