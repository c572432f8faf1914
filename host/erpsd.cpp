// erpsd: protects the rings of a Linux bridge as its configuration file says.
#include <fcntl.h>
#include <stdio.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "host/build_paths.h"
#include "host/config.h"
#include "host/daemon.h"
#include "host/module.h"
#include "host/options.h"

namespace {

struct Arguments {
  std::string config_path;
  std::string module_path;
  std::string journal_path;
  int ready_fd = -1;
  bool check = false;
  bool help_config = false;
};

// "" or why the descriptor cannot be used.
std::string check_descriptor(const std::string& text) {
  char* end = nullptr;
  const long fd = strtol(text.c_str(), &end, 10);
  const int flags = *end == '\0' && fd >= 0 ? fcntl(static_cast<int>(fd), F_GETFL) : -1;
  if (flags < 0) {
    return text + " is not an open file descriptor";
  }
  return (flags & O_ACCMODE) == O_RDONLY ? text + " is not open for writing" : "";
}

void declare(CLI::App& app, Arguments& arguments) {
  app.add_option("--config", arguments.config_path, "Configuration file")->type_name("FILE");
  app.add_option("--module", arguments.module_path, "The module, liberps.so")->type_name("FILE");
  app.add_flag("--check", arguments.check, "Check the configuration file and do nothing else");
  app.add_option("--journal", arguments.journal_path,
                 "Append everything that happens to this file, one JSON object a line")
      ->type_name("FILE");
  app.add_option("--ready-fd", arguments.ready_fd,
                 "Write \"READY\" and a line end to this descriptor when the rings are protected")
      ->type_name("N")
      ->check(CLI::Validator([](std::string& text) { return check_descriptor(text); }, "",
                             "open descriptor"));
  app.add_flag("--help-config", arguments.help_config, "Explain the configuration file");
  app.set_version_flag("--version", std::string("erpsd ") + erps::host::kVersion);
  app.footer(
      "Exit status: 0 stopped by SIGTERM or SIGINT, or the check passed; 1 platform or module "
      "could\n"
      "not be started; 2 mistake on the command line or in the configuration file; 3 another "
      "erpsd\n"
      "runs; 4 a ring could not be configured.");
}

int run(int argc, char** argv) {
  CLI::App app("Ethernet ring protection (ITU-T G.8032) for a Linux bridge", "erpsd");
  Arguments arguments;
  declare(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? erps::host::kStopped : erps::host::kUsage;
  }
  if (arguments.help_config) {
    std::cout << erps::host::help_config();
    return erps::host::kStopped;
  }
  if (arguments.config_path.empty()) {
    std::cerr << "erpsd: --config FILE is needed; see --help and --help-config\n";
    return erps::host::kUsage;
  }
  erps::host::Config config;
  try {
    config = erps::host::read_config(arguments.config_path);
  } catch (const erps::host::ConfigError& error) {
    std::cerr << error.what() << '\n';
    return erps::host::kUsage;
  }
  if (arguments.check) {
    for (const std::string& warning : config.warnings) {
      std::cerr << warning << '\n';
    }
    std::cout << arguments.config_path << ": ok, " << config.ports.size() << " ports, "
              << config.rings.size() + config.sub_rings.size() << " rings\n";
    return erps::host::kStopped;
  }
  if (arguments.module_path.empty()) {
    arguments.module_path = erps::host::default_module_path();
  }
  return erps::host::run(config,
                         {arguments.module_path, arguments.journal_path, arguments.ready_fd});
}

}  // namespace

int main(int argc, char** argv) {
  erps::host::block_signals();
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    fprintf(stderr, "erpsd: %s\n", error.what());
    return erps::host::kFailed;
  }
}
