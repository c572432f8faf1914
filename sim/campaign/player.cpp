#include "sim/campaign/player.h"

#include <algorithm>

#include "sim/campaign/fault_board.h"
#include "sim/checks/inspection.h"
#include "sim/checks/partition_checker.h"
#include "sim/sim_error.h"

namespace erps::sim {

namespace {

class MessageCounter final : public Observer {
 public:
  void on_record(const Record& record) override {
    switch (record.kind) {
      case RecordKind::kFrameSent:
        ++messages.sent;
        break;
      case RecordKind::kFrameReceived:
        ++messages.received;
        break;
      case RecordKind::kFrameLost:
        ++messages.lost;
        break;
      default:
        break;
    }
  }
  Messages messages;
};

// The beginnings and ends of all faults, by time; what ends at an instant ends before what begins.
std::vector<Change> changes_of(const Scenario& scenario) {
  std::vector<Change> changes{{}};
  for (size_t i = 0; i < scenario.faults.size(); ++i) {
    Change change;
    change.fault = i;
    change.at_us = scenario.faults[i].at_us;
    changes.push_back(change);
    change.ends = true;
    change.at_us = scenario.faults[i].until_us();
    changes.push_back(change);
  }
  std::stable_sort(changes.begin() + 1, changes.end(), [](const Change& one, const Change& other) {
    return one.at_us != other.at_us ? one.at_us < other.at_us : one.ends && !other.ends;
  });
  return changes;
}

class Play {
 public:
  Play(const Case& of, const Options& options, Onlooker* onlooker)
      : case_(of),
        onlooker_(onlooker),
        simulation_(of.topology, options),
        inspection_(simulation_),
        board_(simulation_, of.topology) {
    simulation_.observe(counter_);
    simulation_.observe(partitions_);
    outcome_.changes = changes_of(of.scenario);
    outcome_.home_bound_us = inspection_.home_bound_us();
    if (onlooker_ != nullptr) {
      onlooker_->on_begin(simulation_);
    }
  }

  Outcome run() {
    try {
      make_changes();
    } catch (const Violation& violation) {
      outcome_.changes.resize(open_ + 1);  // the others never came
      close(open_);
      outcome_.findings.push_back({"module",
                                   simulation_.now_us(),
                                   simulation_.now_us(),
                                   std::nullopt,
                                   violation.what(),
                                   {}});
    }
    const auto found = inspection_.findings();
    outcome_.findings.insert(outcome_.findings.end(), found.begin(), found.end());
    outcome_.simulated_us = simulation_.now_us();
    outcome_.messages = counter_.messages;
    outcome_.trace_hash = simulation_.trace_hash();
    return std::move(outcome_);
  }

 private:
  void make_changes() {
    auto& changes = outcome_.changes;
    for (size_t i = 0; i < changes.size(); ++i) {
      simulation_.run_until(changes[i].at_us);
      if (i > 0) {
        close(i - 1);
        const Fault& fault = case_.scenario.faults[*changes[i].fault];
        changes[i].ends ? board_.end(fault) : board_.begin(fault);
        open_ = i;
      }
    }
    simulation_.run_until(case_.scenario.quiet_us);
    const int64_t quiet_us = simulation_.now_us();
    inspection_.expect_home();
    if (simulation_.now_us() - quiet_us < outcome_.home_bound_us) {
      outcome_.home_after_us = simulation_.now_us() - quiet_us;
    }
    close(changes.size() - 1);
  }

  // What the change at this index did is seen.
  void close(size_t index) {
    Change& change = outcome_.changes[index];
    const int64_t now_us = simulation_.now_us();
    for (const Spell& spell : partitions_.partitions().until(now_us)) {
      const int64_t from_us = std::max(spell.from_us, change.at_us);
      change.outage_us = std::max(change.outage_us, spell.to_us - from_us);
    }
    change.still_out = partitions_.partitions().holds();
    if (onlooker_ != nullptr) {
      onlooker_->on_settled(simulation_, change);
    }
  }

  const Case& case_;
  Onlooker* onlooker_;
  size_t open_ = 0;  // index of the last change
  MessageCounter counter_;
  PartitionChecker partitions_;
  Simulation simulation_;
  Inspection inspection_;
  FaultBoard board_;
  Outcome outcome_;
};

}  // namespace

bool Outcome::clean() const {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& finding) { return finding.is_violation(); });
}

Outcome play(const Case& of, const std::string& module_path, Onlooker* onlooker) {
  Options options = of.options;
  options.module_path = module_path;
  return Play(of, options, onlooker).run();
}

}  // namespace erps::sim
