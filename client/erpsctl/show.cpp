// show: one ring, or all of them.
#include <time.h>

#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "client/erpsctl/command.h"
#include "client/erpsctl/ring_output.h"

namespace erps::erpsctl {

namespace {

using client::Client;
using client::RingStatus;

struct ShowArguments {
  uint32_t ring = 0;  // 0: all
  bool json = false;
};

void run(Client& client, const ShowArguments& arguments) {
  const bool all = arguments.ring == 0;
  std::vector<RingStatus> rings;
  if (all) {
    rings = client.read_rings();
  } else {
    rings.push_back(
        existing_ring(client, arguments.ring, "show ring " + std::to_string(arguments.ring)));
  }
  const client::TimerSettings settings = client.timer_settings();
  const auto now_s = static_cast<uint32_t>(time(nullptr));
  if (arguments.json) {
    std::cout << rings_json(rings, settings, now_s).dump(2) << '\n';
    return;
  }
  if (rings.empty()) {
    std::cout << "no rings\n";
  }
  std::cout << rings_table(rings, settings, now_s);
  if (all) {
    std::cout << "Rings with an ID above " << client::kRingIdRange.max
              << " are shown when asked for by ID.\n";
  } else {
    std::cout << '\n' << ring_details(rings.front());
  }
}

}  // namespace

void declare_show(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      app.add_subcommand("show", "Show a ring, or all rings with an ID of 1 to 239");
  const auto arguments = std::make_shared<ShowArguments>();
  add_any_ring_argument(*command, arguments->ring);
  command->add_flag("--json", arguments->json, "As JSON");
  command->callback([arguments, &line] {
    line.action = [chosen = *arguments](Client& client) { run(client, chosen); };
  });
}

}  // namespace erps::erpsctl
