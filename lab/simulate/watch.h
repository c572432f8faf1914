// Everything that looks on while one network is simulated in detail: what the nodes do, the traffic
// between hosts, captures, log lines, and the recorder of the page.
//
// Threading: the simulation's. Errors: LabError when a capture cannot be written.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lab/report/recorder.h"
#include "lab/simulate/log_lines.h"
#include "lab/simulate/node_history.h"
#include "lab/simulate/probe_traffic.h"
#include "lab/simulate/raps_capture.h"

namespace erps::lab {

struct WatchOptions {
  int capture_directory = -1;  // open directory for captures, -1: none
  bool page = false;           // records what the page shows
  bool log = false;            // the module's log lines, to standard error
};

class Watch {
 public:
  Watch(const Topology& topology, const WatchOptions& options);

  // Before the simulation runs, which ends before this does.
  void attach(sim::Simulation& simulation);

  NodeHistory& history() { return history_; }
  ProbeTraffic& traffic() { return *traffic_; }
  // Only with WatchOptions::page.
  const Recorder& recorder() const { return *recorder_; }

 private:
  const Topology& topology_;
  NodeHistory history_;
  std::unique_ptr<ProbeTraffic> traffic_;
  std::unique_ptr<Recorder> recorder_;
  std::unique_ptr<RapsCapture> capture_;
  std::unique_ptr<LogLines> log_;
};

}  // namespace erps::lab
