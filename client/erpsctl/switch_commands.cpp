// forced-switch, manual-switch, clear. The module answers "done" also when a request changes
// nothing, so the ring is read before and after.
#include <iostream>
#include <memory>

#include "client/erpsctl/command.h"
#include "client/hazards.h"
#include "client/words.h"

namespace erps::erpsctl {

namespace {

using client::Client;
using client::RingStatus;

struct Switch {
  const char* name;  // "forced switch"
  uint32_t request;
  uint32_t state;
  void (Client::*send)(uint32_t ring, uint32_t port);
};

constexpr Switch kForced{"forced switch", client::kRequestForcedSwitch, client::kStateForcedSwitch,
                         &Client::forced_switch};
constexpr Switch kManual{"manual switch", client::kRequestManualSwitch, client::kStateManualSwitch,
                         &Client::manual_switch};

std::string ring_text(uint32_t ring) {
  return "ring " + std::to_string(ring);
}

std::string ports_text(const RingStatus& ring) {
  std::string text;
  for (const client::PortStatus& port : ring.ports()) {
    text += (text.empty() ? "" : " and ") + std::to_string(port.port);
  }
  return text;
}

// Throws when the request would change nothing. It is not sent then: the module would answer
// "done" and, for a switch, note the port all the same.
void check_switch(const Switch& what, const RingStatus& before, uint32_t port) {
  const std::string subject = ring_text(before.ring_id);
  if (!before.enabled) {
    throw NoEffect(subject + " is disabled: a " + what.name + " has no effect");
  }
  if (!before.has_port(port)) {
    throw NoEffect("port " + std::to_string(port) + " is not a port of " + subject +
                   ", which has " + ports_text(before));
  }
  if (before.local_request >= what.request) {
    throw NoEffect(client::request_name(before.local_request) + " is in force on " + subject +
                   " at this node: a " + what.name + " does not take its place" +
                   (before.local_request == client::kRequestLocalSf ? "" : "; clear it first"));
  }
}

void report_switch(const Switch& what, const RingStatus& after, uint32_t port) {
  const std::string subject = ring_text(after.ring_id);
  if (after.local_request != what.request) {
    throw NoEffect("the " + std::string(what.name) + " is not in force: " + subject + " accepted " +
                   client::request_name(after.last_request) + " meanwhile");
  }
  if (after.state != what.state) {
    throw NoEffect("the " + std::string(what.name) + " stands, but " + subject + " is in state " +
                   client::state_name(after.state) + " because of " +
                   "another node and has switched nothing; clear it unless it is to wait");
  }
  std::cout << subject << ": " << what.name << " in force, state "
            << client::state_name(after.state) << ", port " << port << " blocked\n";
}

void run_switch(Client& client, const Switch& what, uint32_t ring, uint32_t port) {
  const std::string words = std::string(what.name) + " of " + ring_text(ring);
  const RingStatus before = existing_ring(client, ring, words);
  check_switch(what, before, port);
  const std::optional<uint32_t> rpl_port = before.rpl_port();
  if (before.ring_role == client::kMajorRing && rpl_port && *rpl_port != port) {
    warn(client::kOwnerSwitchHazard);
  }
  (client.*what.send)(ring, port);
  report_switch(what, existing_ring(client, ring, words), port);
}

bool switched(const RingStatus& ring) {
  return ring.local_request == client::kRequestForcedSwitch ||
         ring.local_request == client::kRequestManualSwitch;
}

void check_clear(const RingStatus& before) {
  const std::string subject = ring_text(before.ring_id);
  if (!before.enabled) {
    throw NoEffect(subject + " is disabled: there is nothing to clear");
  }
  if (switched(before)) {
    return;
  }
  const bool elsewhere =
      before.state == client::kStateForcedSwitch || before.state == client::kStateManualSwitch;
  throw NoEffect(
      "no forced or manual switch is in force on " + subject + " at this node" +
      (elsewhere ? ": it was asked for at another node, where it is to be cleared" : ""));
}

void run_clear(Client& client, uint32_t ring) {
  const std::string words = "clear " + ring_text(ring);
  const RingStatus before = existing_ring(client, ring, words);
  check_clear(before);
  for (const client::PortStatus& port : before.ports()) {
    if (before.local_request == client::kRequestForcedSwitch && !port.link_up) {
      warn(client::kClearWithFailedLinkHazard);
      break;
    }
  }
  client.clear(ring);
  const RingStatus after = existing_ring(client, ring, words);
  if (switched(after)) {
    throw NoEffect("the clear was not accepted: " + client::request_name(after.local_request) +
                   " is still in force on " + ring_text(ring));
  }
  std::cout << ring_text(ring) << ": " << client::request_name(before.local_request)
            << " cleared, state " << client::state_name(after.state) << '\n';
}

void declare_switch(CLI::App& app, CommandLine& line, const char* name, const char* text,
                    const Switch& what) {
  CLI::App* command = app.add_subcommand(name, text);
  const auto ring = std::make_shared<uint32_t>(0);
  const auto port = std::make_shared<uint32_t>(0);
  add_ring_argument(*command, *ring);
  add_number(*command, "PORT", *port, client::kPortRange, "The port to be blocked")->required();
  command->callback([ring, port, &what, &line] {
    line.action = [id = *ring, chosen = *port, &what](Client& client) {
      run_switch(client, what, id, chosen);
    };
  });
}

}  // namespace

void declare_switch_commands(CLI::App& app, CommandLine& line) {
  declare_switch(app, line, "forced-switch",
                 "Block a port and open the rest of the ring, whatever its state", kForced);
  declare_switch(app, line, "manual-switch",
                 "Block a port and open the rest of the ring, unless something has failed",
                 kManual);
  CLI::App* clear = app.add_subcommand("clear", "Clear a forced or manual switch of this node");
  const auto ring = std::make_shared<uint32_t>(0);
  add_ring_argument(*clear, *ring);
  clear->callback(
      [ring, &line] { line.action = [id = *ring](Client& client) { run_clear(client, id); }; });
}

}  // namespace erps::erpsctl
