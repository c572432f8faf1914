// The running platform: all its parts, built in the order in which they need each other.
//
// Threading: built and destroyed by start() and stop() while no task runs; the parts say for
// themselves who may call them.
#pragma once

#include <atomic>
#include <memory>

#include "linux/capture_rules.h"
#include "linux/counters.h"
#include "linux/event_queue.h"
#include "linux/flush_worker.h"
#include "linux/history.h"
#include "linux/link_monitor.h"
#include "linux/port_keeper.h"
#include "linux/recorder.h"
#include "linux/ring_port.h"
#include "linux/task.h"

namespace erps::linux_platform {

class Instance final : private LinkListener {
 public:
  // Checks everything, then guards the ports. Throws PlatformError with nothing changed.
  explicit Instance(const Config& config);
  ~Instance() override = default;
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  void shut_down(PortsAtStop ports);
  Status status();

  const Config config;
  MacAddress node_address{};

 private:
  UniqueFd claim_;  // a second daemon on the same bridge is refused
  NetlinkSocket status_socket_;
  std::mutex status_mutex_;

 public:
  AtomicCounters counters;
  RingPorts ports;
  History history;
  FlushWorker flushes;
  PortKeeper keeper;
  CaptureRules capture;
  LinkMonitor links;
  std::unique_ptr<EventQueue> queue;
  TaskTable tasks;
  std::unique_ptr<Recorder> recorder;

 private:
  void port_appeared(RingPort& port) override;
  void port_gone(RingPort& port) override;
  void port_differs(RingPort& port) override;
  void stp_changed(uint32_t stp_state) override;

  PortStatus port_status(const RingPort& port);
  Counters counters_now() const;
  bool started_ = false;
};

// The running platform, or null.
Instance* instance() noexcept;

}  // namespace erps::linux_platform
