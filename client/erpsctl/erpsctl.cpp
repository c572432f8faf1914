// erpsctl: asks and changes the Ethernet ring protection of this node.
#include <stdio.h>

#include <iostream>

#include "client/erpsctl/command.h"
#include "client/error.h"
#include "client/unknown_command.h"

namespace {

using namespace erps::erpsctl;

constexpr erps::client::Range kTimeoutRange{1, 600000, "ms"};

ExitStatus run(const CommandLine& line) {
  try {
    erps::client::Client client{std::chrono::milliseconds(line.timeout_ms)};
    line.action(client);
    return kDone;
  } catch (const erps::client::Refused& refused) {
    std::cerr << "erpsctl: " << refused.what() << '\n';
    return kRefused;
  } catch (const NoEffect& refused) {
    std::cerr << "erpsctl: " << refused.what() << '\n';
    return kRefused;
  } catch (const erps::client::ClientError& error) {
    std::cerr << "erpsctl: " << error.what() << '\n';
    return kNoAnswer;
  }
}

int run(int argc, char** argv) {
  CLI::App app("Ethernet ring protection (ITU-T G.8032): ask and change the rings of this node",
               "erpsctl");
  CommandLine line;
  app.require_subcommand(0, 1);  // none at all is refused below: an unknown word is named first
  app.failure_message(erps::client::name_unknown_command);
  app.fallthrough();
  add_number(app, "--timeout", line.timeout_ms, kTimeoutRange, "How long to wait for an answer")
      ->type_name("MS")
      ->capture_default_str();
  declare_show(app, line);
  declare_ring_commands(app, line);
  declare_switch_commands(app, line);
  declare_timer_commands(app, line);
  app.footer("Exit status: 0 done, 1 refused, 2 mistake on the command line, 3 nobody answers.");
  try {
    app.parse(argc, argv);
    if (!line.action) {
      throw UsageError("a command is needed; see erpsctl --help");
    }
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsage;
  } catch (const UsageError& error) {
    std::cerr << "erpsctl: " << error.what() << '\n';
    return kUsage;
  }
  return run(line);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "erpsctl: %s\n", error.what());
    return kNoAnswer;
  }
}
