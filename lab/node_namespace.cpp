#include "lab/node_namespace.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <exception>
#include <thread>

#include "lab/lab_error.h"

namespace erps::lab {

namespace {

// Runs the function in a thread that shares neither root nor working directory with the others, as
// the kernel demands of one that changes its mount namespace.
void run_in_thread(const std::function<void()>& function) {
  std::exception_ptr thrown;
  std::thread thread([&] {
    try {
      if (unshare(CLONE_FS) != 0) {
        throw system_error("unshare");
      }
      function();
    } catch (...) {
      thrown = std::current_exception();
    }
  });
  thread.join();
  if (thrown) {
    std::rethrow_exception(thrown);
  }
}

UniqueFd open_own(const char* which) {
  const std::string path = std::string("/proc/thread-self/ns/") + which;
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.is_open()) {
    throw system_error(path);
  }
  return fd;
}

void mount_over(const char* type, const char* directory) {
  if (access(directory, F_OK) != 0) {
    return;
  }
  // Not needed for anything to work: a container may forbid it, and one without either runs as
  // well.
  mount(type, directory, type, MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
}

}  // namespace

NodeNamespace::NodeNamespace(std::string name) : name_(std::move(name)) {
  run_in_thread([&] {
    if (unshare(CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWNS) != 0) {
      throw system_error("the namespaces of " + name_ + " cannot be made");
    }
    mount_over("mqueue", "/dev/mqueue");
    mount_over("sysfs", "/sys");
    network_ = open_own("net");
    ipc_ = open_own("ipc");
    mount_ = open_own("mnt");
    root_ = UniqueFd(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root_.is_open()) {
      throw system_error("the root directory of " + name_);
    }
  });
}

void NodeNamespace::run(const std::function<void()>& function) const {
  run_in_thread([&] {
    if (setns(network_.get(), CLONE_NEWNET) != 0 || setns(ipc_.get(), CLONE_NEWIPC) != 0 ||
        setns(mount_.get(), CLONE_NEWNS) != 0 || fchdir(root_.get()) != 0 || chroot(".") != 0) {
      throw system_error("the namespaces of " + name_ + " cannot be entered");
    }
    function();
  });
}

}  // namespace erps::lab
