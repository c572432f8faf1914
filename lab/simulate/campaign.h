// Plays all scenarios of a source in several processes, and keeps what is done in a file, from
// which the same campaign goes on.
//
// Threading: one thread; SIGINT and SIGTERM end the campaign in good order. Errors: LabError for a
// state file that cannot be used, and when processes cannot be started.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "lab/simulate/case_result.h"
#include "lab/simulate/case_source.h"

namespace erps::lab {

struct CampaignOptions {
  std::string module;
  size_t jobs = 1;
  std::string state;     // file, empty: none
  bool changes = false;  // results say what came of every change, and all of them are kept
};

struct Progress {
  const Tally& tally;
  uint64_t done = 0;
  uint64_t count = 0;
  uint64_t done_before = 0;  // of those, by the state file
  double elapsed_s = 0;
};

struct Campaign {
  Tally tally;
  std::vector<CaseResult> results;  // all, or the first failures; by number
  bool interrupted = false;
  double elapsed_s = 0;
  uint64_t count = 0;
  uint64_t done_before = 0;
};

struct CampaignCalls {
  std::function<void(const CaseResult&)> on_result;  // as they come
  // A failure has been made small: CaseResult::smallest is there.
  std::function<void(const CaseResult&)> on_smallest;
  std::function<void(const Progress&)> on_progress;  // a few times a second
};

Campaign run_campaign(const CaseSource& source, const CampaignOptions& options,
                      const CampaignCalls& calls);

}  // namespace erps::lab
