#include "host/owned_queue.h"

#include <errno.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <stdexcept>
#include <string>

#include "erps/mgmt/message.h"

namespace erps::host {

namespace {

constexpr int kOwnerOnly = 0600;
constexpr int kOwnerAndGroup = 0660;

std::string queue_text() {
  return "the management queue (key " + std::to_string(mgmt::kQueueKey) + ")";
}

}  // namespace

OwnedQueue::OwnedQueue(std::optional<gid_t> group) {
  // A second attempt follows the removal of a leftover; a third would mean that somebody else keeps
  // creating it.
  for (int attempt = 0; attempt < 2 && id_ < 0; ++attempt) {
    id_ = msgget(mgmt::kQueueKey, IPC_CREAT | IPC_EXCL | kOwnerOnly);
    if (id_ < 0 && errno == EEXIST) {
      remove_leftover();
      errno = EEXIST;
    } else if (id_ < 0) {
      break;
    }
  }
  if (id_ < 0) {
    throw std::runtime_error("creating " + queue_text() + ": " + strerror(errno));
  }
  if (!group) {
    return;
  }
  msqid_ds state{};
  if (msgctl(id_, IPC_STAT, &state) == 0) {
    state.msg_perm.gid = *group;
    state.msg_perm.mode = kOwnerAndGroup;
    if (msgctl(id_, IPC_SET, &state) == 0) {
      return;
    }
  }
  const std::string reason = strerror(errno);
  msgctl(id_, IPC_RMID, nullptr);
  throw std::runtime_error("giving " + queue_text() + " to group " + std::to_string(*group) + ": " +
                           reason);
}

// Replaced, not taken over: whoever created a queue keeps his rights to it whatever mode it gets.
void OwnedQueue::remove_leftover() {
  const int id = msgget(mgmt::kQueueKey, 0);
  if (id < 0) {
    return;  // gone meanwhile
  }
  msqid_ds state{};
  leftover_ = msgctl(id, IPC_STAT, &state) == 0 ? state.msg_qnum : 0;
  if (msgctl(id, IPC_RMID, nullptr) != 0 && errno != EIDRM && errno != EINVAL) {
    throw std::runtime_error(
        queue_text() + " was left behind by another user and cannot be removed: " +
        strerror(errno) + "; remove it with: ipcrm --queue-key " + std::to_string(mgmt::kQueueKey));
  }
}

OwnedQueue::~OwnedQueue() {
  msgctl(id_, IPC_RMID, nullptr);
}

}  // namespace erps::host
