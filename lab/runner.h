// Builds the network, starts the daemons, runs the script step by step and judges each.
//
// Runs inside the sandbox. Threading: one thread, which it moves between IPC namespaces. Errors:
// LabError when the laboratory itself cannot go on; what the rings do wrong is in the report.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "lab/capture.h"
#include "lab/daemon.h"
#include "lab/network.h"
#include "lab/ring_control.h"
#include "lab/run_report.h"
#include "lab/traffic.h"

namespace erps::lab {

struct RunOptions {
  // Called after the script while the network still runs; the run ends when it returns.
  std::function<void(const RunReport&)> hold;

  Programs programs;
  bool keep_going = false;     // do the next steps after one that failed
  int capture_directory = -1;  // open directory for captures, -1: none
  int log_directory = -1;      // open directory for logs and journals, -1: none
};

class Runner {
 public:
  Runner(const Topology& topology, const RunOptions& options);

  // `step_done` is called after the start and after every step.
  RunReport run(const std::function<void(const StepReport&)>& step_done);

 private:
  void start_daemons();
  StepReport start();
  StepReport do_step(size_t index);
  StepReport try_step(size_t index);
  bool undo_step(size_t index);
  void wait_for_calm();
  void apply(const Step& step, StepReport& report);
  void settle(const StepOutlook& outlook, StepReport& report);
  void ask_all(const StepOutlook& outlook, std::vector<NodeReport>& nodes);
  void collect_events(StepReport& report);
  Check stop_daemons();
  std::string dead_daemons(const StepOutlook& outlook);
  void save_logs() const;

  const Topology& topology_;
  const RunOptions& options_;
  std::vector<StepOutlook> outlooks_;
  Network network_;
  RingControl control_;
  std::vector<std::unique_ptr<Daemon>> daemons_;  // by NodeIndex; null where no ring is
  std::vector<JournalReader> journals_;           // by NodeIndex
  std::unique_ptr<Capture> capture_;
  std::unique_ptr<Traffic> traffic_;
  size_t repeats_ = 0;  // of steps
  int64_t waited_for_calm_ms_ = 0;
};

}  // namespace erps::lab
