#include "erps/fsm/requests.h"

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>

namespace erps::test {
namespace {

TEST(RequestsTest, every_node_state_has_its_name_and_any_other_number_is_notting) {
  const std::map<int32_t, std::string> names = {{0, "init"},   {1, "idle"},   {2, "protection"},
                                                {3, "manual"}, {4, "forced"}, {5, "pending"}};
  for (const auto& [state, name] : names) {
    EXPECT_EQ(erps_state_name(state), name);
  }
  for (const int32_t state : {-1, 6, 100, INT_MAX, INT_MIN}) {
    EXPECT_STREQ(erps_state_name(state), "notting") << state;
  }
}

TEST(RequestsTest, requests_rank_in_the_order_of_the_standard) {
  constexpr uint32_t kHighestFirst[] = {
      REQUEST_CLEAR,          REQUEST_FS,          REQUEST_RAPS_FS,     REQUEST_LOCAL_SF,
      REQUEST_LOCAL_CLEAR_SF, REQUEST_RAPS_SF,     REQUEST_RAPS_MS,     REQUEST_MS,
      REQUEST_WTR_EXPIRES,    REQUEST_WTR_RUNNING, REQUEST_WTB_EXPIRES, REQUEST_WTB_RUNNING,
      REQUEST_RAPS_NR_RB,     REQUEST_RAPS_NR,     REQUEST_NONE};
  uint32_t code = 14;
  for (const uint32_t request : kHighestFirst) {
    EXPECT_EQ(request, code--);
  }
}

TEST(RequestsTest, two_slots_of_the_row_numbering_stay_empty) {
  for (const ERPS_STATE_ROW_T& row : kStateRowTable) {
    EXPECT_NE(row.mach_enter, 10U) << row.name;
    EXPECT_NE(row.mach_enter, 12U) << row.name;
    EXPECT_LT(row.mach_enter, 15U) << row.name;
  }
}

}  // namespace
}  // namespace erps::test
