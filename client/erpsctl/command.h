// What the commands of erpsctl have in common.
//
// Each declare_... adds commands to the command line. Parsing only chooses what to do: it checks
// every value against its range and leaves the chosen command in `action`, which runs afterwards.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <stdexcept>
#include <string>

#include "client/client.h"
#include "client/limits.h"

namespace erps::erpsctl {

enum ExitStatus {
  kDone = 0,
  kRefused = 1,   // the module refused, or it would change nothing
  kUsage = 2,     // mistake on the command line; nothing was sent
  kNoAnswer = 3,  // nobody could be asked, or nobody answered
};

// A mistake that shows only when several arguments are seen together.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The request makes no sense as things are; the text says why.
class NoEffect : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct CommandLine {
  uint32_t timeout_ms = static_cast<uint32_t>(client::kDefaultTimeout.count());
  std::function<void(client::Client&)> action;
};

void declare_ring_commands(CLI::App& app, CommandLine& line);
void declare_switch_commands(CLI::App& app, CommandLine& line);
void declare_timer_commands(CLI::App& app, CommandLine& line);
void declare_show(CLI::App& app, CommandLine& line);

// A required argument that is a whole number within a range.
CLI::Option* add_number(CLI::App& command, const std::string& name, uint32_t& value,
                        const client::Range& range, const std::string& text);
// A ring to be set up: 1 to 239.
CLI::Option* add_ring_argument(CLI::App& command, uint32_t& ring);
// A ring that is there, whoever set it up: any ID above 0.
CLI::Option* add_any_ring_argument(CLI::App& command, uint32_t& ring);

// Something the operator has to know, on standard error.
void warn(const std::string& text);

// The ring, or Refused in the words of `what`.
client::RingStatus existing_ring(client::Client& client, uint32_t ring, const std::string& what);

}  // namespace erps::erpsctl
