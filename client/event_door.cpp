#include "client/event_door.h"

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "client/error.h"
#include "erps/mgmt/message.h"
#include "platform/event_queue.h"

namespace erps::client {

static_assert(sizeof(ERPS_EVENT_MSG_T) == 8 * sizeof(uintptr_t));

namespace {

class OpenDoor {
 public:
  OpenDoor() : queue_(mq_open(mgmt::kEventQueueName, O_WRONLY | O_CLOEXEC)) {
    if (queue_ != static_cast<mqd_t>(-1)) {
      return;
    }
    const std::string name = mgmt::kEventQueueName;
    switch (errno) {
      case ENOENT:
        throw ClientError(ErrorKind::kNoDoor,
                          "the event queue " + name + " does not exist: the module is not started");
      case EACCES:
        throw ClientError(ErrorKind::kPermission,
                          "no permission to announce requests on the event queue " + name);
      default:
        throw_system_error("opening the event queue " + name, errno);
    }
  }
  ~OpenDoor() { mq_close(queue_); }
  OpenDoor(const OpenDoor&) = delete;
  OpenDoor& operator=(const OpenDoor&) = delete;

  mqd_t get() const { return queue_; }

 private:
  mqd_t queue_;
};

// The same moment on the clock that mq_timedsend waits by.
timespec wall_time(std::chrono::steady_clock::time_point moment) {
  using std::chrono::nanoseconds;
  const auto ahead = std::max(moment - std::chrono::steady_clock::now(), nanoseconds(0));
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  constexpr int64_t kSecondNs = 1'000'000'000;
  const int64_t nanos = time.tv_nsec + nanoseconds(ahead).count();
  return {.tv_sec = time.tv_sec + nanos / kSecondNs, .tv_nsec = nanos % kSecondNs};
}

}  // namespace

void announce_request(long message_type, std::chrono::steady_clock::time_point deadline) {
  const OpenDoor door;
  ERPS_EVENT_MSG_T event = {};
  event.event_class = mgmt::kEventClass;
  event.sender = static_cast<uintptr_t>(syscall(SYS_gettid));
  event.type = mgmt::kEventTypeConf;
  event.payload = static_cast<uintptr_t>(message_type);

  char bytes[sizeof event];
  memcpy(bytes, &event, sizeof event);
  const timespec until = wall_time(deadline);
  while (mq_timedsend(door.get(), bytes, sizeof bytes, 0, &until) != 0) {
    if (errno == EINTR) {
      continue;
    }
    if (errno == ETIMEDOUT) {
      throw ClientError(ErrorKind::kDoorFull,
                        std::string("the event queue ") + mgmt::kEventQueueName +
                            " stays full: the module does not take its events");
    }
    throw_system_error(std::string("announcing a request on ") + mgmt::kEventQueueName, errno);
  }
}

}  // namespace erps::client
