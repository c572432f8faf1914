#include "tests/host/network_namespace.h"

#include <errno.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

namespace erps::test {

namespace {

std::string g_problem = "enter_network_namespace() was not called";

constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWIPC;

bool enter_as_root_of_a_user_namespace() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (unshare(CLONE_NEWUSER | kNamespaces) != 0) {
    return false;
  }
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " << uid << " 1";
  std::ofstream("/proc/self/gid_map") << "0 " << gid << " 1";
  return true;
}

}  // namespace

std::string enter_network_namespace() {
  g_problem.clear();
  if (unshare(kNamespaces) != 0 && !enter_as_root_of_a_user_namespace()) {
    g_problem = strerror(errno);
  }
  return g_problem;
}

const std::string& network_namespace_problem() {
  return g_problem;
}

std::string shell(const std::string& command) {
  FILE* pipe = popen(("exec 2>&1; " + command).c_str(), "re");
  if (pipe == nullptr) {
    throw std::runtime_error("popen: " + std::string(strerror(errno)));
  }
  std::string out;
  char buffer[4096];
  for (size_t got; (got = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    out.append(buffer, got);
  }
  if (pclose(pipe) != 0) {
    throw std::runtime_error(command + ": " + out);
  }
  return out;
}

TestBridge::TestBridge() {
  shell(
      "set -e\n"
      "ip link add br0 type bridge stp_state 0\n"
      "ip link set br0 address 02:00:00:00:00:01 up\n"
      "for i in 1 2; do\n"
      "  ip link add eth$i index 10$i type veth peer name far$i index 20$i\n"
      "  ip link set eth$i master br0\n"
      "  ip link set eth$i up\n"
      "  ip link set far$i up\n"
      "done\n");
}

TestBridge::~TestBridge() {
  try {
    shell("ip link del eth1; ip link del eth2; ip link del br0");
  } catch (const std::runtime_error& error) {
    fprintf(stderr, "removing the bridge: %s\n", error.what());
  }
}

}  // namespace erps::test
