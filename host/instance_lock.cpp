#include "host/instance_lock.h"

#include <errno.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/sem.h>

#include <string>

#include "erps/mgmt/message.h"

namespace erps::host {

namespace {

// The queues are found by key and name in the IPC namespace, so the lock lives there too.
constexpr key_t kLockKey = mgmt::kQueueKey + 1;

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + strerror(errno));
}

// Waits for zero and adds one in a single step; undone by the kernel when this process ends.
bool take(int semaphore) {
  sembuf steps[2] = {};
  steps[0].sem_flg = IPC_NOWAIT;
  steps[1].sem_op = 1;
  steps[1].sem_flg = IPC_NOWAIT | SEM_UNDO;
  return semop(semaphore, steps, 2) == 0;
}

}  // namespace

InstanceLock::InstanceLock() : semaphore_(-1) {
  for (;;) {
    semaphore_ = semget(kLockKey, 1, IPC_CREAT | 0600);
    if (semaphore_ < 0) {
      if (errno == EACCES) {
        throw AlreadyRunning("another user's erpsd is running in this IPC namespace");
      }
      fail("creating the instance lock");
    }
    if (take(semaphore_)) {
      return;
    }
    if (errno == EAGAIN) {
      const int holder = semctl(semaphore_, 0, GETPID);
      throw AlreadyRunning("erpsd is already running in this IPC namespace" +
                           (holder > 0 ? " (process " + std::to_string(holder) + ")" : ""));
    }
    if (errno != EIDRM && errno != EINVAL && errno != EINTR) {
      fail("taking the instance lock");
    }
    // The holder has just removed it: once more with a new one.
  }
}

InstanceLock::~InstanceLock() {
  semctl(semaphore_, 0, IPC_RMID);
}

}  // namespace erps::host
