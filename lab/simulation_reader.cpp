// Reads what only a simulation looks at: [simulation] for every link, and the same keys in a
// [[link]].
#include "lab/topology_reader.h"

namespace erps::lab {

namespace {

constexpr int64_t kLongestDelayUs = 1'000'000;
constexpr int64_t kMillion = 1'000'000;

}  // namespace

void read_simulated_link(TomlTable& table, SimulatedLink& link) {
  if (const auto delay = table.range("delay_us", 1, kLongestDelayUs, "us")) {
    link.delay_us = {delay->value[0], delay->value[1]};
  }
  const auto share = [&](const char* key, uint32_t& per_million) {
    if (const auto value = table.integer(key, 0, kMillion, "R-APS frames in a million")) {
      per_million = static_cast<uint32_t>(value->value);
    }
  };
  share("lost_per_million", link.lost_per_million);
  share("duplicated_per_million", link.duplicated_per_million);
  share("overtaken_per_million", link.overtaken_per_million);
}

void read_simulation(Reading& reading, const toml::table& toml_table) {
  TomlTable table(toml_table, "simulation", reading.findings);
  read_simulated_link(table, reading.simulated_link);
  table.refuse_the_rest();
}

}  // namespace erps::lab
