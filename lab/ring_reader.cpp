// Reads the [[ring]] tables: an ordinary ring, or a sub-ring between two interconnection nodes.
#include <algorithm>

#include "client/limits.h"
#include "lab/topology_reader.h"

namespace erps::lab {

namespace {

class RingReader {
 public:
  RingReader(Reading& reading, const toml::table& toml_table)
      : reading_(reading),
        topology_(reading.topology),
        table_(toml_table, "ring", reading.findings) {}

  void read() {
    ring_.line = table_.line();
    read_identity();
    const bool nodes_known = read_nodes();
    read_role();
    if (nodes_known && read_links()) {
      read_rpl();
    }
    read_interconnection(nodes_known);
    read_operation(reading_, table_, ring_);
    table_.refuse_the_rest();
    if (good_) {
      topology_.rings.push_back(ring_);
    } else {
      reading_.broken_rings.insert(ring_.id);
    }
  }

  // Sub-rings name their major ring, which may stand behind them in the file.
  static void attach(Reading& reading, RingIndex sub, int64_t major_id, uint32_t line);

 private:
  void wrong(const char* rule, const char* key, const std::string& why,
             const std::string& advice = {}) {
    table_.wrong(rule, key, why, advice);
    good_ = false;
  }
  void missing(const char* key, const std::string& allowed, const char* rule = "missing-key") {
    table_.missing(key, allowed, rule);
    good_ = false;
  }

  void read_identity() {
    const auto id = table_.integer("id", client::kRingIdRange, "ring-id-range");
    if (id) {
      ring_.id = static_cast<uint32_t>(id->value);
      table_.rename("ring " + std::to_string(ring_.id));
      if (topology_.find_ring(ring_.id)) {
        wrong("ring-id-repeated", "id", "another ring has this ID", "give each ring its own");
      }
    } else if (!table_.has("id")) {
      missing("id", client::range_text(client::kRingIdRange));
    } else {
      good_ = false;
    }
    read_control_vlan();
  }

  void read_control_vlan() {
    const std::string range = client::range_text(client::kVlanRange);
    if (!table_.has("control_vlan")) {
      missing("control_vlan", range);
    } else if (table_.is_integer("control_vlan", 0)) {
      wrong("control-vlan-zero", "control_vlan",
            "untagged R-APS messages are not understood between nodes", "allowed: " + range);
    } else if (const auto vlan =
                   table_.integer("control_vlan", client::kVlanRange, "control-vlan-range")) {
      ring_.control_vlan = static_cast<uint32_t>(vlan->value);
    } else {
      good_ = false;
    }
  }

  bool read_nodes() {
    if (!table_.has("nodes")) {
      missing("nodes", "the names of the ring's nodes in ring order, two or more");
      return false;
    }
    const auto names = table_.texts("nodes");
    if (!names) {
      good_ = false;
      return false;
    }
    bool known = true;
    for (const std::string& name : names->value) {
      const auto node = node_named(reading_, table_, "nodes", name);
      if (!node) {
        known = false;
      } else if (ring_.has_node(*node)) {
        wrong("ring-node-repeated", "nodes", "node " + name + " stands twice in the ring",
              "name each node once");
        known = false;
      } else {
        ring_.nodes.push_back(*node);
      }
    }
    if (names->value.size() < 2) {
      wrong("ring-too-small", "nodes", {}, "allowed: two or more nodes");
      known = false;
    }
    good_ = good_ && known;
    return known;
  }

  void read_role() {
    open_ = table_.has("major_ring");
    ring_.role = open_ ? RingRole::kSubRing : RingRole::kMajor;
    if (const auto role = table_.text("role")) {
      if (role->value == "major" && !open_) {
        ring_.role = RingRole::kMajor;
      } else if (role->value == "sub-ring") {
        ring_.role = RingRole::kSubRing;
      } else {
        wrong("sub-ring-role", "role", open_ ? "a ring with a major_ring is a sub-ring" : "",
              open_ ? "allowed: sub-ring" : "allowed: major, sub-ring");
      }
    }
  }

