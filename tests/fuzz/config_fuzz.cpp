// Configuration files of the daemon, with any text in them. What is accepted is in its ranges; what
// is refused says why, with a line.
#include <string>

#include "host/config.h"
#include "tests/fuzz/fail.h"
#include "tests/fuzz/memory_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace erps::fuzz {
namespace {

void check_accepted(const host::Config& config) {
  require(!config.bridge.empty() && config.bridge.size() <= 15, "a bridge without a name");
  require(config.realtime_priority >= 0 && config.realtime_priority <= 99,
          "a priority out of its range");
  const auto has_port = [&](uint32_t id) {
    for (const host::PortConfig& port : config.ports) {
      if (port.id == id) {
        return true;
      }
    }
    return false;
  };
  for (const host::PortConfig& port : config.ports) {
    require(port.id >= 1 && port.id <= 63, "a port out of its range");
    require(!port.interface.empty() && port.interface.size() <= 15, "a port without interface");
  }
  for (const host::RingConfig& ring : config.rings) {
    require(ring.ring.ring >= 1 && ring.ring.ring <= 239, "a ring out of its range");
    require(ring.ring.control_vlan >= 1 && ring.ring.control_vlan <= 4094,
            "a control VLAN out of its range");
    require(has_port(ring.ring.port0) && has_port(ring.ring.port1) &&
                ring.ring.port0 != ring.ring.port1,
            "a ring on ports that do not exist");
  }
  for (const host::SubRingConfig& ring : config.sub_rings) {
    require(ring.ring.ring >= 1 && ring.ring.ring <= 239, "a sub-ring out of its range");
    require(has_port(ring.ring.port), "a sub-ring on a port that does not exist");
    require(ring.ring.ring != ring.ring.major_ring, "a sub-ring that is its own major ring");
  }
}

}  // namespace
}  // namespace erps::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using erps::fuzz::require;
  static const erps::fuzz::MemoryFile file;
  file.write({reinterpret_cast<const char*>(data), size});
  try {
    erps::fuzz::check_accepted(erps::host::read_config(file.path()));
  } catch (const erps::host::ConfigError& error) {
    require(!error.mistakes().empty(), "a file is refused without a reason");
    for (const std::string& mistake : error.mistakes()) {
      require(mistake.rfind(file.path() + ":", 0) == 0 && mistake.size() > file.path().size() + 4,
              "a mistake that does not say where it is");
    }
  }
  return 0;
}
