// The namespaces of one node or host: network, IPC and mount, with its own /dev/mqueue and /sys
// where the machine has them.
//
// Threading: run() may be called from any thread, also at once; the function runs in a thread of
// its own. Errors: LabError. Logs nothing.
#pragma once

#include <functional>
#include <string>

#include "lab/unique_fd.h"

namespace erps::lab {

class NodeNamespace {
 public:
  // `name` is for messages.
  explicit NodeNamespace(std::string name);

  const std::string& name() const { return name_; }
  int network_fd() const { return network_.get(); }
  int ipc_fd() const { return ipc_.get(); }

  // Runs the function inside and waits for it; what it throws is thrown here. Sockets that it opens
  // and processes that it starts belong to the node for ever.
  void run(const std::function<void()>& function) const;

 private:
  std::string name_;
  UniqueFd network_, ipc_, mount_;
  UniqueFd root_;  // the root directory inside: not that of the mount namespace in a chroot
};

}  // namespace erps::lab
