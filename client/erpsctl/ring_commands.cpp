// add, enable, disable, delete, role, revertive, sub-ring attach.
#include <iostream>
#include <memory>

#include "client/erpsctl/command.h"
#include "client/hazards.h"
#include "client/words.h"

namespace erps::erpsctl {

namespace {

using client::Client;
using client::RingStatus;

struct AddArguments {
  uint32_t ring = 0;
  std::string ports;
  uint32_t vlan = 0;
  std::string role = "none";
  uint32_t rpl_port = 0;
  std::string ring_role = "major";
};

std::string ring_text(uint32_t ring) {
  return "ring " + std::to_string(ring);
}

// Two numbers with a comma between them.
bool split_ports(const std::string& text, uint32_t* first, uint32_t* second) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos) {
    return false;
  }
  const auto number = [](const std::string& part, uint32_t* value) {
    return !part.empty() && part.size() <= 2 &&
           part.find_first_not_of("0123456789") == std::string::npos &&
           client::kPortRange.contains(*value = static_cast<uint32_t>(std::stoul(part)));
  };
  return number(text.substr(0, comma), first) && number(text.substr(comma + 1), second) &&
         *first != *second;
}

std::string ports_problem(const std::string& text) {
  uint32_t first = 0;
  uint32_t second = 0;
  return split_ports(text, &first, &second)
             ? ""
             : "\"" + text + "\" must be two different ports such as 1,2, each " +
                   client::range_text(client::kPortRange);
}

// The module takes the second port for the one at the RPL.
client::NewRing new_ring_of(const AddArguments& arguments) {
  client::NewRing ring;
  ring.ring = arguments.ring;
  ring.control_vlan = arguments.vlan;
  ring.node_role = client::node_role_of(arguments.role).value();
  ring.ring_role = client::ring_role_of(arguments.ring_role).value();
  split_ports(arguments.ports, &ring.port0, &ring.port1);
  const bool at_rpl = ring.node_role != client::kNoRplRole;
  if (at_rpl && arguments.rpl_port == 0) {
    throw UsageError("--rpl-port is needed with --role " + arguments.role);
  }
  if (!at_rpl && arguments.rpl_port != 0) {
    throw UsageError("--rpl-port is only for --role owner or neighbour");
  }
  if (at_rpl && arguments.rpl_port != ring.port0 && arguments.rpl_port != ring.port1) {
    throw UsageError("--rpl-port " + std::to_string(arguments.rpl_port) +
                     " is not one of --ports " + arguments.ports);
  }
  if (at_rpl && arguments.rpl_port == ring.port0) {
    std::swap(ring.port0, ring.port1);
  }
  return ring;
}

void add(Client& client, const client::NewRing& ring) {
  const std::optional<RingStatus> before = client.read_ring(ring.ring);
  client.add_ring(ring);
  if (before) {
    std::cout << ring_text(ring.ring) << " was there already and has been changed\n";
  } else {
    std::cout << ring_text(ring.ring) << " added; it is disabled\n";
  }
}

void enable(Client& client, uint32_t ring) {
  const bool before = existing_ring(client, ring, "enable " + ring_text(ring)).enabled;
  client.enable_ring(ring);
  const RingStatus after = existing_ring(client, ring, "enable " + ring_text(ring));
  bool any_link = false;
  for (const client::PortStatus& port : after.ports()) {
    any_link = any_link || port.link_up;
  }
  if (!any_link) {
    warn("no port of " + ring_text(ring) + " has a link");
  }
  std::cout << ring_text(ring) << (before ? " was enabled already" : " enabled") << ", state "
            << client::state_name(after.state) << '\n';
}

void disable(Client& client, uint32_t ring) {
  const RingStatus before = existing_ring(client, ring, "disable " + ring_text(ring));
  if (!before.enabled) {
    std::cout << ring_text(ring) << " was disabled already\n";
    return;
  }
  client.disable_ring(ring);
  warn("the ports of " + ring_text(ring) +
       " are not blocked any more at this node; if no other node blocks the ring, it is a loop");
  std::cout << ring_text(ring) << " disabled\n";
}

void set_role(Client& client, uint32_t ring, const std::string& role) {
  client.set_ring_role(ring, client::ring_role_of(role).value());
  std::cout << ring_text(ring) << " has role " << role << '\n';
}

void set_revertive(Client& client, uint32_t ring, bool revertive) {
  client.set_revertive(ring, revertive);
  if (!revertive) {
    warn(client::kNonRevertiveHazard);
  }
  std::cout << ring_text(ring) << " is " << (revertive ? "revertive" : "non-revertive") << '\n';
}

struct AttachArguments {
  client::NewSubRing ring;
  std::string role = "none";
  std::string interconnection;
};

void attach(Client& client, client::NewSubRing ring) {
  const std::optional<RingStatus> major = client.read_ring(ring.major_ring);
  if (major && major->partner_ring != 0 && major->partner_ring != ring.ring) {
    throw NoEffect("a ring takes one sub-ring, and " + ring_text(ring.major_ring) +
                   " has sub-ring " + std::to_string(major->partner_ring));
  }
  client.attach_sub_ring(ring);
  warn(client::kWatchingNeedsMarking);
  std::cout << "sub-ring " << ring.ring << " attached to " << ring_text(ring.major_ring)
            << "; it is disabled\n";
}

