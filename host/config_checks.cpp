#include "host/config_checks.h"

#include <grp.h>

namespace erps::host {

namespace {

// Where a value that may occur once was seen first: "ring.id in line 12".
class Seen {
 public:
  // Reports the value when it was seen before.
  void take(const Settings& section, const std::string& name, const std::string& value,
            const char* what, Mistakes& mistakes) {
    const auto [first, fresh] =
        places_.emplace(value, section.section() + "." + name + " in line " +
                                   std::to_string(section.at(name).line));
    if (!fresh) {
      mistakes.add(section, name, std::string(what) + " by " + first->second);
    }
  }

 private:
  std::map<std::string, std::string> places_;
};

class Checker {
 public:
  Checker(const FileSettings& file, Mistakes& mistakes) : file_(file), mistakes_(mistakes) {}

  void check() {
    check_group();
    check_ports();
    for (const Settings& ring : file_.rings) {
      check_ring(ring);
    }
    for (const Settings& sub_ring : file_.sub_rings) {
      check_sub_ring(sub_ring);
    }
  }

 private:
  void check_group() {
    const Setting* group = file_.management.find("group");
    if (group != nullptr && getgrnam(group->text.c_str()) == nullptr) {
      mistakes_.add(file_.management, "group", "there is no such group on this machine");
    }
  }

  void check_ports() {
    if (file_.ports.empty() && !file_.top.refused("port")) {
      mistakes_.add(file_.top, "port", "missing; at least one [[port]] section is needed");
    }
    const Setting* bridge = file_.top.find("bridge");
    Seen ids;
    Seen interfaces;
    for (const Settings& port : file_.ports) {
      if (const Setting* id = port.find("id")) {
        ids.take(port, "id", std::to_string(id->number), "already used", mistakes_);
      }
      const Setting* interface = port.find("interface");
      if (interface == nullptr) {
        continue;
      }
      interfaces.take(port, "interface", interface->text, "already used", mistakes_);
      if (bridge != nullptr && bridge->text == interface->text) {
        mistakes_.add(port, "interface", "is the bridge itself; a port of the bridge is needed");
      }
    }
  }

  void check_ring_id(const Settings& ring) {
    if (const Setting* id = ring.find("id")) {
      ring_ids_.take(ring, "id", std::to_string(id->number), "already used", mistakes_);
    }
  }

  // A ring port: one of the [[port]] sections, and of this ring only.
  void check_port(const Settings& ring, const std::string& name, int64_t number) {
    bool known = false;
    std::string all;
    for (const Settings& port : file_.ports) {
      if (const Setting* id = port.find("id")) {
        known = known || id->number == number;
        all += (all.empty() ? "" : ", ") + std::to_string(id->number);
      }
    }
    const std::string text = "port " + std::to_string(number) + " ";
    if (!known) {
      mistakes_.add(ring, name,
                    text + "has no [[port]] section; known are " + (all.empty() ? "none" : all));
    } else {
      ring_ports_.take(ring, name, std::to_string(number), (text + "is already used").c_str(),
                       mistakes_);
    }
  }

  void check_ring(const Settings& ring) {
    check_ring_id(ring);
    if (const Setting* ports = ring.find("ports")) {
      check_port(ring, "ports", ports->pair[0]);
      check_port(ring, "ports", ports->pair[1]);
    }
    if (const Setting* vlan = ring.find("control_vlan")) {
      vlans_.take(ring, "control_vlan", std::to_string(vlan->number),
                  "each ring needs a control VLAN of its own; already used", mistakes_);
    }
    check_rpl_port(ring);
  }

  void check_rpl_port(const Settings& ring) {
    const Setting* role = ring.find("node_role");
    const Setting* rpl_port = ring.find("rpl_port");
    const Setting* ports = ring.find("ports");
    if (role == nullptr) {
      return;
    }
    if (role->text == "none") {
      if (rpl_port != nullptr) {
        mistakes_.add(ring, "rpl_port",
                      "only for node_role \"owner\" or \"neighbour\", and this is \"none\"");
      }
      return;
    }
    if (rpl_port == nullptr) {
      // One that was refused for its value has been reported.
      if (!ring.refused("rpl_port")) {
        mistakes_.add(ring, "rpl_port", "missing; node_role \"" + role->text + "\" needs it");
      }
      return;
    }
    if (ports != nullptr && rpl_port->number != ports->pair[0] &&
        rpl_port->number != ports->pair[1]) {
      mistakes_.add(ring, "rpl_port",
                    "must be one of the ring's ports, " + std::to_string(ports->pair[0]) + " or " +
                        std::to_string(ports->pair[1]));
    }
  }

  void check_sub_ring(const Settings& sub_ring) {
    check_ring_id(sub_ring);
    if (const Setting* port = sub_ring.find("port")) {
      check_port(sub_ring, "port", port->number);
    }
    const Setting* major = sub_ring.find("major_ring");
    if (major == nullptr) {
      return;
    }
    bool known = false;
    std::string all;
    for (const Settings& ring : file_.rings) {
      if (const Setting* id = ring.find("id")) {
        known = known || id->number == major->number;
        all += (all.empty() ? "" : ", ") + std::to_string(id->number);
      }
    }
    if (!known) {
      mistakes_.add(sub_ring, "major_ring",
                    "there is no [[ring]] with this id; known are " + (all.empty() ? "none" : all));
      return;
    }
    major_rings_.take(sub_ring, "major_ring", std::to_string(major->number),
                      "a ring takes one sub-ring; already taken", mistakes_);
  }

  const FileSettings& file_;
  Mistakes& mistakes_;
  Seen ring_ids_, ring_ports_, vlans_, major_rings_;
};

}  // namespace

void check_settings(const FileSettings& file, Mistakes& mistakes) {
  Checker(file, mistakes).check();
}

}  // namespace erps::host
