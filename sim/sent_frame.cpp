#include "sim/sent_frame.h"

#include "erps/raps/frame.h"

namespace erps::sim {

bool bpr_of(const uint8_t* frame, size_t length) {
  return length == raps::kTaggedLength &&
         (frame[raps::kTaggedPdu + raps::kStatusOffset] & raps::kStatusBpr) != 0;
}

}  // namespace erps::sim
