// The management queue as the module sees it, without a queue: one request is there or not, replies
// are kept. msgrcv and msgsnd are redirected here (link option --wrap); both write themselves down
// on the recording platform.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace erps::test {

struct ManagementQueue {
  static constexpr int kId = 7;

  std::optional<std::vector<uint8_t>> request;  // text behind the type; taken by msgrcv
  bool send_fails = false;                      // as a full queue does

  static ManagementQueue& instance();
};

}  // namespace erps::test
