#include "host/config.h"

#include <grp.h>

#include "client/hazards.h"
#include "client/limits.h"
#include "client/words.h"
#include "host/config_checks.h"
#include "host/settings.h"

namespace erps::host {

namespace {

constexpr int64_t kMsPerSecond = 1000;

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) {
    text += (text.empty() ? "" : "\n") + line;
  }
  return text;
}

uint32_t number_of(const Settings& settings, const char* name) {
  return static_cast<uint32_t>(settings.at(name).number);
}

RingConfig ring_of(const Settings& settings) {
  RingConfig config;
  config.ring.ring = number_of(settings, "id");
  config.ring.control_vlan = number_of(settings, "control_vlan");
  config.ring.node_role = client::node_role_of(settings.at("node_role").text).value();
  config.ring.ring_role = client::ring_role_of(settings.at("ring_role").text).value();
  const Setting& ports = settings.at("ports");
  config.ring.port0 = static_cast<uint32_t>(ports.pair[0]);
  config.ring.port1 = static_cast<uint32_t>(ports.pair[1]);
  const Setting* rpl_port = settings.find("rpl_port");
  if (rpl_port != nullptr && rpl_port->number == ports.pair[0]) {
    std::swap(config.ring.port0, config.ring.port1);
  }
  config.revertive = settings.at("revertive").flag;
  config.enable = settings.at("enable").flag;
  return config;
}

SubRingConfig sub_ring_of(const Settings& settings) {
  SubRingConfig config;
  config.ring.major_ring = number_of(settings, "major_ring");
  config.ring.ring = number_of(settings, "id");
  config.ring.port = number_of(settings, "port");
  config.ring.node_role = client::node_role_of(settings.at("node_role").text).value();
  config.ring.interconnection_role =
      client::interconnection_role_of(settings.at("interconnection").text).value();
  config.enable = settings.at("enable").flag;
  return config;
}

std::vector<std::string> warnings_of(const std::string& path, const FileSettings& file) {
  std::vector<std::string> warnings;
  const auto warn = [&](const Setting& setting, const std::string& text) {
    warnings.push_back(path + ":" + std::to_string(setting.line) + ": warning: " + text);
  };
  const Setting& wtr = file.timers.at("wtr_ms");
  if (wtr.number < client::kShortestCleanWtrMs) {
    warn(wtr, client::kShortWtrHazard);
  }
  if (wtr.number % kMsPerSecond != 0) {
    warn(wtr, "the module counts WTR in whole seconds: " +
                  std::to_string(wtr.number / kMsPerSecond) + " s are used");
  }
  for (const Settings& ring : file.rings) {
    if (!ring.at("revertive").flag) {
      warn(ring.at("revertive"), client::kNonRevertiveHazard);
    }
  }
  // One node cannot see how the other one is configured.
  for (const Settings& sub_ring : file.sub_rings) {
    const Setting& role = sub_ring.at("interconnection");
    warn(role, "interconnection = \"" + role.text + "\": " + client::kWatchingNeedsMarking);
  }
  return warnings;
}

Config config_of(const std::string& path, const FileSettings& file) {
  Config config;
  config.bridge = file.top.at("bridge").text;
  if (const Setting* address = file.top.find("node_address")) {
    config.node_address = client::mac_of(address->text);
  }
  config.log_level = file.log.at("level").text;
  if (const Setting* group = file.management.find("group")) {
    config.group = getgrnam(group->text.c_str())->gr_gid;
  }
  config.carrier_poll_ms = static_cast<int>(file.platform.at("carrier_poll_ms").number);
  config.realtime_priority = static_cast<int>(file.platform.at("realtime_priority").number);
  config.guard_ms = number_of(file.timers, "guard_ms");
  config.wtr_ms = number_of(file.timers, "wtr_ms");
  config.holdoff_ms = number_of(file.timers, "holdoff_ms");
  for (const Settings& port : file.ports) {
    config.ports.push_back({number_of(port, "id"), port.at("interface").text});
  }
  for (const Settings& ring : file.rings) {
    config.rings.push_back(ring_of(ring));
  }
  for (const Settings& sub_ring : file.sub_rings) {
    config.sub_rings.push_back(sub_ring_of(sub_ring));
  }
  config.warnings = warnings_of(path, file);
  return config;
}

}  // namespace

ConfigError::ConfigError(std::vector<std::string> mistakes)
    : std::runtime_error(joined(mistakes)), mistakes_(std::move(mistakes)) {}

Config read_config(const std::string& path) {
  Mistakes mistakes(path);
  FileSettings file;
  try {
    file = read_settings(path, mistakes);
  } catch (const std::runtime_error& error) {
    throw ConfigError({error.what()});
  }
  if (file.parsed) {
    check_settings(file, mistakes);
  }
  if (mistakes.any()) {
    throw ConfigError(mistakes.texts());
  }
  return config_of(path, file);
}

}  // namespace erps::host