void declare_add(CLI::App& app, CommandLine& line) {
  CLI::App* command = app.add_subcommand("add", "Add a ring, or change one that is disabled");
  const auto arguments = std::make_shared<AddArguments>();
  add_ring_argument(*command, arguments->ring);
  command->add_option("--ports", arguments->ports, "The two ring ports, such as 1,2")
      ->type_name("A,B")
      ->required()
      ->check(CLI::Validator([](std::string& text) { return ports_problem(text); }, ""));
  add_number(*command, "--vlan", arguments->vlan, client::kVlanRange, "Control VLAN")->required();
  command->add_option("--role", arguments->role, "What this node is to the RPL")
      ->type_name("ROLE")
      ->check(CLI::IsMember({"owner", "neighbour", "none"}))
      ->capture_default_str();
  add_number(*command, "--rpl-port", arguments->rpl_port, client::kPortRange,
             "The port at the RPL, for owner and neighbour");
  command->add_option("--ring-role", arguments->ring_role, "What kind of ring it is")
      ->type_name("ROLE")
      ->check(CLI::IsMember({"major", "sub-ring"}))
      ->capture_default_str();
  command->callback([arguments, &line] {
    line.action = [ring = new_ring_of(*arguments)](Client& client) { add(client, ring); };
  });
}

void declare_attach(CLI::App& app, CommandLine& line) {
  CLI::App* group = app.add_subcommand("sub-ring", "Sub-rings that end at this node");
  group->require_subcommand(1);
  CLI::App* command = group->add_subcommand("attach", "Attach a sub-ring to a ring of this node");
  const auto arguments = std::make_shared<AttachArguments>();
  add_ring_argument(*command, arguments->ring.ring);
  add_number(*command, "--major", arguments->ring.major_ring, client::kRingIdRange,
             "The ring to attach it to")
      ->required();
  add_number(*command, "--port", arguments->ring.port, client::kPortRange,
             "The port into the sub-ring")
      ->required();
  command->add_option("--role", arguments->role, "What this node is to the RPL of the sub-ring")
      ->type_name("ROLE")
      ->check(CLI::IsMember({"owner", "neighbour", "none"}))
      ->capture_default_str();
  command
      ->add_option("--interconnection", arguments->interconnection,
                   "watching: opens the sub-ring when the ring is cut on both sides of this node")
      ->type_name("ROLE")
      ->required()
      ->check(CLI::IsMember({"watching", "marking"}));
  command->callback([arguments, &line] {
    client::NewSubRing ring = arguments->ring;
    ring.node_role = client::node_role_of(arguments->role).value();
    ring.interconnection_role = client::interconnection_role_of(arguments->interconnection).value();
    if (ring.ring == ring.major_ring) {
      throw UsageError("--major " + std::to_string(ring.major_ring) + " is the sub-ring itself");
    }
    line.action = [ring](Client& client) { attach(client, ring); };
  });
}

// A command whose only argument is a ring.
void declare_simple(CLI::App& app, CommandLine& line, const char* name, const char* text,
                    bool any_ring, void (*action)(Client&, uint32_t)) {
  CLI::App* command = app.add_subcommand(name, text);
  const auto ring = std::make_shared<uint32_t>(0);
  if (any_ring) {
    add_any_ring_argument(*command, *ring)->required();
  } else {
    add_ring_argument(*command, *ring);
  }
  command->callback([ring, action, &line] {
    line.action = [id = *ring, action](Client& client) { action(client, id); };
  });
}

// A command with a ring and one word out of a few.
void declare_with_word(CLI::App& app, CommandLine& line, const char* name, const char* text,
                       const char* argument, const std::vector<std::string>& words,
                       void (*action)(Client&, uint32_t, const std::string&)) {
  CLI::App* command = app.add_subcommand(name, text);
  const auto ring = std::make_shared<uint32_t>(0);
  const auto word = std::make_shared<std::string>();
  add_ring_argument(*command, *ring);
  command->add_option(argument, *word)->type_name("")->required()->check(CLI::IsMember(words));
  command->callback([ring, word, action, &line] {
    line.action = [id = *ring, chosen = *word, action](Client& client) {
      action(client, id, chosen);
    };
  });
}

}  // namespace

void declare_ring_commands(CLI::App& app, CommandLine& line) {
  declare_add(app, line);
  declare_simple(app, line, "enable", "Start the protocol on a ring", false, enable);
  declare_simple(app, line, "disable", "Stop the protocol on a ring", true, disable);
  declare_simple(app, line, "delete", "Delete a ring that is disabled", true,
                 [](Client& client, uint32_t ring) {
                   client.delete_ring(ring);
                   std::cout << ring_text(ring) << " deleted\n";
                 });
  declare_with_word(app, line, "role", "Set the role of a ring that is disabled", "ROLE",
                    {"major", "sub-ring"}, set_role);
  declare_with_word(app, line, "revertive", "Set whether a ring returns to normal by itself",
                    "MODE", {"on", "off"},
                    [](Client& client, uint32_t ring, const std::string& mode) {
                      set_revertive(client, ring, mode == "on");
                    });
  declare_attach(app, line);
}

}  // namespace erps::erpsctl
