#include "lab/simulate/campaign.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <nlohmann/json.hpp>

#include "lab/clock.h"
#include "lab/lab_error.h"
#include "lab/simulate/campaign_state.h"
#include "lab/simulate/case_player.h"
#include "lab/simulate/worker_pool.h"

namespace erps::lab {

namespace {

// Failures of a campaign that are kept; the others are counted.
constexpr size_t kMostFailures = 50;
// Failures of each kind that are made small.
constexpr size_t kMostSmallest = 2;
// Marks the job of making a failure small.
constexpr uint64_t kSmallest = uint64_t{1} << 63U;
constexpr int kWaitMs = 200;
constexpr int64_t kSaveEveryNs = 2 * kNsPerS;

volatile std::sig_atomic_t interrupted = 0;

void on_signal(int /*number*/) {
  interrupted = 1;
}

// Ends a campaign in good order at the first Ctrl-C; the second one is not held up.
class Interruption {
 public:
  Interruption() {
    interrupted = 0;
    struct sigaction action {};
    action.sa_handler = on_signal;
    action.sa_flags = SA_RESETHAND;
    sigaction(SIGINT, &action, &before_int_);
    sigaction(SIGTERM, &action, &before_term_);
    std::signal(SIGPIPE, SIG_IGN);
  }
  ~Interruption() {
    sigaction(SIGINT, &before_int_, nullptr);
    sigaction(SIGTERM, &before_term_, nullptr);
  }
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  bool came() const { return interrupted != 0; }

 private:
  struct sigaction before_int_ {};
  struct sigaction before_term_ {};
};

CaseResult result_of(const CaseSource& source, const WorkerPool::Done& done) {
  if (done.death.empty()) {
    return case_result_of(nlohmann::json::parse(done.answer));
  }
  if (done.cannot_run) {
    throw LabError("scenario " + std::to_string(done.job) + " cannot be simulated");
  }
  CaseResult result;
  result.number = done.job;
  result.title = source.at(done.job).title;
  result.violations.push_back(
      {"module", 0, 0, std::nullopt, "the simulation ended with " + done.death, {}});
  return result;
}

class Run {
 public:
  Run(const CaseSource& source, const CampaignOptions& options, const CampaignCalls& calls)
      : source_(source), options_(options), calls_(calls), begun_ns_(mono_ns()) {
    campaign_.count = source.count();
    if (!options.state.empty()) {
      const auto state = load_state(options.state, source.key());
      campaign_.tally = state.tally;
      campaign_.results = state.results;
      done_ = state.done;
      for (const uint64_t number : done_.all()) {
        campaign_.done_before += number < campaign_.count ? 1 : 0;
      }
      done_count_ = campaign_.done_before;
    }
  }

  Campaign run() {
    const Interruption interruption;
    {
      WorkerPool pool(options_.jobs, [&](uint64_t job) { return answer(job); });
      give_jobs(pool);
      while (pool.is_busy() && !interruption.came()) {
        const auto done = pool.wait(kWaitMs);
        if (done && !interruption.came()) {
          (done->job & kSmallest) != 0 ? take_smallest(*done) : take(result_of(source_, *done));
        }
        give_jobs(pool);
        report_progress(false);
      }
      campaign_.interrupted = interruption.came();
    }
    report_progress(true);
    save();
    std::sort(
        campaign_.results.begin(), campaign_.results.end(),
        [](const CaseResult& one, const CaseResult& other) { return one.number < other.number; });
    campaign_.elapsed_s = elapsed_s();
    return std::move(campaign_);
  }

 private:
  // In a process of the pool.
  std::string answer(uint64_t job) const {
    if ((job & kSmallest) == 0) {
      return to_json(play_case(source_, job, options_.module, options_.changes)).dump();
    }
    const SmallestCase smallest = smallest_case(source_, job & ~kSmallest, options_.module);
    return nlohmann::json{{"text", smallest.text}, {"faults", smallest.faults}}.dump();
  }

  void give_jobs(WorkerPool& pool) {
    while (pool.has_idle()) {
      if (!to_make_small_.empty()) {
        pool.give(to_make_small_.back() | kSmallest);
        to_make_small_.pop_back();
        continue;
      }
      while (next_ < campaign_.count && done_.has(next_)) {
        ++next_;
      }
      if (next_ == campaign_.count) {
        return;
      }
      pool.give(next_++);
    }
  }

  void take(CaseResult result) {
    campaign_.tally.add(result);
    done_.add(result.number);
    ++done_count_;
    calls_.on_result(result);
    // What ended a process would end the one that makes it small.
    if (!result.clean() && result.simulated_us > 0 &&
        small_of_kind_[result.violations.front().check]++ < kMostSmallest) {
      to_make_small_.push_back(result.number);
    }
    if (options_.changes || (!result.clean() && campaign_.results.size() < kMostFailures)) {
      campaign_.results.push_back(std::move(result));
    }
  }

  void take_smallest(const WorkerPool::Done& done) {
    if (!done.death.empty()) {
      return;
    }
    for (CaseResult& result : campaign_.results) {
      if (result.number == (done.job & ~kSmallest)) {
        const auto smallest = nlohmann::json::parse(done.answer);
        result.smallest = smallest.at("text");
        result.smallest_faults = smallest.at("faults");
        calls_.on_smallest(result);
      }
    }
  }

  void report_progress(bool last) {
    const int64_t now_ns = mono_ns();
    if (last || now_ns - reported_ns_ > kWaitMs * kNsPerMs) {
      reported_ns_ = now_ns;
      calls_.on_progress(
          {campaign_.tally, done_count_, campaign_.count, campaign_.done_before, elapsed_s()});
    }
    if (now_ns - saved_ns_ > kSaveEveryNs) {
      save();
    }
  }

  void save() {
    saved_ns_ = mono_ns();
    if (!options_.state.empty()) {
      save_state(options_.state, source_.key(), {campaign_.tally, campaign_.results, done_});
    }
  }

  double elapsed_s() const { return static_cast<double>(mono_ns() - begun_ns_) / kNsPerS; }

  const CaseSource& source_;
  const CampaignOptions& options_;
  const CampaignCalls& calls_;
  const int64_t begun_ns_;
  int64_t reported_ns_ = 0;
  int64_t saved_ns_ = 0;
  Campaign campaign_;
  NumberSet done_;
  std::vector<uint64_t> to_make_small_;
  std::map<std::string, size_t> small_of_kind_;  // by check
  uint64_t done_count_ = 0;
  uint64_t next_ = 0;
};

}  // namespace

Campaign run_campaign(const CaseSource& source, const CampaignOptions& options,
                      const CampaignCalls& calls) {
  return Run(source, options, calls).run();
}

}  // namespace erps::lab
