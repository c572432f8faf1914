// An IPC namespace for the test process: its queues are nobody else's and end with it.
#pragma once

#include <string>

namespace erps::test {

// Enters a fresh IPC namespace, with a user namespace around it when the caller is not privileged.
// Call before any thread exists. Returns "" or why it was not possible.
std::string enter_ipc_namespace();

// Skips the running test, loudly, when enter_ipc_namespace() failed.
#define REQUIRE_IPC_NAMESPACE()                                                                \
  if (!::erps::test::ipc_namespace_problem().empty()) {                                        \
    GTEST_SKIP() << "NOT TESTED, no IPC namespace: " << ::erps::test::ipc_namespace_problem(); \
  }                                                                                            \
  static_assert(true, "")

const std::string& ipc_namespace_problem();

}  // namespace erps::test
