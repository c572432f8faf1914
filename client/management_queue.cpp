#include "client/management_queue.h"

#include <errno.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <time.h>

#include <string>

#include "client/error.h"

namespace erps::client {

namespace {

constexpr int kReadWrite = 0600;  // what msgget checks the permission of; it creates nothing

constexpr timespec kPause{0, 500'000};  // between looks at a full queue

std::string queue_name() {
  return "the management queue (key " + std::to_string(mgmt::kQueueKey) + ")";
}

[[noreturn]] void throw_stopped() {
  throw ClientError(ErrorKind::kDaemonStopped, queue_name() + " was removed: the daemon stopped");
}

}  // namespace

ManagementQueue::ManagementQueue() : id_(msgget(mgmt::kQueueKey, kReadWrite)) {
  if (id_ >= 0) {
    return;
  }
  switch (errno) {
    case ENOENT:
      throw ClientError(ErrorKind::kNoDaemon,
                        queue_name() + " does not exist: the daemon is not running");
    case EACCES:
      throw ClientError(ErrorKind::kPermission, "no permission to use " + queue_name());
    default:
      throw_system_error("opening " + queue_name(), errno);
  }
}

void ManagementQueue::put(const QueuedMessage& message, size_t length,
                          std::chrono::steady_clock::time_point deadline) const {
  while (msgsnd(id_, &message, length, IPC_NOWAIT) != 0) {
    switch (errno) {
      case EINTR:
        continue;
      case EAGAIN:
        if (std::chrono::steady_clock::now() < deadline) {
          nanosleep(&kPause, nullptr);
          continue;
        }
        throw ClientError(ErrorKind::kQueueFull,
                          queue_name() + " stays full: the module does not take its requests");
      case EIDRM:
      case EINVAL:
        throw_stopped();
      default:
        throw_system_error("putting a request on " + queue_name(), errno);
    }
  }
}

bool ManagementQueue::take(long type, QueuedMessage* message, size_t* length) const {
  for (;;) {
    const ssize_t received = msgrcv(id_, message, sizeof message->text, type, IPC_NOWAIT);
    if (received >= 0) {
      *length = static_cast<size_t>(received);
      return true;
    }
    switch (errno) {
      case ENOMSG:
        return false;
      case EINTR:
        continue;
      case E2BIG:
        discard(type);
        throw ClientError(
            ErrorKind::kMalformedReply,
            "malformed reply: longer than " + std::to_string(sizeof message->text) + " bytes");
      case EIDRM:
      case EINVAL:
        throw_stopped();
      default:
        throw_system_error("taking a reply off " + queue_name(), errno);
    }
  }
}

int ManagementQueue::discard(long type) const noexcept {
  QueuedMessage message;
  int count = 0;
  for (;;) {
    const ssize_t received =
        msgrcv(id_, &message, sizeof message.text, type, IPC_NOWAIT | MSG_NOERROR);
    if (received >= 0) {
      ++count;
    } else if (errno != EINTR) {
      return count;
    }
  }
}

}  // namespace erps::client
