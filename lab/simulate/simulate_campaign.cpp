#include "lab/simulate/simulate_campaign.h"

#include <unistd.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "lab/clock.h"
#include "lab/command_run.h"
#include "lab/lab_error.h"
#include "lab/programs.h"
#include "lab/simulate/campaign_report.h"

namespace erps::lab {

namespace {

constexpr int kInterrupted = 130;
// Scenarios that are counted through and told one by one, change by change.
constexpr uint64_t kMostInFull = 40;
constexpr int64_t kPlainProgressNs = 10 * kNsPerS;

class Teller {
 public:
  Teller(const SimulateContext& context, const CaseSource& source)
      : context_(context),
        source_(source),
        json_(context.arguments.json),
        terminal_(isatty(STDERR_FILENO) == 1),
        in_full_(!source.plan().random &&
                 (context.arguments.verbose || source.count() <= kMostInFull)) {}

  bool tells_changes() const { return !source_.plan().random; }

  void result(const CaseResult& result) {
    if (json_) {
      return;
    }
    if (source_.plan().random) {
      tell(result.clean() ? "" : failure_text(source_, result));
      return;
    }
    // They come in any order and are told in theirs.
    waiting_.emplace(result.number, result);
    while (!waiting_.empty() && waiting_.begin()->first == next_) {
      const CaseResult& due = waiting_.begin()->second;
      tell((in_full_ ? result_text(due) : result_line(due)) +
           (due.clean() ? "" : failure_text(source_, due)));
      waiting_.erase(waiting_.begin());
      ++next_;
    }
  }

  void smallest(const CaseResult& result) {
    const CasePlan& plan = source_.plan();
    const std::string& directory = context_.arguments.scenarios;
    const std::string path = (directory.empty() ? "" : directory + "/") + "scenario-" +
                             std::to_string(plan.seed) + "-" + std::to_string(result.number) +
                             ".toml";
    write_file(path, "# " + again_command(source_, result.number) + "\n" + result.smallest);
    if (!json_) {
      tell("\nsmallest of scenario " + std::to_string(result.number) + ", " +
           std::to_string(result.smallest_faults) +
           (result.smallest_faults == 1 ? " fault" : " faults") + ": " +
           command_begin(context_.arguments) + " --scenario " + shell_word(path) + "\n");
    }
  }

  void progress(const Progress& progress) {
    if (terminal_) {
      std::fprintf(stderr, "\r\033[K%s", progress_text(progress).c_str());
      shown_ = true;
      if (progress.done == progress.count) {
        clear();
      }
    } else if (mono_ns() - told_ns_ > kPlainProgressNs) {
      told_ns_ = mono_ns();
      std::fprintf(stderr, "%s\n", progress_text(progress).c_str());
    }
  }

  void clear() {
    if (shown_) {
      std::fputs("\r\033[K", stderr);
      shown_ = false;
    }
  }

 private:
  void tell(const std::string& text) {
    if (!text.empty()) {
      clear();
      print(text);
    }
  }

  const SimulateContext& context_;
  const CaseSource& source_;
  const bool json_;
  const bool terminal_;
  const bool in_full_;
  bool shown_ = false;
  int64_t told_ns_ = mono_ns();
  std::map<uint64_t, CaseResult> waiting_;
  uint64_t next_ = 0;
};

// A campaign lasts for hours: what cannot be written at its end is said before.
void require_places(const SimulateArguments& arguments) {
  open_directory(arguments.scenarios);
  const std::filesystem::path directory = std::filesystem::path(arguments.report).parent_path();
  if (!directory.empty() && access(directory.c_str(), W_OK) != 0) {
    throw system_error(arguments.report);
  }
}

}  // namespace

int simulate_campaign(const SimulateContext& context, const CaseSource& source, uint64_t jobs) {
  require_places(context.arguments);
  print_seed(context);
  Teller teller(context, source);
  const CampaignOptions options{context.module, static_cast<size_t>(jobs), context.arguments.state,
                                teller.tells_changes()};
  const Campaign campaign =
      run_campaign(source, options,
                   {[&](const CaseResult& result) { teller.result(result); },
                    [&](const CaseResult& result) { teller.smallest(result); },
                    [&](const Progress& progress) { teller.progress(progress); }});
  teller.clear();
  print(context.arguments.json ? campaign_json(source, campaign).dump(2) + "\n"
                               : summary_text(campaign));
  if (!context.arguments.report.empty()) {
    write_file(context.arguments.report, campaign_page(source, campaign));
  }
  if (campaign.interrupted) {
    return kInterrupted;
  }
  return campaign.tally.failed == 0 ? kHeld : kFailed;
}

}  // namespace erps::lab
