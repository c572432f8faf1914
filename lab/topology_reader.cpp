#include "lab/topology_reader.h"

#include <algorithm>

#include "client/limits.h"

namespace erps::lab {

namespace {

constexpr size_t kLongestName = 31;
constexpr size_t kMostNames = 20;  // in a message
constexpr client::Range kFramesPerSRange{1, 100000, "frames a second"};
constexpr client::Range kFramesRange{0, INT32_MAX, "frames"};
constexpr double kLongestOutageMs = 3600000;

template <typename Item>
std::string names_of(const std::vector<Item>& items) {
  std::string names;
  for (size_t i = 0; i < std::min(items.size(), kMostNames); ++i) {
    names += (names.empty() ? "" : ", ") + items[i].name;
  }
  if (items.size() > kMostNames) {
    names += ", ... (" + std::to_string(items.size()) + " in all)";
  }
  return names.empty() ? "none is defined" : names;
}

// The two different names of `between`.
std::optional<std::array<std::string, 2>> read_between(TomlTable& table, const char* of_what) {
  const std::string allowed = std::string("two different ") + of_what;
  if (!table.has("between")) {
    table.missing("between", allowed);
    return std::nullopt;
  }
  const auto names = table.texts("between");
  if (!names) {
    return std::nullopt;
  }
  if (names->value.size() != 2 || names->value[0] == names->value[1]) {
    table.wrong("wrong-value", "between", {}, "allowed: " + allowed);
    return std::nullopt;
  }
  return std::array<std::string, 2>{names->value[0], names->value[1]};
}

std::optional<std::string> read_name(TomlTable& table) {
  if (!table.has("name")) {
    table.missing("name", "a text");
    return std::nullopt;
  }
  const auto name = table.text("name");
  if (!name || !is_good_name(table, "name", name->value)) {
    return std::nullopt;
  }
  return name->value;
}

// Gives ports without a number the lowest that their node has left.
void number_ports(Reading& reading) {
  Topology& topology = reading.topology;
  std::vector<std::set<uint32_t>> taken(topology.nodes.size());
  for (const Link& link : topology.links) {
    for (const LinkEnd& end : link.ends) {
      taken[end.node].insert(end.port);
    }
  }
  for (Link& link : topology.links) {
    for (LinkEnd& end : link.ends) {
      uint32_t port = end.port;
      while (end.port == 0 && taken[end.node].count(port) != 0) {
        ++port;
      }
      if (port > client::kPortRange.max) {
        reading.findings.error("too-many-ports", link.line, "link " + link.name,
                               "node " + topology.nodes[end.node].name +
                                   " has more ports than the allowed " +
                                   std::to_string(client::kPortRange.max),
                               "move links to other nodes");
        reading.structure_broken = true;
      } else {
        end.port = port;
        taken[end.node].insert(port);
      }
    }
  }
}

}  // namespace

bool is_good_name(TomlTable& table, const char* key, const std::string& name) {
  const auto good = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
  };
  if (name.empty() || name.size() > kLongestName || !std::all_of(name.begin(), name.end(), good) ||
      name[0] == '.' || name[0] == '-') {
    table.wrong("bad-name", key, {},
                "allowed: 1 to 31 letters, digits, '-', '_' and '.', with neither '-' nor '.' "
                "in front");
    return false;
  }
  return true;
}

std::optional<NodeIndex> node_named(Reading& reading, TomlTable& table, const char* key,
                                    const std::string& name) {
  const auto found = reading.topology.find_node(name);
  if (!found && reading.broken_nodes.count(name) == 0) {
    table.wrong("unknown-name", key, "no node is named " + name,
                "allowed: " + names_of(reading.topology.nodes));
  }
  return found;
}

std::optional<LinkIndex> link_named(Reading& reading, TomlTable& table, const char* key,
                                    const std::string& name) {
  const auto found = reading.topology.find_link(name);
  if (!found && reading.broken_links.count(name) == 0) {
    table.wrong("unknown-name", key, "no link is named " + name,
                "allowed: " + names_of(reading.topology.links));
  }
  return found;
}

void read_nodes(Reading& reading, const std::vector<const toml::table*>& tables) {
  for (const toml::table* toml_table : tables) {
    TomlTable table(*toml_table, "node", reading.findings);
    Node node;
    node.line = table.line();
    const auto name = read_name(table);
    if (name) {
      node.name = *name;
      table.rename("node " + node.name);
    }
    bool good = name.has_value();
    if (const auto address = table.text("address")) {
      const auto parsed = parse_mac_address(address->value);
      if (!parsed || parsed->is_group() || parsed->is_zero()) {
        table.wrong("wrong-value", "address", {},
                    "allowed: an individual MAC address as in 02:00:00:00:00:01");
      } else {
        node.address = *parsed;
      }
    }
    if (name && reading.topology.find_node(*name)) {
      table.wrong("name-repeated", "name", "another node has this name", "give it its own");
      good = false;
    }
    table.refuse_the_rest();
    if (good) {
      reading.topology.nodes.push_back(node);
    } else if (name) {
      reading.broken_nodes.insert(*name);
    }
  }
}

