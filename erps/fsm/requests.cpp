#include "erps/fsm/requests.h"

const char* erps_state_name(int32_t state) {
  static constexpr std::array<const char*, 6> kNames = {"init",   "idle",   "protection",
                                                        "manual", "forced", "pending"};
  if (state < 0 || state >= static_cast<int32_t>(kNames.size())) {
    return "notting";
  }
  return kNames[static_cast<size_t>(state)];
}
