#include "lab/topology_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "client/toml_depth.h"
#include "lab/script_hazards.h"
#include "lab/script_outlook.h"
#include "lab/topology_checks.h"
#include "lab/topology_reader.h"

namespace erps::lab {

namespace {

constexpr size_t kLongestText = size_t{1} << 20U;

struct Limit {
  const char* key;
  size_t most;
};

// More than any laboratory holds, and few enough for every check to be done at once.
constexpr Limit kLimits[] = {{"node", 512}, {"link", 1024},  {"host", 512},
                             {"ring", 239}, {"stream", 256}, {"step", 4096}};

bool is_within_limits(TomlTable& table, Findings& findings) {
  bool within = true;
  for (const Limit& limit : kLimits) {
    const size_t count = table.tables(limit.key).size();
    if (count > limit.most) {
      findings.error("too-large", 0, "", std::to_string(count) + " [[" + limit.key + "]] tables",
                     "allowed: " + std::to_string(limit.most) + " at most");
      within = false;
    }
  }
  return within;
}

void read_name(TomlTable& table, Topology& topology) {
  const auto name = table.text("name");
  if (!name) {
    return;
  }
  if (std::any_of(name->value.begin(), name->value.end(),
                  [](unsigned char c) { return c < 0x20 || c == 0x7F; })) {
    table.wrong("bad-name", "name", {}, "allowed: a text of one line");
    return;
  }
  topology.name = name->value;
}

void read_all(const toml::table& root, TopologyFile& file) {
  TomlTable table(root, "topology", file.findings);
  read_name(table, file.topology);
  const toml::table* simulation = table.table("simulation");
  const toml::table* expect = table.table("expect");
  const toml::table* script = table.table("script");
  if (!is_within_limits(table, file.findings)) {
    return;
  }
  Reading reading(file.topology, file.findings);
  if (simulation != nullptr) {
    read_simulation(reading, *simulation);
  }
  // Definitions first, so that the order of the tables in the file does not matter.
  read_nodes(reading, table.tables("node"));
  read_links(reading, table.tables("link"));
  read_hosts(reading, table.tables("host"));
  read_rings(reading, table.tables("ring"));
  read_streams(reading, table.tables("stream"));
  if (expect != nullptr) {
    read_bounds(reading, *expect);
  }
  const size_t before_script = file.findings.count(Severity::kError);
  read_script(reading, script, table.tables("step"));
  const bool script_sound = file.findings.count(Severity::kError) == before_script;
  table.refuse_the_rest();
  if (file.topology.nodes.empty() && reading.broken_nodes.empty()) {
    file.findings.error("no-node", 0, "", "no [[node]]: a topology has one node at least");
  }
  assign_addresses(file.topology);
  check_rings(file.topology, file.findings);
  if (reading.is_structure_sound()) {
    check_network(file.topology, file.findings);
    if (script_sound) {
      script_outlook(file.topology, file.findings);
      check_script(file.topology, file.findings);
    }
  }
}

}  // namespace

TopologyFile parse_topology(std::string_view text) {
  TopologyFile file;
  if (text.size() > kLongestText) {
    file.findings.error("too-large", 0, "", std::to_string(text.size()) + " bytes",
                        "allowed: " + std::to_string(kLongestText) + " at most");
    return file;
  }
  if (const uint32_t line = client::too_deep_line(text)) {
    file.findings.error("not-toml", line, "", "too many dots in one line",
                        "allowed: " + std::to_string(client::kMostDotsInALine) + " at most");
    return file;
  }
  try {
    const toml::table root = toml::parse(text);
    read_all(root, file);
  } catch (const toml::parse_error& error) {
    file.findings.error("not-toml", static_cast<uint32_t>(error.source().begin.line), "",
                        "this is not TOML: " + std::string(error.description()));
  }
  return file;
}

TopologyFile load_topology(const std::string& path) {
  TopologyFile file;
  std::ifstream in(path, std::ios::binary);
  std::string text;
  if (in) {
    // One byte more than is allowed tells a file that is too long, whatever its length.
    text.resize(kLongestText + 1);
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(in.gcount()));
  }
  if (in.bad() || (!in && !in.eof())) {
    file.findings.error(kUnreadable, 0, "", std::string("cannot be read: ") + std::strerror(errno));
    return file;
  }
  if (text.size() > kLongestText) {
    file.findings.error("too-large", 0, "", "longer than a topology file is",
                        "allowed: " + std::to_string(kLongestText) + " bytes at most");
    return file;
  }
  return parse_topology(text);
}

}  // namespace erps::lab
