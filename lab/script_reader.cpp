// Reads the script of faults: [script] and the [[step]] tables.
#include <algorithm>
#include <charconv>

#include "client/limits.h"
#include "lab/topology_reader.h"

namespace erps::lab {

namespace {

constexpr client::Range kWaitRange{0, 3600000, "ms"};
constexpr client::Range kFramesRange{0, INT32_MAX, "frames"};
constexpr double kLongestOutageMs = 3600000;

struct ActionKey {
  const char* key;
  Action action;
};

constexpr ActionKey kActions[] = {
    {"cut", Action::kCut},
    {"restore", Action::kRestore},
    {"forced_switch", Action::kForcedSwitch},
    {"manual_switch", Action::kManualSwitch},
    {"clear", Action::kClear},
    {"kill", Action::kKill},
    {"start", Action::kStart},
    {"wait_ms", Action::kWait},
};

class StepReader {
 public:
  StepReader(Reading& reading, const toml::table& toml_table, size_t number)
      : reading_(reading),
        topology_(reading.topology),
        table_(toml_table, "step " + std::to_string(number), reading.findings) {}

  void read() {
    step_.line = table_.line();
    const ActionKey* found = nullptr;
    for (const ActionKey& action : kActions) {
      if (!table_.has(action.key)) {
        continue;
      }
      if (found != nullptr) {
        wrong("step-ambiguous", action.key,
              std::string("a step does one thing, and this one has ") + found->key,
              "make two steps of it");
        continue;
      }
      found = &action;
    }
    if (found == nullptr) {
      std::string keys;
      for (const ActionKey& action : kActions) {
        keys += (keys.empty() ? "" : ", ") + std::string(action.key);
      }
      reading_.findings.error("step-empty", table_.line(), table_.what(), "does nothing",
                              "allowed: one of " + keys);
      good_ = false;
    } else {
      step_.action = found->action;
      read_action(found->key);
    }
    read_expectation();
    table_.refuse_the_rest();
    if (good_) {
      topology_.steps.push_back(step_);
    }
  }

 private:
  void wrong(const char* rule, const char* key, const std::string& why,
             const std::string& advice = {}) {
    table_.wrong(rule, key, why, advice);
    good_ = false;
  }

  void read_action(const char* key) {
    switch (step_.action) {
      case Action::kCut:
      case Action::kRestore:
        read_links(key);
        break;
      case Action::kForcedSwitch:
      case Action::kManualSwitch:
        if (const auto port = read_port(key)) {
          step_.port = *port;
          step_.node = port->node;
          read_ring(key);
        }
        break;
      case Action::kClear:
        if (read_node(key)) {
          read_ring(key);
        }
        break;
      case Action::kKill:
      case Action::kStart:
        if (read_node(key) && topology_.rings_at(step_.node).empty()) {
          wrong("step-impossible", key, "this node is part of no ring and runs no daemon",
                "name a node of a ring");
        }
        break;
      case Action::kWait:
        if (const auto wait = table_.integer(key, kWaitRange)) {
          step_.wait_ms = static_cast<uint32_t>(wait->value);
        }
        break;
    }
  }

  void read_links(const char* key) {
    const auto names = table_.text_or_texts(key);
    if (!names) {
      good_ = false;
      return;
    }
    for (const std::string& name : names->value) {
      const auto link = link_named(reading_, table_, key, name);
      if (!link) {
        good_ = false;
      } else if (std::count(step_.links.begin(), step_.links.end(), *link) != 0) {
        wrong("name-repeated", key, "link " + name + " stands twice", "name it once");
      } else {
        step_.links.push_back(*link);
      }
    }
    if (names->value.empty()) {
      wrong("wrong-value", key, {}, "allowed: a link or a list of links");
    }
  }

  bool read_node(const char* key) {
    const auto name = table_.text(key);
    const auto node = name ? node_named(reading_, table_, key, name->value) : std::nullopt;
    good_ = good_ && node.has_value();
    step_.node = node.value_or(0);
    return node.has_value();
  }

  std::optional<PortRef> port_named(const char* key, const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
      wrong("wrong-value", key, {}, "allowed: node:link, as in n1:n1-n2");
      return std::nullopt;
    }
    const auto node = node_named(reading_, table_, key, text.substr(0, colon));
    const auto link = link_named(reading_, table_, key, text.substr(colon + 1));
    if (!node || !link) {
      good_ = false;
      return std::nullopt;
    }
    if (!topology_.links[*link].touches(*node)) {
      wrong(
          "port-elsewhere", key,
          "link " + topology_.links[*link].name + " does not end at " + topology_.nodes[*node].name,
          "name a link of this node");
      return std::nullopt;
    }
    return PortRef{*node, *link};
  }

