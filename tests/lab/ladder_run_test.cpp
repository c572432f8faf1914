// The ladder of two rings in namespaces.
#include <gtest/gtest.h>

#include "tests/lab/lab_process.h"

namespace erps::lab::testing {
namespace {

// Each link of either ring is cut and restored under traffic that crosses both, then both
// major-ring links of one interconnection node at once.
TEST(LadderRun, HoldsEveryExpectation) {
  const std::string example = ERPS_EXAMPLES "/ladder.toml";
  const LabResult result = run_until_decided(
      {lab_path(), "run", example, "--erpsd", daemon_path(), "--module", module_path()},
      std::chrono::seconds(450));
  EXPECT_EQ(result.status, 0) << result.out << result.err;
}

}  // namespace
}  // namespace erps::lab::testing
