#include "tests/client/ipc_namespace.h"

#include <errno.h>
#include <sched.h>
#include <string.h>

namespace erps::test {

namespace {
std::string g_problem = "enter_ipc_namespace() was not called";
}  // namespace

std::string enter_ipc_namespace() {
  g_problem.clear();
  if (unshare(CLONE_NEWIPC) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
    g_problem = strerror(errno);
  }
  return g_problem;
}

const std::string& ipc_namespace_problem() {
  return g_problem;
}

}  // namespace erps::test
