// The steps of reading a topology: what each kind of table says, into the model.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "lab/toml_table.h"
#include "lab/topology.h"

namespace erps::lab {

// What is being read. A table with a mistake is left out of the model but its name is remembered,
// so that what refers to it is not reported as well.
struct Reading {
  Reading(Topology& of, Findings& to) : topology(of), findings(to) {}

  Topology& topology;
  Findings& findings;
  std::set<std::string> broken_nodes, broken_links, broken_hosts;
  std::set<int64_t> broken_rings;
  bool structure_broken = false;  // the parts do not fit together
  SimulatedLink simulated_link;   // what the file says of every link

  // Whether nodes, links and rings are complete and may be judged as a whole.
  bool is_structure_sound() const {
    return !structure_broken && broken_nodes.empty() && broken_links.empty() &&
           broken_rings.empty();
  }
};

// [simulation], before anything that it gives defaults for.
void read_simulation(Reading& reading, const toml::table& table);
void read_nodes(Reading& reading, const std::vector<const toml::table*>& tables);
void read_links(Reading& reading, const std::vector<const toml::table*>& tables);
void read_hosts(Reading& reading, const std::vector<const toml::table*>& tables);
void read_streams(Reading& reading, const std::vector<const toml::table*>& tables);
void read_rings(Reading& reading, const std::vector<const toml::table*>& tables);
// How the ring operates, with warnings of what the operator should know; `links` are read before.
void read_operation(Reading& reading, TomlTable& table, Ring& ring);
void read_bounds(Reading& reading, const toml::table& table);
// [[step]] tables, with the steps of [script] in front.
void read_script(Reading& reading, const toml::table* script,
                 const std::vector<const toml::table*>& tables);

// The keys of a link that only a simulation looks at, over the defaults that are in `link`.
void read_simulated_link(TomlTable& table, SimulatedLink& link);

// A name as it may stand in the file; reports what is wrong with it.
bool is_good_name(TomlTable& table, const char* key, const std::string& name);

// Look-ups that report a name which nothing has. `allowed` in the message is the list of all names.
std::optional<NodeIndex> node_named(Reading& reading, TomlTable& table, const char* key,
                                    const std::string& name);
std::optional<LinkIndex> link_named(Reading& reading, TomlTable& table, const char* key,
                                    const std::string& name);

}  // namespace erps::lab
