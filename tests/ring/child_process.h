// A program that a test runs to its end.
#pragma once

#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace erps::sim {

struct Ended {
  std::string text;  // all that it wrote, errors too
  int status = 0;    // as waitpid() has it
};

// command: for the shell.
inline Ended run_program(const std::string& command) {
  FILE* output = popen(("exec " + command + " 2>&1").c_str(), "r");
  if (output == nullptr) {
    throw std::runtime_error("cannot run " + command);
  }
  Ended ended;
  std::array<char, 512> part{};
  while (fgets(part.data(), part.size(), output) != nullptr) {
    ended.text += part.data();
  }
  ended.status = pclose(output);
  return ended;
}

}  // namespace erps::sim
