// Makes a scenario that ends in a finding as small as it can be: faults that the finding does not
// need are left out, then times are made round and short, as long as a finding of the same kind
// remains.
//
// Threading: one thread. Errors: those of what plays.
#pragma once

#include <functional>

#include "sim/campaign/scenario.h"

namespace erps::sim {

// Whether a case still shows what is looked for.
using Shows = std::function<bool(const Case&)>;

// `most_plays` bounds how often `shows` is asked. The result shows it; so must `found`.
Case minimise(const Case& found, const Shows& shows, size_t most_plays);

}  // namespace erps::sim
