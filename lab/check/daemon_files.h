// The configuration files of several nodes' erpsd, read as the daemon reads them and put together
// by ring.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/settings.h"
#include "lab/findings.h"

namespace erps::lab {

struct DaemonFile {
  std::string path;
  host::FileSettings settings;  // what cannot be used is absent

  std::optional<std::string> address() const;  // lower case
};

// A ring as one node's file has it.
struct RingEntry {
  const DaemonFile* file = nullptr;
  const host::Settings* section = nullptr;
  bool is_end = false;  // [[sub_ring]]: the ring ends at this node

  // The value as a text; nothing where it is absent or cannot be used.
  std::optional<std::string> value(const std::string& option) const;
  bool has(const std::string& option, const std::string& wanted) const {
    return value(option) == wanted;
  }
  // Of an end, the control VLAN is that of its major ring in the same file.
  std::optional<std::string> control_vlan() const;
  uint32_t line(const std::string& option) const;
  std::string place(const std::string& option) const;  // "n1.toml:12"
};

using Rings = std::map<int64_t, std::vector<RingEntry>>;

// Files as they are named, directories as the *.toml in them by name; each file once. Whatever
// cannot be read is a finding.
std::vector<std::string> daemon_paths(const std::vector<std::string>& arguments,
                                      Findings& findings);

// What the daemon itself would refuse is a finding. Groups are not looked up: they are those of
// another machine.
std::vector<DaemonFile> read_daemon_files(const std::vector<std::string>& paths,
                                          Findings& findings);

// By ring ID. Refers to `files`, which must outlive it.
Rings rings_of(const std::vector<DaemonFile>& files);

}  // namespace erps::lab
