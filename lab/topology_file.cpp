#include "lab/topology_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "lab/script_outlook.h"
#include "lab/topology_checks.h"
#include "lab/topology_reader.h"

namespace erps::lab {

namespace {

void read_all(const toml::table& root, TopologyFile& file) {
  TomlTable table(root, "topology", file.findings);
  Reading reading{file.topology, file.findings, {}, {}, {}, {}, {}};
  if (const auto name = table.text("name")) {
    file.topology.name = name->value;
  }
  if (const toml::table* simulation = table.table("simulation")) {
    read_simulation(reading, *simulation);
  }
  // Definitions first, so that the order of the tables in the file does not matter.
  read_nodes(reading, table.tables("node"));
  read_links(reading, table.tables("link"));
  read_hosts(reading, table.tables("host"));
  read_rings(reading, table.tables("ring"));
  read_streams(reading, table.tables("stream"));
  if (const toml::table* expect = table.table("expect")) {
    read_bounds(reading, *expect);
  }
  const toml::table* script = table.table("script");
  read_script(reading, script, table.tables("step"));
  table.refuse_the_rest();
  if (file.topology.nodes.empty() && reading.broken_nodes.empty()) {
    file.findings.error(0, "no [[node]]: a topology has one node at least");
  }
}

}  // namespace

TopologyFile parse_topology(std::string_view text) {
  TopologyFile file;
  toml::table root;
  try {
    root = toml::parse(text);
  } catch (const toml::parse_error& error) {
    file.findings.error(static_cast<uint32_t>(error.source().begin.line),
                        "this is not TOML: " + std::string(error.description()));
    return file;
  }
  read_all(root, file);
  assign_addresses(file.topology);
  check_rings(file.topology, file.findings);
  if (!file.findings.has_errors()) {
    check_network(file.topology, file.findings);
  }
  if (!file.findings.has_errors()) {
    script_outlook(file.topology, file.findings);
  }
  return file;
}

TopologyFile load_topology(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  if (in) {
    text << in.rdbuf();
  }
  if (!in || in.bad() || text.fail()) {
    TopologyFile file;
    file.findings.error(0, std::string("cannot be read: ") + std::strerror(errno));
    return file;
  }
  return parse_topology(text.str());
}

}  // namespace erps::lab