  std::optional<PortRef> read_port(const char* key) {
    const auto text = table_.text(key);
    const auto port = text ? port_named(key, text->value) : std::nullopt;
    if (!port) {
      good_ = false;
      return std::nullopt;
    }
    if (!topology_.ring_of_link(port->link) && reading_.broken_rings.empty()) {
      wrong("step-impossible", key, "this link is part of no ring", "name a link of a ring");
      return std::nullopt;
    }
    return port;
  }

  std::optional<RingIndex> ring_with_id(const char* key, int64_t id) {
    const auto ring = client::kRingIdRange.contains(id)
                          ? topology_.find_ring(static_cast<uint32_t>(id))
                          : std::nullopt;
    if (!ring) {
      good_ = false;
      if (reading_.broken_rings.count(id) == 0) {
        wrong("unknown-name", key, "no ring has the ID " + std::to_string(id),
              "name a ring of this file");
      }
    }
    return ring;
  }

  // `ring` may be left out where there is only one that can be meant.
  void read_ring(const char* action_key) {
    const bool is_port = step_.action != Action::kClear;
    if (const auto id = table_.integer("ring", client::kRingIdRange, "ring-id-range")) {
      const auto ring = ring_with_id("ring", id->value);
      if (!ring) {
        return;
      }
      step_.ring = *ring;
      if (is_port ? !topology_.rings[*ring].has_link(step_.port.link)
                  : !topology_.rings[*ring].has_node(step_.node)) {
        wrong("step-impossible", "ring",
              std::string("this ring does not have the ") + (is_port ? "link" : "node") + " of " +
                  action_key,
              "name a ring that has it");
      }
      return;
    }
    if (table_.has("ring")) {
      good_ = false;
      return;
    }
    if (is_port) {
      step_.ring = topology_.ring_of_link(step_.port.link).value_or(0);
      return;
    }
    const auto rings = topology_.rings_at(step_.node);
    if (rings.size() != 1 && reading_.broken_rings.empty()) {
      if (rings.empty()) {
        wrong("step-impossible", action_key, "this node is part of no ring",
              "name a node of a ring");
      } else {
        wrong("step-ambiguous", action_key, "this node is part of several rings",
              "say which with ring");
      }
    }
    step_.ring = rings.empty() ? 0 : rings[0];
  }

  void read_expectation() {
    if (const auto bound = table_.number("outage_ms", 0, kLongestOutageMs, "ms")) {
      step_.outage_ms = bound->value;
    }
    if (const auto bound = table_.integer("duplicates", kFramesRange)) {
      step_.duplicates = static_cast<uint64_t>(bound->value);
    }
    if (const toml::table* states = table_.table("state")) {
      for (const auto& [key, value] : *states) {
        read_state(std::string(key.str()), value);
      }
    }
    if (const auto names = table_.texts("blocked")) {
      step_.blocked.emplace();
      for (const std::string& name : names->value) {
        if (const auto port = port_named("blocked", name)) {
          step_.blocked->push_back(*port);
        }
      }
      std::sort(step_.blocked->begin(), step_.blocked->end());
    } else if (table_.has("blocked")) {
      good_ = false;
    }
  }

  void read_state(const std::string& key, const toml::node& value) {
    int64_t id = -1;
    const auto parsed = std::from_chars(key.data(), key.data() + key.size(), id);
    if (parsed.ec != std::errc() || parsed.ptr != key.data() + key.size()) {
      wrong("wrong-value", "state", {},
            "allowed: a table of states by ring ID, as in { 1 = \"protection\" }");
      return;
    }
    const auto ring = ring_with_id("state", id);
    const auto name = value.value<std::string>();
    const auto state = name ? parse_state(*name) : std::nullopt;
    if (!state || *state == NodeState::kInit) {
      reading_.findings.add({.rule = "wrong-value",
                             .line = static_cast<uint32_t>(value.source().begin.line),
                             .where = table_.what(),
                             .key = "state",
                             .value = "{ " + key + " = " + value_text(value) + " }",
                             .advice = "allowed: idle, protection, manual, forced, pending"});
      good_ = false;
    } else if (ring) {
      step_.state[*ring] = *state;
    }
  }

  Reading& reading_;
  Topology& topology_;
  TomlTable table_;
  Step step_;
  bool good_ = true;
};

}  // namespace

void read_script(Reading& reading, const toml::table* script,
                 const std::vector<const toml::table*>& tables) {
  if (script != nullptr) {
    TomlTable table(*script, "script", reading.findings);
    const auto every_link = table.boolean("every_link");
    table.refuse_the_rest();
    if (every_link && every_link->value) {
      for (const Ring& ring : reading.topology.rings) {
        for (const LinkIndex link : ring.links) {
          Step step;
          step.line = every_link->line;
          step.links = {link};
          step.action = Action::kCut;
          reading.topology.steps.push_back(step);
          step.action = Action::kRestore;
          reading.topology.steps.push_back(step);
        }
      }
    }
  }
  for (size_t i = 0; i < tables.size(); ++i) {
    StepReader(reading, *tables[i], i + 1).read();
  }
}

}  // namespace erps::lab
