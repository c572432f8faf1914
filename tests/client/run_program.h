// Runs a program to its end and keeps what it said.
#pragma once

#include <sys/types.h>
#include <time.h>

#include <chrono>
#include <string>
#include <vector>

namespace erps::test {

struct Outcome {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
  bool timed_out = false;  // it was ended by the test
};

// Runs arguments[0] with the other arguments, in the namespaces of the caller.
Outcome run_program(const std::vector<std::string>& arguments,
                    std::chrono::milliseconds limit = std::chrono::seconds(20));

// A program that runs beside the test; ended, and waited for, at the latest by the destructor.
class Running {
 public:
  explicit Running(const std::vector<std::string>& arguments);
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  // True when it ended within the limit.
  bool wait(std::chrono::milliseconds limit);
  int status() const { return outcome_.status; }
  // What it has said so far.
  const std::string& out();
  const std::string& err();
  bool err_contains(const std::string& text, std::chrono::milliseconds limit);
  bool out_contains(const std::string& text, std::chrono::milliseconds limit);

 private:
  void drain();
  bool reap(bool block);

  pid_t pid_ = -1;
  int out_ = -1, err_ = -1;
  bool ended_ = false;
  Outcome outcome_;
};

// Asks again every millisecond until it is true or the limit is over.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    const timespec pause{0, 1'000'000};
    nanosleep(&pause, nullptr);
  }
  return true;
}

}  // namespace erps::test
