#include "linux/outside_door.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "erps/mgmt/message.h"
#include "linux/log.h"

namespace erps::linux_platform {
namespace {

constexpr long kDefaultKernelDepth = 10;

long kernel_depth_limit() {
  std::ifstream file("/proc/sys/fs/mqueue/msg_max");
  long limit = 0;
  return file >> limit && limit > 0 ? limit : kDefaultKernelDepth;
}

mqd_t create(const std::string& name, long depth) {
  mq_attr attributes{};
  attributes.mq_maxmsg = depth;
  attributes.mq_msgsize = sizeof(ERPS_EVENT_MSG_T);
  return mq_open(name.c_str(), O_RDONLY | O_CREAT | O_EXCL | O_NONBLOCK | O_CLOEXEC,
                 S_IRUSR | S_IWUSR, &attributes);
}

}  // namespace

const char* verdict_text(DoorVerdict verdict) {
  switch (verdict) {
    case DoorVerdict::kAccepted:
      return "accepted";
    case DoorVerdict::kEmpty:
      return "empty";
    case DoorVerdict::kWrongSize:
      return "wrong size";
    case DoorVerdict::kWrongClass:
      return "wrong class";
    case DoorVerdict::kWrongType:
      return "type not allowed from outside";
  }
  return "unknown";
}

int OutsideDoor::open(const std::string& name, int depth) {
  close();
  mq_unlink(name.c_str());
  long granted = std::max(depth, 1);
  queue_ = create(name, granted);
  if (queue_ < 0 && errno == EINVAL) {
    granted = std::min(granted, kernel_depth_limit());
    queue_ = create(name, granted);
  }
  while (queue_ < 0 && errno == EMFILE && granted > 1) {  // the limit on bytes in queues
    granted /= 2;
    queue_ = create(name, granted);
  }
  if (queue_ < 0) {
    return errno;
  }
  name_ = name;
  depth_.store(static_cast<size_t>(granted), std::memory_order_relaxed);
  // Said again because the process's umask has had its say at the creation.
  if (fchmod(queue_, group_ ? S_IRUSR | S_IWUSR | S_IWGRP : S_IRUSR | S_IWUSR) != 0 ||
      (group_ && fchown(queue_, static_cast<uid_t>(-1), *group_) != 0)) {
    const int error = errno;
    close();
    return error;
  }
  if (granted < depth) {
    logf(LogLevel::kDebug,
         "outside door %s: holds %ld messages, not %d; the limits are "
         "/proc/sys/fs/mqueue/msg_max and RLIMIT_MSGQUEUE",
         name.c_str(), granted, depth);
  }
  return 0;
}

void OutsideDoor::close() {
  if (queue_ < 0) {
    return;
  }
  mq_close(queue_);
  mq_unlink(name_.c_str());
  queue_ = -1;
  depth_.store(0, std::memory_order_relaxed);
}

DoorVerdict OutsideDoor::take(ERPS_EVENT_MSG_T& message, size_t& length) {
  std::array<char, sizeof(ERPS_EVENT_MSG_T)> text;
  const ssize_t received = queue_ < 0 ? -1 : mq_receive(queue_, text.data(), text.size(), nullptr);
  if (received < 0) {
    return DoorVerdict::kEmpty;
  }
  length = static_cast<size_t>(received);
  if (length != sizeof message) {
    return DoorVerdict::kWrongSize;
  }
  std::memcpy(&message, text.data(), sizeof message);
  if (message.event_class != mgmt::kEventClass) {
    return DoorVerdict::kWrongClass;
  }
  return message.type == mgmt::kEventTypeConf ? DoorVerdict::kAccepted : DoorVerdict::kWrongType;
}

}  // namespace erps::linux_platform
