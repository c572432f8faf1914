#include "sim/crash_cleanup.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>

#include "sim/sim_error.h"

namespace erps::sim {

namespace {

// Plain memory: a signal handler may look at nothing else.
std::array<char, 512> directory_name{};
volatile unsigned file_count = 0;
volatile uint64_t crash_seed = 0;

// Appends without allocating; what does not fit is cut off.
class SignalText {
 public:
  SignalText& operator<<(const char* text) {
    while (*text != '\0' && length_ + 1 < text_.size()) {
      text_[length_++] = *text++;
    }
    text_[length_] = '\0';
    return *this;
  }
  SignalText& operator<<(uint64_t number) {
    std::array<char, 21> digits{};
    size_t first = digits.size() - 1;
    do {
      digits[--first] = static_cast<char>('0' + number % 10);
      number /= 10;
    } while (number != 0);
    return *this << &digits[first];
  }
  const char* text() const { return text_.data(); }
  size_t length() const { return length_; }

 private:
  std::array<char, 640> text_{};
  size_t length_ = 0;
};

void handle(int signal) {
  if (signal == SIGSEGV || signal == SIGABRT || signal == SIGBUS || signal == SIGILL ||
      signal == SIGFPE) {
    SignalText message;
    message << "simulation with seed " << crash_seed << ": ended by signal "
            << static_cast<uint64_t>(signal) << "\n";
    if (write(STDERR_FILENO, message.text(), message.length()) < 0) {
      _exit(128 + signal);
    }
  }
  remove_directory();
  std::signal(signal, SIG_DFL);
  raise(signal);
}

}  // namespace

void set_files_to_clean(unsigned count) {
  file_count = count;
}

void set_crash_seed(uint64_t seed) {
  crash_seed = seed;
}

void remove_directory() {
  if (directory_name[0] == '\0') {
    return;
  }
  for (unsigned i = 0; i < file_count; ++i) {
    SignalText path;
    path << directory_name.data() << "/" << kCopyPrefix << i << kCopySuffix;
    unlink(path.text());
  }
  rmdir(directory_name.data());
}

void clean_up_on_signals(const std::string& directory) {
  if (directory.size() >= directory_name.size()) {
    throw SimError("the path of the temporary directory is too long: " + directory);
  }
  std::copy(directory.begin(), directory.end(), directory_name.begin());
  for (const int signal :
       {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE}) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_DFL) {
      action = {};
      action.sa_handler = handle;
      sigaction(signal, &action, nullptr);
    }
  }
}

}  // namespace erps::sim
