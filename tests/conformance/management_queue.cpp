#include "tests/conformance/management_queue.h"

#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "tests/unit/recording_platform.h"

namespace erps::test {

ManagementQueue& ManagementQueue::instance() {
  static ManagementQueue queue;
  return queue;
}

}  // namespace erps::test

using erps::test::ManagementQueue;
using erps::test::RecordingPlatform;

extern "C" {

ssize_t __wrap_msgrcv(int id, void* message, size_t size, long type, int flags) {
  RecordingPlatform::instance().record("msgrcv", std::to_string(id) + ", " + std::to_string(size) +
                                                     ", " + std::to_string(type) + ", " +
                                                     std::to_string(flags));
  ManagementQueue& queue = ManagementQueue::instance();
  if (!queue.request) {
    errno = ENOMSG;
    return -1;
  }
  if (queue.request->size() > size) {
    errno = E2BIG;  // and the message stays
    return -1;
  }
  const std::vector<uint8_t> text = *queue.request;
  queue.request.reset();
  auto* out = static_cast<uint8_t*>(message);
  *reinterpret_cast<long*>(out) = type;
  std::copy(text.begin(), text.end(), out + sizeof(long));
  return static_cast<ssize_t>(text.size());
}

int __wrap_msgsnd(int id, const void* message, size_t size, int flags) {
  const auto* bytes = static_cast<const uint8_t*>(message);
  RecordingPlatform::instance().record(
      "msgsnd", std::to_string(id) + ", " + std::to_string(size) + ", " + std::to_string(flags),
      {bytes, bytes + sizeof(long) + size});
  if (ManagementQueue::instance().send_fails) {
    errno = EAGAIN;
    return -1;
  }
  return 0;
}
}
