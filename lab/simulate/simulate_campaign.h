// Many simulations: prints what is found as it comes, the progress, and the counts at the end, and
// returns the exit status.
#pragma once

#include "lab/simulate/simulate_single.h"

namespace erps::lab {

int simulate_campaign(const SimulateContext& context, const CaseSource& source, uint64_t jobs);

}  // namespace erps::lab
