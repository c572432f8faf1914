// A network and IPC namespace for the test process, with a bridge of two ring ports in it.
#pragma once

#include <string>

namespace erps::test {

// Enters fresh namespaces; call before any thread exists. Returns "" or why it was not possible.
std::string enter_network_namespace();
const std::string& network_namespace_problem();

// Runs a command with sh; its standard output. Throws std::runtime_error when it fails.
std::string shell(const std::string& command);

// Bridge br0 with spanning tree off and ports eth1 and eth2, whose far ends are far1 and far2.
// Removed by the destructor.
class TestBridge {
 public:
  TestBridge();
  ~TestBridge();
  TestBridge(const TestBridge&) = delete;
  TestBridge& operator=(const TestBridge&) = delete;
};

}  // namespace erps::test
