// Reads what only a simulation looks at: [simulation] for every link, and the same keys in a
// [[link]].
#include "lab/topology_reader.h"

namespace erps::lab {

namespace {

constexpr client::Range kDelayRange{1, 1'000'000, "us"};
constexpr client::Range kShareRange{0, 1'000'000, "R-APS frames in a million"};

}  // namespace

void read_simulated_link(TomlTable& table, SimulatedLink& link) {
  if (const auto delay = table.range("delay_us", kDelayRange)) {
    link.delay_us = {delay->value[0], delay->value[1]};
  }
  const auto share = [&](const char* key, uint32_t& per_million) {
    if (const auto value = table.integer(key, kShareRange)) {
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
