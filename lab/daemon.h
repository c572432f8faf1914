// The erpsd of one node: its files, its process, its readiness.
//
// Threading: one thread at a time. Errors: LabError with the last lines of the daemon's log. Logs
// nothing.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "lab/node_namespace.h"
#include "lab/unique_fd.h"

namespace erps::lab {

struct Programs {
  std::string erpsd;
  std::string module;
};

class Daemon {
 public:
  // Writes the configuration into `directory`; `name` names the files there.
  Daemon(const NodeNamespace& space, const Programs& programs, const std::string& directory,
         const std::string& name, const std::string& config);

  // Starts the process; wait_until_ready says when its rings run.
  void start();
  // Throws when it ends instead, or is not ready at this CLOCK_MONOTONIC moment.
  void wait_until_ready(int64_t deadline_ns);

  // How it ended, once it has: "status 1", "signal 11". Empty while it runs or when it was never
  // started.
  std::optional<std::string> ended();
  // Ends it at once, as a crash would.
  void kill_now();
  // Asks it to end (stop), and waits until the moment before it is killed (finish_stop). What was
  // not clean about the end, or an empty text.
  void ask_to_stop();
  std::string finish_stop(int64_t deadline_ns);

  const std::string& journal_path() const { return journal_; }
  const std::string& log_path() const { return log_; }
  // The last lines of its log, indented, for messages.
  std::string log_tail() const;

 private:
  void collect(int options);

  const NodeNamespace& space_;
  const Programs& programs_;
  std::string name_, config_, journal_, log_;
  UniqueFd ready_;
  pid_t pid_ = -1;
  std::optional<std::string> ended_;
};

}  // namespace erps::lab