void read_links(Reading& reading, const std::vector<const toml::table*>& tables) {
  Topology& topology = reading.topology;
  for (const toml::table* toml_table : tables) {
    TomlTable table(*toml_table, "link", reading.findings);
    Link link;
    link.line = table.line();
    const auto between = read_between(table, "nodes");
    if (between) {
      link.name = (*between)[0] + "-" + (*between)[1];
    }
    bool good = between.has_value();
    if (const auto name = table.text("name")) {
      good = is_good_name(table, "name", name->value) && good;
      link.name = name->value;
    }
    table.rename("link " + link.name);
    link.simulated = reading.simulated_link;
    read_simulated_link(table, link.simulated);
    if (topology.find_link(link.name)) {
      table.wrong("name-repeated", "name", "another link is named " + link.name,
                  "give one of them a name");
      good = false;
    }
    const auto ports = table.integers("ports", client::kPortRange, "port-range");
    if (ports && ports->value.size() != 2) {
      table.wrong("wrong-value", "ports", {}, "allowed: two port numbers, in the order of between");
      good = false;
    }
    for (size_t i = 0; between && i < 2; ++i) {
      const auto node = node_named(reading, table, "between", (*between)[i]);
      if (!node) {
        good = false;
        continue;
      }
      link.ends[i].node = *node;
      if (ports && ports->value.size() == 2) {
        link.ends[i].port = static_cast<uint32_t>(ports->value[i]);
        if (const auto other = topology.link_at_port(*node, link.ends[i].port)) {
          table.wrong("port-repeated", "ports",
                      "port " + std::to_string(link.ends[i].port) + " of " + (*between)[i] +
                          " belongs to link " + topology.links[*other].name,
                      "give each link of a node its own port");
          good = false;
        }
      }
    }
    table.refuse_the_rest();
    if (good) {
      topology.links.push_back(link);
    } else {
      reading.broken_links.insert(link.name);
    }
  }
  number_ports(reading);
}

void read_hosts(Reading& reading, const std::vector<const toml::table*>& tables) {
  for (const toml::table* toml_table : tables) {
    TomlTable table(*toml_table, "host", reading.findings);
    Host host;
    host.line = table.line();
    const auto name = read_name(table);
    if (name) {
      host.name = *name;
      table.rename("host " + host.name);
    }
    bool good = name.has_value();
    if (name && reading.topology.find_host(*name)) {
      table.wrong("name-repeated", "name", "another host has this name", "give it its own");
      good = false;
    }
    if (!table.has("node")) {
      table.missing("node", "the name of a node");
      good = false;
    } else if (const auto node_name = table.text("node")) {
      const auto node = node_named(reading, table, "node", node_name->value);
      good = good && node.has_value();
      host.node = node.value_or(0);
    } else {
      good = false;
    }
    table.refuse_the_rest();
    if (good) {
      reading.topology.hosts.push_back(host);
    } else if (name) {
      reading.broken_hosts.insert(*name);
    }
  }
}

void read_streams(Reading& reading, const std::vector<const toml::table*>& tables) {
  for (const toml::table* toml_table : tables) {
    TomlTable table(*toml_table, "stream", reading.findings);
    Stream stream;
    stream.line = table.line();
    bool good = true;
    if (const auto between = read_between(table, "hosts")) {
      for (size_t i = 0; i < 2; ++i) {
        const std::string& name = (*between)[i];
        const auto host = reading.topology.find_host(name);
        if (!host && reading.broken_hosts.count(name) == 0) {
          table.wrong("unknown-name", "between", "no host is named " + name,
                      "allowed: " + names_of(reading.topology.hosts));
        }
        good = good && host.has_value();
        stream.hosts[i] = host.value_or(0);
      }
    } else {
      good = false;
    }
    if (const auto rate = table.integer("frames_per_s", kFramesPerSRange)) {
      stream.frames_per_s = static_cast<uint32_t>(rate->value);
    }
    table.refuse_the_rest();
    if (good) {
      reading.topology.streams.push_back(stream);
    }
  }
}

void read_bounds(Reading& reading, const toml::table& toml_table) {
  TomlTable table(toml_table, "expect", reading.findings);
  TrafficBounds& bounds = reading.topology.bounds;
  bounds.line = table.line();
  const auto outage = [&](const char* key, std::optional<double>& bound) {
    if (const auto value = table.number(key, 0, kLongestOutageMs, "ms")) {
      bound = value->value;
    }
  };
  const auto count = [&](const char* key, std::optional<uint64_t>& bound) {
    if (const auto value = table.integer(key, kFramesRange)) {
      bound = static_cast<uint64_t>(value->value);
    }
  };
  outage("cut_outage_ms", bounds.cut_outage_ms);
  outage("restore_outage_ms", bounds.restore_outage_ms);
  outage("switch_outage_ms", bounds.switch_outage_ms);
  count("duplicates", bounds.duplicates);
  count("reordered", bounds.reordered);
  table.refuse_the_rest();
}

}  // namespace erps::lab
