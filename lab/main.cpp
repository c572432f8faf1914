// erpslab: a laboratory for networks that are described in one file.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "client/unknown_command.h"
#include "lab/check/command_check.h"
#include "lab/check/verdict.h"
#include "lab/command_exec.h"
#include "lab/command_run.h"
#include "lab/explore/explore_options.h"
#include "lab/simulate/command_simulate.h"

namespace {

int run_command_line(int argc, char** argv) {
  CLI::App app{
      "Builds a network of Linux bridges, rings and hosts from a topology file, breaks its links "
      "and measures what the traffic notices."};
  app.name("erpslab");
  app.require_subcommand(0, 1);  // none at all is refused below: an unknown word is named first
  app.failure_message(erps::client::name_unknown_command);

  erps::lab::RunArguments run;
  CLI::App* run_command =
      app.add_subcommand("run", "Run the file's network in namespaces of its own, with its script");
  run_command->add_option("TOPOLOGY", run.topology, "The topology file")->required();
  run_command->add_flag("--json", run.json, "Print the report as JSON");
  run_command->add_flag("--keep-going", run.keep_going, "Go on after a step that failed");
  run_command->add_option("--pcap", run.pcap,
                          "Capture every node's R-APS frames into this directory");
  run_command->add_option("--logs", run.logs,
                          "Keep every daemon's log and journal in this directory");
  run_command->add_flag("--hold", run.hold,
                        "Keep the network after the script until Ctrl-C, to look into it");
  run_command->add_option("--erpsd", run.erpsd, "The daemon; default: beside erpslab, or in PATH");
  run_command->add_option("--module", run.module, "liberps.so; default: that of the build");
  run_command->footer(
      "Exit status: 0 every expectation of the file held, 1 one failed, 2 mistakes in the file or "
      "on the command line, 3 could not run, 4 nobody can tell, because this machine stood still,\n"
      "130 after Ctrl-C.\n");

  std::string topology;
  std::string node;
  CLI::App* config_command =
      app.add_subcommand("config", "Print the erpsd configuration of one node");
  config_command->add_option("TOPOLOGY", topology, "The topology file")->required();
  config_command->add_option("NODE", node, "Name of the node")->required();

  erps::lab::CheckArguments check;
  CLI::App* check_command =
      app.add_subcommand("check", "Say what is wrong or risky before anything runs");
  check_command->add_option("TOPOLOGY", check.topology, "The topology file");
  check_command->add_option("--daemon", check.daemon,
                            "Compare the erpsd configurations of a ring's nodes instead: files, or "
                            "directories of *.toml");
  check_command->add_flag("--json", check.json, "Print the findings as JSON");
  check_command->footer(
      "Exit status: 0 nothing found, 1 warnings, 2 errors, 3 could not be checked.\n");

  erps::lab::SimulateArguments simulate;
  const CLI::App* simulate_command = erps::lab::add_simulate_command(app, simulate);

  erps::lab::ExploreArguments explore;
  const CLI::App* explore_command = erps::lab::add_explore_command(app, explore);

  std::string inside;
  CLI::App* exec_command =
      app.add_subcommand("exec", "Run a command inside a node of a network that is running");
  exec_command->add_option("NODE", inside, "Name of the node")->required();
  pid_t lab = 0;
  exec_command->add_option("--lab", lab,
                           "Process ID of the erpslab that is meant, where several run");
  exec_command->prefix_command();  // what follows is the command's own
  exec_command->footer("Example: erpslab exec n1 bridge -d link\n");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (app.exit(error) == 0) {
      return erps::lab::kHeld;
    }
    // A command line that makes no sense is no finding of a check.
    return app.got_subcommand(check_command) ? static_cast<int>(erps::lab::Verdict::kUnknown)
                                             : erps::lab::kMistaken;
  }
  if (app.get_subcommands().empty()) {
    std::fputs("erpslab: a command is needed; see erpslab --help\n", stderr);
    return erps::lab::kMistaken;
  }
  if (check_command->parsed()) {
    return erps::lab::command_check(check);
  }
  if (simulate_command->parsed()) {
    return erps::lab::command_simulate(simulate);
  }
  if (explore_command->parsed()) {
    return erps::lab::command_explore(explore);
  }
  if (exec_command->parsed()) {
    return erps::lab::command_exec(inside, lab, exec_command->remaining());
  }
  return run_command->parsed() ? erps::lab::command_run(run)
                               : erps::lab::command_config(topology, node);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run_command_line(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "erpslab: %s\n", error.what());
    return erps::lab::kCouldNotRun;
  }
}
