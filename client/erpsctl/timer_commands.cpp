// timers: show and set the times that hold for all rings of the node.
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>

#include "client/erpsctl/command.h"
#include "client/erpsctl/ring_output.h"
#include "client/hazards.h"

namespace erps::erpsctl {

namespace {

using client::Client;

constexpr uint32_t kMsPerSecond = 1000;

struct TimerArguments {
  uint32_t guard_ms = 0, wtr_ms = 0, holdoff_ms = 0;
  bool guard = false, wtr = false, holdoff = false;  // given
  bool json = false;
};

void set_timers(Client& client, const TimerArguments& arguments) {
  if (arguments.wtr && arguments.wtr_ms < client::kShortestCleanWtrMs) {
    warn(client::kShortWtrHazard);
  }
  if (arguments.wtr && arguments.wtr_ms % kMsPerSecond != 0) {
    warn("the module counts WTR in whole seconds: " +
         std::to_string(arguments.wtr_ms / kMsPerSecond) + " s are used");
  }
  if (arguments.guard) {
    client.set_guard_ms(arguments.guard_ms);
  }
  if (arguments.wtr) {
    client.set_wtr_ms(arguments.wtr_ms);
  }
  if (arguments.holdoff) {
    client.set_holdoff_ms(arguments.holdoff_ms);
  }
}

void run(Client& client, const TimerArguments& arguments) {
  set_timers(client, arguments);
  const client::TimerSettings now = client.timer_settings();
  if (arguments.json) {
    std::cout << timers_json(now).dump(2) << '\n';
    return;
  }
  std::cout << "guard     " << now.guard_ms << " ms\n"
            << "WTR       " << now.wtr_minutes
            << " min, rounded down: the module does not tell seconds\n"
            << "hold-off  " << now.holdoff_ms << " ms\n";
}

}  // namespace

void declare_timer_commands(CLI::App& app, CommandLine& line) {
  CLI::App* command = app.add_subcommand(
      "timers", "Show the times of all rings of this node, after setting those that are given");
  const auto arguments = std::make_shared<TimerArguments>();
  CLI::Option* guard = add_number(*command, "--guard", arguments->guard_ms, client::kGuardRange,
                                  "Guard time in ms; WTB is this and 5000 ms");
  CLI::Option* wtr = add_number(*command, "--wtr", arguments->wtr_ms, client::kWtrRange,
                                "Wait-to-restore time in ms");
  CLI::Option* holdoff = add_number(*command, "--holdoff", arguments->holdoff_ms,
                                    client::kHoldoffRange, "Hold-off time in ms");
  command->add_flag("--json", arguments->json, "As JSON");
  command->callback([arguments, guard, wtr, holdoff, &line] {
    arguments->guard = guard->count() > 0;
    arguments->wtr = wtr->count() > 0;
    arguments->holdoff = holdoff->count() > 0;
    line.action = [chosen = *arguments](Client& client) { run(client, chosen); };
  });
}

}  // namespace erps::erpsctl