  bool read_links() {
    const size_t count = ring_.nodes.size() - (open_ ? 1 : 0);
    for (size_t i = 0; i < count; ++i) {
      const NodeIndex a = ring_.nodes[i];
      const NodeIndex b = ring_.nodes[(i + 1) % ring_.nodes.size()];
      std::optional<LinkIndex> found;
      std::optional<RingIndex> taken_by;
      for (LinkIndex link = 0; link < topology_.links.size() && !found; ++link) {
        if (!topology_.links[link].touches(a) || topology_.links[link].other_end(a) != b ||
            ring_.has_link(link)) {
          continue;
        }
        taken_by = topology_.ring_of_link(link);
        if (!taken_by) {
          found = link;
        }
      }
      if (!found) {
        if (reading_.broken_links.empty()) {
          const std::string pair = topology_.nodes[a].name + " and " + topology_.nodes[b].name;
          if (taken_by) {
            wrong("link-in-two-rings", "nodes",
                  "the link between " + pair + " belongs to ring " +
                      std::to_string(topology_.rings[*taken_by].id),
                  "give this ring a link of its own");
          } else {
            wrong("ring-not-joined", "nodes", "no link joins " + pair,
                  "name the nodes in ring order, or add the link");
          }
        }
        good_ = false;
        return false;
      }
      ring_.links.push_back(*found);
    }
    return true;
  }

  void read_rpl() {
    const auto owner = read_owner();
    if (!table_.has("rpl")) {
      missing("rpl", "a link of the ring at its owner", "rpl-missing");
      return;
    }
    const auto name = table_.text("rpl");
    if (!name) {
      good_ = false;
      return;
    }
    const auto rpl = link_named(reading_, table_, "rpl", name->value);
    if (!rpl) {
      good_ = false;
      return;
    }
    ring_.rpl = *rpl;
    if (!ring_.has_link(*rpl)) {
      wrong("rpl-outside-ring", "rpl", "this link is not part of the ring",
            "allowed: a link of the ring at its owner");
      return;
    }
    if (!owner) {
      return;
    }
    const Link& link = topology_.links[*rpl];
    if (!link.touches(*owner)) {
      wrong("rpl-not-at-owner", "rpl",
            "the RPL must have an end at the owner " + topology_.nodes[*owner].name,
            "name a link of the owner, or make an end of this link the owner");
      return;
    }
    ring_.neighbour = link.other_end(*owner);
    read_neighbour();
  }

  // Owner and neighbour are one node each; a list of them is told apart from a value of a wrong
  // type, since it says what the operator had in mind.
  bool is_list(const char* key, const char* rule, const char* why) {
    const bool list = table_.is_list(key);
    if (list) {
      wrong(rule, key, why, "allowed: one node");
    }
    return list;
  }

  std::optional<NodeIndex> read_owner() {
    if (!table_.has("owner")) {
      missing("owner", "a node of the ring, which blocks the RPL while no link has failed",
              "owner-missing");
      return std::nullopt;
    }
    if (is_list("owner", "owner-repeated",
                "a ring has one owner: each of several would block its own link and split the "
                "ring")) {
      return std::nullopt;
    }
    const auto name = table_.text("owner");
    const auto node = name ? node_named(reading_, table_, "owner", name->value) : std::nullopt;
    if (node && !ring_.has_node(*node)) {
      wrong("owner-outside-ring", "owner", "this node is not part of the ring",
            "allowed: a node of the ring");
      return std::nullopt;
    }
    good_ = good_ && node.has_value();
    ring_.owner = node.value_or(0);
    return node;
  }

  void read_neighbour() {
    if (is_list("neighbour", "neighbour-repeated", "the RPL has one other end")) {
      return;
    }
    const auto neighbour = table_.text("neighbour");
    if (!neighbour) {
      good_ = good_ && !table_.has("neighbour");
      return;
    }
    const std::string& other_end = topology_.nodes[*ring_.neighbour].name;
    if (neighbour->value.empty()) {
      ring_.neighbour.reset();
    } else if (neighbour->value != other_end) {
      wrong("rpl-neighbour-misplaced", "neighbour",
            "the RPL neighbour is at the other end of the RPL",
            "allowed: " + other_end + ", or \"\" for a ring without one");
    }
  }

