// Visits every state that a small network can get into, and judges each of them.
//
//   explore::Model model(topology, module_path, {.cuts = 1});
//   explore::Explorer explorer(model, limits);
//   const explore::Report& report = explorer.run();
//
// States are visited in the order of their distance from the start, so that the first violation is
// one that no shorter way leads to.
//
// Threading: one thread; `stop` may be set from a signal handler. Errors: SimError.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/explore/judge.h"
#include "sim/explore/model.h"
#include "sim/explore/state_store.h"

namespace erps::sim::explore {

// How the network gets from its start into trouble.
struct Trouble {
  std::string what;
  NetworkState start;
  std::vector<Step> steps;
  // What is wrong comes again and again, with the steps from this one on; none: it is wrong at the
  // end.
  std::optional<size_t> repeats_from;
};

enum class Ending {
  kExhausted,    // every state was visited, and what lasts was judged
  kNotJudged,    // every state was visited; a limit came before what lasts was judged
  kTimeLimit,    // --minutes
  kMemoryLimit,  // --memory
  kStopped,      // by the caller
  kTrouble,      // a violation was found
};

struct Surprise {
  uint64_t states = 0;
  Trouble first;
};

struct Report {
  Ending ending = Ending::kExhausted;
  uint64_t states = 0;
  uint64_t expanded = 0;     // whose steps have been followed; the rest is the frontier
  uint64_t transitions = 0;  // steps that have been followed
  uint32_t depth = 0;        // steps of the longest way that was needed
  uint64_t split = 0;        // states in which the network is split though working links join it
  uint64_t local_states = 0;
  uint64_t reactions = 0;  // events that the module itself has handled
  uint64_t bytes = 0;
  double seconds = 0;
  std::optional<Trouble> violation;
  std::map<std::string, Surprise> surprises;
  // From the last fault until all is well for good, the longest, in half seconds of every clock.
  // Not known when a surprise lasts.
  std::optional<uint32_t> halves_to_rest;
  // With a budget of ticks: whether it is large enough to demand that the network is at rest then.
  bool rest_is_judged = true;
};

struct Limits {
  size_t memory_bytes = size_t{1} << 30U;
  double seconds = 60;
  const std::atomic<bool>* stop = nullptr;
  std::function<void(const Report&)> progress;  // about once a second
};

class Explorer {
 public:
  Explorer(Model& model, Limits limits);

  const Report& run();

 private:
  friend class LastingCheck;

  // False when a limit has been reached; report_.ending then says which.
  bool within_limits(size_t more_bytes);
  bool judge(StateIndex index, const NetworkState& state);
  bool judge_end(StateIndex index, const NetworkState& state);
  // Records a violation, or counts a surprise. True when it is a violation.
  bool note(const Verdict& verdict, const std::function<Trouble()>& trouble);
  bool expand(StateIndex index, const NetworkState& state);
  NetworkState state_at(StateIndex index) const {
    return model_.packing().unpack(store_.at(index));
  }
  // The index of a state that has been reached.
  StateIndex index_of(const NetworkState& state) const;
  Trouble way_to(StateIndex index, const std::string& what);
  Step step_between(StateIndex from, StateIndex to);
  void count();

  Model& model_;
  Judge judge_;
  const Limits limits_;
  StateStore store_;
  std::vector<Model::Next> next_;
  std::chrono::steady_clock::time_point begin_;
  double last_progress_s_ = 0;
  size_t expanded_ = 0;
  Report report_;
};

}  // namespace erps::sim::explore
