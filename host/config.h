// The configuration of a node, read from its file and checked as a whole.
#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "client/client.h"

namespace erps::host {

struct PortConfig {
  uint32_t id = 0;
  std::string interface;
};

struct RingConfig {
  client::NewRing ring;  // the port at the RPL is port1 at owner and neighbour
  bool revertive = true;
  bool enable = true;
};

struct SubRingConfig {
  client::NewSubRing ring;
  bool enable = true;
};

struct Config {
  std::string bridge;
  std::optional<client::MacAddress> node_address;
  std::string log_level;       // "error", "notice" or "debug"
  std::optional<gid_t> group;  // may use the queues besides the owner
  int carrier_poll_ms = 0;
  int realtime_priority = 0;
  uint32_t guard_ms = 0, wtr_ms = 0, holdoff_ms = 0;
  std::vector<PortConfig> ports;
  std::vector<RingConfig> rings;
  std::vector<SubRingConfig> sub_rings;
  std::vector<std::string> warnings;  // accepted, but the operator should know
};

// Everything that is wrong with a file, in the order of its lines.
class ConfigError : public std::runtime_error {
 public:
  explicit ConfigError(std::vector<std::string> mistakes);
  // "FILE:LINE: key = value: what is allowed" each.
  const std::vector<std::string>& mistakes() const { return mistakes_; }

 private:
  std::vector<std::string> mistakes_;
};

// Reads and checks a file; throws ConfigError with all its mistakes. Touches nothing but the file
// and the list of groups.
Config read_config(const std::string& path);

}  // namespace erps::host