  void read_interconnection(bool nodes_known) {
    if (!open_) {
      if (table_.has("watching")) {
        wrong("watching-without-major-ring", "watching",
              "only a sub-ring with a major_ring has interconnection nodes",
              "add major_ring, or leave this out");
      }
      return;
    }
    if (!table_.integer("major_ring", client::kRingIdRange, "ring-id-range")) {
      good_ = false;
    }
    if (!table_.has("watching")) {
      missing("watching", "the first or the last of the sub-ring's nodes; the other one marks",
              "interconnection-roles");
      return;
    }
    const auto names = table_.text_or_texts("watching");
    if (!names) {
      good_ = false;
      return;
    }
    if (names->value.size() != 1) {
      wrong("interconnection-roles", "watching",
            "exactly one interconnection node watches and the other one marks: two watching nodes "
            "build a loop after a single cut, two marking nodes do not repair a split",
            "allowed: one of the sub-ring's two ends");
      return;
    }
    const auto node = node_named(reading_, table_, "watching", names->value[0]);
    if (!node) {
      good_ = false;
      return;
    }
    ring_.watching = *node;
    if (nodes_known && *node != ring_.nodes.front() && *node != ring_.nodes.back()) {
      wrong("watching-misplaced", "watching", "only the ends of a sub-ring watch or mark",
            "allowed: " + topology_.nodes[ring_.nodes.front()].name + ", " +
                topology_.nodes[ring_.nodes.back()].name + ", the ends of the sub-ring");
    }
  }

  Reading& reading_;
  Topology& topology_;
  TomlTable table_;
  Ring ring_;
  bool open_ = false;
  bool good_ = true;
};

void RingReader::attach(Reading& reading, RingIndex sub, int64_t major_id, uint32_t line) {
  Topology& topology = reading.topology;
  Ring& ring = topology.rings[sub];
  const std::string where = "ring " + std::to_string(ring.id);
  const auto major = topology.find_ring(static_cast<uint32_t>(major_id));
  if (!major || *major == sub) {
    if (reading.broken_rings.count(major_id) == 0) {
      reading.findings.add({.rule = "major-ring-unknown",
                            .line = line,
                            .where = where,
                            .key = "major_ring",
                            .value = std::to_string(major_id),
                            .advice = "allowed: the ID of another ring of this file"});
    }
    // Stays an open ring for the checks that follow; errors keep the file from being used.
    ring.major_ring = sub;
    reading.structure_broken = true;
    return;
  }
  ring.major_ring = major;
  const Ring& major_ring = topology.rings[*major];
  for (const NodeIndex node : ring.nodes) {
    const bool at_end = node == ring.nodes.front() || node == ring.nodes.back();
    if (at_end != major_ring.has_node(node)) {
      reading.findings.add(
          {.rule = at_end ? "sub-ring-end-outside-major-ring" : "sub-ring-node-in-major-ring",
           .line = ring.line,
           .where = where,
           .key = "nodes",
           .why = topology.nodes[node].name +
                  (at_end ? " is an end of the sub-ring and must be part of major ring "
                          : " is no end of the sub-ring and must not be part of major ring ") +
                  std::to_string(major_id),
           .advice = "name the nodes from one node of the major ring to another one"});
      reading.structure_broken = true;
    }
  }
  if (ring.control_vlan != major_ring.control_vlan) {
    reading.findings.add({.rule = "control-vlan-differs",
                          .line = ring.line,
                          .where = where,
                          .key = "control_vlan",
                          .value = std::to_string(ring.control_vlan),
                          .why = "a sub-ring shares the control VLAN of its major ring",
                          .advice = "allowed: " + std::to_string(major_ring.control_vlan)});
  }
}

}  // namespace

void read_rings(Reading& reading, const std::vector<const toml::table*>& tables) {
  for (const toml::table* table : tables) {
    RingReader(reading, *table).read();
  }
  for (const toml::table* table : tables) {
    // Not value(): that takes numbers with a fraction for whole ones, and any of 64 bits and more.
    const auto id = (*table)["id"].value_exact<int64_t>();
    const auto major_id = (*table)["major_ring"].value_exact<int64_t>();
    if (!id || !major_id || reading.broken_rings.count(*id) != 0) {
      continue;
    }
    const auto sub = reading.topology.find_ring(static_cast<uint32_t>(*id));
    if (!sub || reading.topology.rings[*sub].id != *id) {
      continue;  // it has an ID that no ring can have, which is reported already
    }
    const auto line = static_cast<uint32_t>(table->get("major_ring")->source().begin.line);
    RingReader::attach(reading, *sub, *major_id, line);
  }
}

}  // namespace erps::lab
