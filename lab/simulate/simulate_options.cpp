// The command line of erpslab simulate.
#include <CLI/CLI.hpp>

#include "lab/simulate/command_simulate.h"

namespace erps::lab {

CLI::App* add_simulate_command(CLI::App& app, SimulateArguments& arguments) {
  CLI::App* command = app.add_subcommand(
      "simulate", "Run a network in virtual time: its script, every fault, or random ones");
  command->add_option("TOPOLOGY", arguments.topology,
                      "The topology file; without one, rings are drawn (--rings)");
  command->add_flag("--every-link", arguments.every_link,
                    "Cut and restore each link; so without a script in the file");
  command->add_flag("--every-node", arguments.every_node, "Crash and restart each node");
  command->add_flag("--exhaustive", arguments.exhaustive,
                    "Every link, every node, every two links, every link and node");
  command->add_option("--faults", arguments.faults, "Draw faults by chance")
      ->check(CLI::IsMember({"random"}));
  command->add_option("--rings", arguments.rings,
                      "Draw rings of so many nodes, too, as in 2-16; needs no TOPOLOGY");
  command->add_option("--hours", arguments.hours, "Simulated hours of random faults")
      ->capture_default_str()
      ->check(CLI::Range(0.001, 1e7));
  command
      ->add_option("--fault-every", arguments.fault_every_s,
                   "Mean seconds from a random fault to the next; default: drawn for each "
                   "scenario, 2 s to 2 min")
      ->check(CLI::Range(0.1, 86400.0));
  command->add_option("--jobs", arguments.jobs, "Processes; default: one a processor")
      ->check(CLI::Range(1, 1024));
  command->add_option("--seed", arguments.seed,
                      "What all chance follows from; default: drawn, and printed first");
  command->add_option("--only", arguments.only, "Only the scenario of this number, in detail");
  command->add_option("--scenario", arguments.scenario,
                      "Play the scenario in this file, in detail");
  command->add_option("--state", arguments.state,
                      "Keep in this file what is done; the same command goes on from it");
  command->add_option("--scenarios", arguments.scenarios,
                      "Directory for the smallest scenarios that fail; default: the present one");
  command->add_option("--pcap", arguments.pcap,
                      "Capture every node's R-APS frames into this directory");
  command->add_option("--report", arguments.report, "Write a page to look at into this file");
  command->add_flag("--json", arguments.json, "Print the report as JSON");
  command->add_flag("--keep-going", arguments.keep_going,
                    "Go on after a step of the script that failed");
  command->add_flag("--verbose", arguments.verbose, "Say what came of every change");
  command->add_flag("--log", arguments.log, "Print the module's log lines");
  command->add_option("--module", arguments.module, "liberps.so; default: that of the build");
  command->footer(
      "Examples:\n"
      "  erpslab simulate ring.toml                       the file's script\n"
      "  erpslab simulate ring.toml --exhaustive          every fault, every two faults\n"
      "  erpslab simulate ring.toml --faults random --hours 100 --state ring.state\n"
      "  erpslab simulate --rings 2-16 --faults random --hours 1000 --jobs 2\n"
      "  erpslab simulate --rings 2-16 --faults random --seed 5 --only 17 --report 17.html\n"
      "  erpslab simulate ring.toml --scenario scenario-5-17.toml --pcap frames\n"
      "Exit status: 0 everything held, 1 a finding or a failed expectation, 2 mistakes in a file "
      "or on the command line, 3 could not run, 130 after Ctrl-C.\n");
  return command;
}

}  // namespace erps::lab
