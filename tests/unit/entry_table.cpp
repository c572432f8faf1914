#include "tests/unit/entry_table.h"

#include <algorithm>
#include <functional>
#include <map>
#include <ostream>
#include <stdexcept>

#include "tests/unit/steps.h"

namespace erps::test {
namespace {

constexpr const char* kStateNames[] = {"init", "idle", "protection", "manual", "forced", "pending"};

std::string state_name(int32_t state) {
  return state >= 0 && state <= 5 ? kStateNames[state] : "other";
}

int32_t state_number(const std::string& name) {
  return static_cast<int32_t>(std::find(std::begin(kStateNames), std::end(kStateNames), name) -
                              std::begin(kStateNames));
}

// A ring of ports 1 and 2, the second one the RPL port, that carries out what a row says.
class ModelRing {
 public:
  ModelRing(const RingCondition& condition, uint32_t cause, bool repeating)
      : c_(condition), cause_(cause) {
    outcome_ = {"",
                condition.state,
                false,
                repeating,
                condition.local_priority,
                condition.event_port,
                condition.flush_port};
  }

  bool holds(const std::string& word) const {
    return word[0] == '!' ? !facts().at(word.substr(1))(*this) : facts().at(word)(*this);
  }

  void carry_out(const std::string& step) {
    const auto found = operations().find(step);
    if (found != operations().end()) {
      found->second(*this);
    } else if (step.rfind("tx ", 0) == 0) {
      send(step.substr(3));
    } else if (step.rfind("-> ", 0) == 0 || step == "stay") {
      outcome_.state = step == "stay" ? c_.state : state_number(step.substr(3));
      outcome_.state_entered = true;
      add("-> " + state_name(outcome_.state));
    } else if (step.rfind("error: ", 0) == 0) {
      const size_t at = step.find("$S");
      add(at == std::string::npos
              ? step
              : step.substr(0, at) + std::to_string(c_.state) + step.substr(at + 2));
    } else {
      throw std::logic_error("unknown step " + step);
    }
  }

  EntryOutcome outcome() const {
    EntryOutcome outcome = outcome_;
    outcome.steps = join(steps_, "; ");
    return outcome;
  }

 private:
  using Fact = std::function<bool(const ModelRing&)>;
  using Operation = std::function<void(ModelRing&)>;

  static const std::map<std::string, Fact>& facts() {
    static const std::map<std::string, Fact> kFacts = {
        {"owner", [](const ModelRing& r) { return (r.c_.node_role & 1) != 0; }},
        {"neighbour", [](const ModelRing& r) { return (r.c_.node_role & 2) != 0; }},
        {"plain", [](const ModelRing& r) { return r.plain(); }},
        {"revertive", [](const ModelRing& r) { return r.c_.non_revertive == 0; }},
        {"non-revertive", [](const ModelRing& r) { return r.c_.non_revertive == 1; }},
        {"any-blocked",
         [](const ModelRing& r) {
           return r.any([&r](size_t i) { return r.up(i) && r.blocked(i); });
         }},
        {"RPL-blocked",
         [](const ModelRing& r) {
           return !r.plain() && !r.sub() &&
                  r.any([&r](size_t i) { return r.is_rpl(i) && r.blocked(i); });
         }},
        {"requested-blocked",
         [](const ModelRing& r) {
           return r.any([&r](size_t i) { return r.requested(i) && r.blocked(i); });
         }},
        {"failed-blocked",
         [](const ModelRing& r) {
           return r.c_.event_port != -1 &&
                  r.any([&r](size_t i) { return !r.up(i) && r.blocked(i); });
         }},
        {"lower-remote", [](const ModelRing& r) { return r.c_.remote_is_lower; }},
        {"hold-off", [](const ModelRing& r) { return r.c_.holdoff_running; }},
    };
    return kFacts;
  }

  static const std::map<std::string, Operation>& operations() {
    static const std::map<std::string, Operation> kOperations = {
        {"block RPL",
         [](ModelRing& r) {
           r.set(1, [&r](size_t i) { return r.sub() || (r.is_rpl(i) && !r.plain()); });
         }},
        {"unblock non-RPL",
         [](ModelRing& r) {
           r.set(4, [&r](size_t i) { return r.plain() || (!r.sub() && !r.is_rpl(i)); });
         }},
        {"block requested",
         [](ModelRing& r) { r.set(1, [&r](size_t i) { return r.requested(i); }); }},
        {"unblock non-requested",
         [](ModelRing& r) { r.set(4, [&r](size_t i) { return !r.requested(i) && r.up(i); }); }},
        {"block failed",
         [](ModelRing& r) { r.set(1, [&r](size_t i) { return !r.up(i) && !r.blocked(i); }); }},
        {"unblock non-failed",
         [](ModelRing& r) { r.set(4, [&r](size_t i) { return r.up(i) && r.blocked(i); }); }},
        {"unblock ring ports", [](ModelRing& r) { r.set(4, [&r](size_t i) { return r.up(i); }); }},
        {"stop tx", [](ModelRing& r) { r.outcome_.repeating = false; }},
        {"flush", [](ModelRing& r) { r.flush_named_port(); }},
        {"flush ring",
         [](ModelRing& r) { r.each_port([&r](size_t i) { r.add("flush " + r.id(i)); }); }},
        {"name first port", [](ModelRing& r) { r.outcome_.flush_port = 1; }},
        {"start guard", [](ModelRing& r) { r.add("start guard"); }},
        {"start WTR", [](ModelRing& r) { r.start("start WTR", 5); }},
        {"start WTB", [](ModelRing& r) { r.start("start WTB", 3); }},
        {"stop WTR", [](ModelRing& r) { r.stop("stop WTR", 5); }},
        {"stop WTB", [](ModelRing& r) { r.stop("stop WTB", 3); }},
        {"stop hold-off", [](ModelRing& r) { r.add("stop hold-off"); }},
    };
    return kOperations;
  }

