// What a campaign found, for people, for programs and for a browser.
#pragma once

#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "lab/simulate/campaign.h"

namespace erps::lab {

// Of every scenario that is counted through: one line, or with what came of each change.
std::string result_line(const CaseResult& result);
std::string result_text(const CaseResult& result);
// Of a scenario that failed: what was found, and the command that shows it again.
std::string failure_text(const CaseSource& source, const CaseResult& result);
std::string again_command(const CaseSource& source, uint64_t number);

// "cut 12, crash 3"; kinds that did not occur are left out.
std::string fault_counts(const Tally& tally);
// Lines of names with counts; how often what the protocol does by itself was seen.
std::string surprises_text(const std::map<std::string, uint64_t>& surprises);
std::string summary_text(const Campaign& campaign);
// "[#####.....] 51 %, 12,345 of ..." in one line without its end.
std::string progress_text(const Progress& progress);

nlohmann::json campaign_json(const CaseSource& source, const Campaign& campaign);
// One page that needs nothing besides itself.
std::string campaign_page(const CaseSource& source, const Campaign& campaign);

}  // namespace erps::lab
