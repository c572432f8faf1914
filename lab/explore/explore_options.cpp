#include "lab/explore/explore_options.h"

namespace erps::lab {

const CLI::App* add_explore_command(CLI::App& app, ExploreArguments& arguments) {
  CLI::App* command = app.add_subcommand(
      "explore", "Visit every state that a network of 2 to 4 nodes can get into");
  command->add_option("TOPOLOGY", arguments.topology, "The topology file")->required();
  command->add_option("--cuts", arguments.cuts, "Links that are cut, at any time")
      ->capture_default_str();
  command->add_option("--strands", arguments.strands, "Links that fail in one direction")
      ->capture_default_str();
  command->add_option("--crashes", arguments.crashes, "Nodes that lose their power")
      ->capture_default_str();
  command
      ->add_option("--commands", arguments.commands,
                   "Forced switches, manual switches and clears, at any node and port")
      ->capture_default_str();
  command->add_option("--ticks", arguments.ticks,
                      "Seconds that go by after each fault; default: time never ends");
  command->add_option("--minutes", arguments.minutes, "Stop after this time")
      ->capture_default_str();
  command->add_option("--memory", arguments.memory_gib, "Stop at this size, in GiB")
      ->capture_default_str();
  command->add_option("--scenario", arguments.scenario,
                      "File for the way to a violation; default: the topology's name with "
                      ".scenario, here");
  command->add_option("--replay", arguments.replay,
                      "Walk the way in this file instead, step by step");
  command->add_option("--module", arguments.module, "liberps.so; default: that of the build");
  command->add_flag("--json", arguments.json, "Print the result as JSON");
  command->footer(
      "Whatever was cut comes back, at any time or never. Ctrl-C ends the exploration and prints "
      "what was visited.\n"
      "Examples:\n"
      "  erpslab explore ring.toml\n"
      "  erpslab explore ring.toml --cuts 0 --commands 2 --minutes 2\n"
      "  erpslab explore ring.toml --cuts 2 --ticks 25 --memory 8\n"
      "  erpslab explore ring.toml --replay ring.scenario\n"
      "Exit status: 0 every state was visited and no violation found, 1 a violation, 2 mistakes in "
      "a file or on the command line, 3 not every state was visited, or not possible.\n");
  return command;
}

}  // namespace erps::lab