  bool sub() const { return c_.ring_role == 2; }
  bool plain() const { return (c_.node_role & 4) != 0; }
  bool up(size_t i) const { return c_.links[i] == 1; }
  bool blocked(size_t i) const { return c_.states[i] == 1; }
  bool is_rpl(size_t i) const { return i == 1; }
  bool requested(size_t i) const { return c_.request_port == i + 1; }
  static std::string id(size_t i) { return std::to_string(i + 1); }
  size_t ports() const { return sub() ? 1 : 2; }

  void add(const std::string& step) { steps_.push_back(step); }

  bool any(const std::function<bool(size_t)>& test) const {
    return test(0) || (ports() == 2 && test(1));
  }

  void each_port(const std::function<void(size_t)>& action) const {
    for (size_t i = 0; i < ports(); ++i) {
      action(i);
    }
  }

  void set(uint32_t state, const std::function<bool(size_t)>& chosen) {
    each_port([&](size_t i) {
      if (chosen(i)) {
        c_.states[i] = state;
        add((state == 1 ? "block " : "unblock ") + id(i));
      }
    });
  }

  void send(const std::string& message) {
    bool bpr = false;
    switch (cause_) {
      case 2:
      case 4:
      case 5:
      case 7:
      case 8:  // the port of the local request
        bpr = outcome_.event_port == 2;
        break;
      case 0:
      case 9:
      case 11:  // the last forwarding port
        bpr = c_.states[1] == 4;
        break;
      default:
        break;
    }
    outcome_.event_port = -1;
    each_port([&](size_t i) {
      if (up(i) && (c_.ring_role != 0 || !blocked(i))) {
        for (int copy = 0; copy < (sub() ? 3 : 1); ++copy) {
          add(message + (bpr ? ",BPR" : "") + " > " + id(i));
        }
      }
    });
    add("repeat");
    outcome_.repeating = true;
  }

  void flush_named_port() {
    if (sub()) {
      add("flush 1");
    } else if (outcome_.flush_port == 1 || outcome_.flush_port == 2) {
      add("flush " + std::to_string(outcome_.flush_port));
      outcome_.flush_port = 255;
    }
  }

  // A delay timer is a local request of its own while it runs.
  void start(const std::string& step, uint32_t request) {
    add(step);
    outcome_.local_priority = std::max(outcome_.local_priority, request);
  }
  void stop(const std::string& step, uint32_t request) {
    add(step);
    if (outcome_.local_priority == request) {
      outcome_.local_priority = 0;
    }
  }

  RingCondition c_;
  uint32_t cause_;
  EntryOutcome outcome_{};
  std::vector<std::string> steps_;
};

bool matches(const EntryRow& row, const std::string& state, const ModelRing& ring) {
  return std::find(row.states.begin(), row.states.end(), state) != row.states.end() &&
         std::all_of(row.when.begin(), row.when.end(),
                     [&ring](const std::string& word) { return ring.holds(word); });
}

}  // namespace

EntryRow::EntryRow(const char* states_text, const char* when_text, const char* then_text)
    : states(split(states_text, " ")), when(split(when_text, " ")), then(split(then_text, "; ")) {}

std::string describe(const RingCondition& c) {
  return "in " + state_name(c.state) + " (" + std::to_string(c.state) + "), node role " +
         std::to_string(c.node_role) + ", ring role " + std::to_string(c.ring_role) + ", mode " +
         std::to_string(c.non_revertive) + ", links " + std::to_string(c.links[0]) +
         std::to_string(c.links[1]) + ", port states " + std::to_string(c.states[0]) +
         std::to_string(c.states[1]) + ", request port " + std::to_string(c.request_port) +
         ", event port " + std::to_string(c.event_port) + ", flush port " +
         std::to_string(c.flush_port) + ", local request " + std::to_string(c.local_priority) +
         (c.remote_is_lower ? ", remote node ID lower" : "") +
         (c.holdoff_running ? ", hold-off running" : "");
}

void PrintTo(const EntryOutcome& outcome, std::ostream* out) {
  *out << '"' << outcome.steps << "\", state " << outcome.state
       << (outcome.state_entered ? " entered" : " untouched")
       << (outcome.repeating ? ", repeating" : ", silent") << ", local request "
       << outcome.local_priority << ", event port " << outcome.event_port << ", flush port "
       << outcome.flush_port;
}

EntryOutcome expected_outcome(const EntryTable& table, const RingCondition& condition,
                              bool repeating) {
  ModelRing ring(condition, table.mach_enter, repeating);
  const std::string state = state_name(condition.state);
  const EntryRow* chosen = nullptr;
  for (const EntryRow& row : table.rows) {
    if (matches(row, state, ring)) {
      if (chosen != nullptr) {
        throw std::logic_error("two rows of " + table.name + " match " + describe(condition));
      }
      chosen = &row;
    }
  }
  if (chosen == nullptr) {
    throw std::logic_error("no row of " + table.name + " matches " + describe(condition));
  }
  for (const std::string& step : chosen->then) {
    ring.carry_out(step);
  }
  return ring.outcome();
}

}  // namespace erps::test
