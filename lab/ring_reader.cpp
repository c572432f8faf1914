// Reads the [[ring]] tables: an ordinary ring, or a sub-ring between two interconnection nodes.
#include <algorithm>

#include "client/hazards.h"
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
    read_operation();
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
  void wrong(const char* key, const std::string& why) {
    table_.wrong(key, why);
    good_ = false;
  }
  void missing(const char* key, const std::string& allowed) {
    table_.missing(key, allowed);
    good_ = false;
  }

  void read_identity() {
    const auto id = table_.integer("id", client::kRingIdRange.min, client::kRingIdRange.max);
    if (id) {
      ring_.id = static_cast<uint32_t>(id->value);
      table_.rename("ring " + std::to_string(ring_.id));
      if (topology_.find_ring(ring_.id)) {
        wrong("id", "another ring has this ID");
      }
    } else if (!table_.has("id")) {
      missing("id", client::range_text(client::kRingIdRange));
    } else {
      good_ = false;
    }
    const auto vlan =
        table_.integer("control_vlan", client::kVlanRange.min, client::kVlanRange.max);
    if (vlan) {
      ring_.control_vlan = static_cast<uint32_t>(vlan->value);
    } else if (!table_.has("control_vlan")) {
      missing("control_vlan", client::range_text(client::kVlanRange));
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
        wrong("nodes", "node " + name + " stands twice in the ring");
        known = false;
      } else {
        ring_.nodes.push_back(*node);
      }
    }
    if (names->value.size() < 2) {
      wrong("nodes", "allowed: two or more nodes");
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
        wrong("role", open_ ? "a ring with a major_ring is a sub-ring; allowed: sub-ring"
                            : "allowed: major, sub-ring");
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
          wrong("nodes", taken_by ? "the link between " + pair + " belongs to ring " +
                                        std::to_string(topology_.rings[*taken_by].id)
                                  : "no link joins " + pair);
        }
        good_ = false;
        return false;
      }
      ring_.links.push_back(*found);
    }
    return true;
  }

  void read_rpl() {
    const auto owner = read_member("owner");
    if (!table_.has("rpl")) {
      missing("rpl", "a link of the ring at its owner");
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
      wrong("rpl", "this link is not part of the ring");
      return;
    }
    if (!owner) {
      return;
    }
    const Link& link = topology_.links[*rpl];
    if (!link.touches(*owner)) {
      wrong("rpl", "the RPL must have an end at the owner " + topology_.nodes[*owner].name);
      return;
    }
    ring_.neighbour = link.other_end(*owner);
    if (const auto neighbour = table_.text("neighbour")) {
      if (neighbour->value.empty()) {
        ring_.neighbour.reset();
      } else if (neighbour->value != topology_.nodes[*ring_.neighbour].name) {
        wrong("neighbour", "the RPL neighbour is at the other end of the RPL; allowed: " +
                               topology_.nodes[*ring_.neighbour].name +
                               ", or \"\" for a ring without one");
      }
    }
  }

  std::optional<NodeIndex> read_member(const char* key) {
    if (!table_.has(key)) {
      missing(key, "a node of the ring");
      return std::nullopt;
    }
    const auto name = table_.text(key);
    const auto node = name ? node_named(reading_, table_, key, name->value) : std::nullopt;
    if (node && !ring_.has_node(*node)) {
      wrong(key, "this node is not part of the ring");
      return std::nullopt;
    }
    good_ = good_ && node.has_value();
    if (node) {
      ring_.owner = *node;
    }
    return node;
  }

  void read_interconnection(bool nodes_known) {
    if (!open_) {
      if (table_.has("watching")) {
        wrong("watching", "only a sub-ring with a major_ring has interconnection nodes");
      }
      return;
    }
    if (!table_.integer("major_ring", client::kRingIdRange.min, client::kRingIdRange.max)) {
      good_ = false;
    }
    if (!table_.has("watching")) {
      missing("watching", "the first or the last of the sub-ring's nodes; the other one marks");
      return;
    }
    const auto names = table_.text_or_texts("watching");
    if (!names) {
      good_ = false;
      return;
    }
    if (names->value.size() != 1) {
      wrong("watching", std::string("exactly one interconnection node watches and the other one "
                                    "marks: two watching nodes build a loop after a single cut, "
                                    "two marking nodes do not repair a split"));
      return;
    }
    const auto node = node_named(reading_, table_, "watching", names->value[0]);
    if (!node) {
      good_ = false;
      return;
    }
    ring_.watching = *node;
    if (nodes_known && *node != ring_.nodes.front() && *node != ring_.nodes.back()) {
      wrong("watching", "allowed: " + topology_.nodes[ring_.nodes.front()].name + ", " +
                            topology_.nodes[ring_.nodes.back()].name +
                            ", the ends of the sub-ring");
    }
  }

  void read_operation() {
    if (const auto revertive = table_.boolean("revertive")) {
      ring_.revertive = revertive->value;
      if (!ring_.revertive) {
        reading_.findings.warning(
            revertive->line, table_.what() + ": revertive = false: " + client::kNonRevertiveHazard);
      }
    }
    const auto time = [&](const char* key, const client::Range& range, uint32_t& value_ms) {
      if (const auto value = table_.integer(key, range.min, range.max, range.unit)) {
        value_ms = static_cast<uint32_t>(value->value);
      }
    };
    time("wtr_ms", client::kWtrRange, ring_.timers.wtr_ms);
    time("guard_ms", client::kGuardRange, ring_.timers.guard_ms);
    time("holdoff_ms", client::kHoldoffRange, ring_.timers.holdoff_ms);
    if (ring_.timers.wtr_ms < client::kShortestCleanWtrMs) {
      reading_.findings.warning(table_.line_of("wtr_ms"), table_.what() + ": wtr_ms = " +
                                                              std::to_string(ring_.timers.wtr_ms) +
                                                              ": " + client::kShortWtrHazard);
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
  const std::string what = "ring " + std::to_string(ring.id) + ": ";
  const auto major = topology.find_ring(static_cast<uint32_t>(major_id));
  if (!major || *major == sub) {
    if (reading.broken_rings.count(major_id) == 0) {
      reading.findings.error(line, what + "major_ring = " + std::to_string(major_id) +
                                       ": allowed: the ID of another ring of this file");
    }
    // Stays an open ring for the checks that follow; errors keep the file from being used.
    ring.major_ring = sub;
    return;
  }
  ring.major_ring = major;
  const Ring& major_ring = topology.rings[*major];
  for (const NodeIndex node : ring.nodes) {
    const bool at_end = node == ring.nodes.front() || node == ring.nodes.back();
    if (at_end != major_ring.has_node(node)) {
      reading.findings.error(
          ring.line,
          what + "nodes: " + topology.nodes[node].name +
              (at_end ? " is an end of the sub-ring and must be part of major ring "
                      : " is no end of the sub-ring and must not be part of major ring ") +
              std::to_string(major_id));
    }
  }
  if (ring.control_vlan != major_ring.control_vlan) {
    reading.findings.error(ring.line, what + "control_vlan = " + std::to_string(ring.control_vlan) +
                                          ": a sub-ring shares the control VLAN of its major "
                                          "ring; allowed: " +
                                          std::to_string(major_ring.control_vlan));
  }
}

}  // namespace

void read_rings(Reading& reading, const std::vector<const toml::table*>& tables) {
  for (const toml::table* table : tables) {
    RingReader(reading, *table).read();
  }
  for (const toml::table* table : tables) {
    const auto id = (*table)["id"].value<int64_t>();
    const auto major_id = (*table)["major_ring"].value<int64_t>();
    if (!id || !major_id || reading.broken_rings.count(*id) != 0) {
      continue;
    }
    const auto line = static_cast<uint32_t>(table->get("major_ring")->source().begin.line);
    RingReader::attach(reading, *reading.topology.find_ring(static_cast<uint32_t>(*id)), *major_id,
                       line);
  }
}

}  // namespace erps::lab
