// What a campaign has done so far, in a file that is whole at every moment.
//
// Errors: LabError for a file that cannot be read or written, or belongs to another campaign.
#pragma once

#include <string>
#include <vector>

#include "lab/simulate/case_result.h"

namespace erps::lab {

// Numbers, mostly without gaps.
class NumberSet {
 public:
  void add(uint64_t number);
  bool has(uint64_t number) const;
  std::vector<uint64_t> all() const;
  // Ascending, inclusive, neither touching nor overlapping.
  const std::map<uint64_t, uint64_t>& ranges() const { return ranges_; }

 private:
  std::map<uint64_t, uint64_t> ranges_;  // first and last
};

struct CampaignState {
  Tally tally;
  std::vector<CaseResult> results;
  NumberSet done;
};

// key: tells campaigns apart. Of a file that is not there: nothing done.
CampaignState load_state(const std::string& path, const std::string& key);
void save_state(const std::string& path, const std::string& key, const CampaignState& state);

}  // namespace erps::lab
