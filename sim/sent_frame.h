// What an R-APS frame says that a module keeps for repetition.
//
// Threading: any thread. Errors: none.
#pragma once

#include <cstddef>
#include <cstdint>

namespace erps::sim {

// The blocked port reference of a tagged frame; false for any other length. ITU-T G.8032, 10.3.
bool bpr_of(const uint8_t* frame, size_t length);

}  // namespace erps::sim
