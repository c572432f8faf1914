#include "lab/simulate/watch.h"

namespace erps::lab {

Watch::Watch(const Topology& topology, const WatchOptions& options)
    : topology_(topology), history_(topology) {
  if (options.page) {
    recorder_ = std::make_unique<Recorder>(topology);
  }
  if (options.capture_directory >= 0) {
    capture_ = std::make_unique<RapsCapture>(topology, options.capture_directory);
  }
  if (options.log) {
    log_ = std::make_unique<LogLines>(topology);
  }
}

void Watch::attach(sim::Simulation& simulation) {
  traffic_ = std::make_unique<ProbeTraffic>(topology_, simulation);
  simulation.observe(history_);
  simulation.observe(*traffic_);
  if (recorder_) {
    simulation.observe(*recorder_);
  }
  if (capture_) {
    simulation.observe(*capture_);
  }
  if (log_) {
    simulation.observe(*log_);
  }
}

}  // namespace erps::lab
