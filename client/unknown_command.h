// What a program says of a command line that it cannot read.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace erps::client {

// For CLI::App::failure_message of a program with commands. The parser would name a word that is
// none of them, but not which there are.
inline std::string name_unknown_command(const CLI::App* app, const CLI::Error& error) {
  const std::vector<std::string> words = app->remaining();
  if (!app->get_subcommands().empty() || words.empty() || words.front().starts_with('-')) {
    return CLI::FailureMessage::simple(app, error);
  }
  std::string text = app->get_name() + ": \"" + words.front() + "\" is no command; there are ";
  const char* separator = "";
  for (const CLI::App* command : app->get_subcommands([](const CLI::App*) { return true; })) {
    text += separator + command->get_name();
    separator = ", ";
  }
  return text + "\n";
}

}  // namespace erps::client
