#include "host/daemon.h"

#include <signal.h>
#include <string.h>

#include "client/words.h"
#include "host/instance_lock.h"
#include "host/module.h"
#include "host/owned_queue.h"
#include "host/readiness.h"
#include "host/ring_setup.h"
#include "linux/platform.h"

namespace erps::host {

namespace {

using linux_platform::LogLevel;
using linux_platform::PortsAtStop;

LogLevel log_level_of(const std::string& word) {
  if (word == "error") {
    return LogLevel::kError;
  }
  return word == "debug" ? LogLevel::kDebug : LogLevel::kNotice;
}

linux_platform::Config platform_config(const Config& config, const RunOptions& options) {
  linux_platform::Config platform;
  platform.bridge = config.bridge;
  for (const PortConfig& port : config.ports) {
    platform.ports.push_back({port.id, port.interface});
  }
  platform.node_address = config.node_address;
  platform.log.level = log_level_of(config.log_level);
  platform.journal_path = options.journal_path;
  platform.carrier_poll_ms = config.carrier_poll_ms;
  platform.realtime_priority = config.realtime_priority;
  platform.door_group = config.group;
  return platform;
}

// The platform, from start to stop. Unless the daemon got as far as protecting its rings, the ports
// are given back as they were found.
class RunningPlatform {
 public:
  explicit RunningPlatform(const linux_platform::Config& config) { linux_platform::start(config); }
  ~RunningPlatform() { linux_platform::stop(at_stop_); }
  RunningPlatform(const RunningPlatform&) = delete;
  RunningPlatform& operator=(const RunningPlatform&) = delete;

  // From here on a blocked port stays blocked, since opening it could make a loop.
  void keep_ports() { at_stop_ = PortsAtStop::kKeep; }

 private:
  PortsAtStop at_stop_ = PortsAtStop::kRelease;
};

sigset_t awaited_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    sigaddset(&signals, number);
  }
  return signals;
}

void wait_for_stop() {
  const sigset_t signals = awaited_signals();
  for (;;) {
    int number = 0;
    if (sigwait(&signals, &number) != 0) {
      continue;
    }
    if (number != SIGHUP) {
      linux_platform::log(LogLevel::kNotice, std::string("stopping on SIG") + sigabbrev_np(number));
      return;
    }
    linux_platform::log(LogLevel::kNotice,
                        "SIGHUP ignored: the configuration is read at the start only");
  }
}

void log_ready(const Config& config) {
  const linux_platform::Status status = linux_platform::status();
  linux_platform::log(LogLevel::kNotice,
                      "ready: bridge " + status.bridge + ", node " +
                          client::mac_text(status.node_address) + ", " +
                          std::to_string(config.ports.size()) + " ports, " +
                          std::to_string(config.rings.size() + config.sub_rings.size()) +
                          " rings, capture by " + status.capture);
}

ExitStatus failed(ExitStatus status, const std::string& why) {
  linux_platform::log(LogLevel::kError, why);
  return status;
}

ExitStatus protect(const Config& config, const RunOptions& options) {
  const InstanceLock lock;
  const OwnedQueue queue(config.group);
  if (queue.leftover()) {
    linux_platform::log(LogLevel::kNotice,
                        "replaced a management queue that was left behind with " +
                            std::to_string(*queue.leftover()) + " messages");
  }
  const Module module(options.module_path);  // first, so that a missing one leaves the ports alone
  RunningPlatform platform(platform_config(config, options));
  const RunningModule tasks(module);
  try {
    set_up_rings(config);
  } catch (const std::runtime_error& error) {
    return failed(kRingRefused, error.what());
  }
  platform.keep_ports();
  log_ready(config);
  Readiness readiness(options.ready_fd);
  readiness.ready();
  wait_for_stop();
  readiness.stopping();
  return kStopped;
}

}  // namespace

void block_signals() {
  const sigset_t signals = awaited_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

ExitStatus run(const Config& config, const RunOptions& options) {
  linux_platform::LogConfig log;
  log.level = log_level_of(config.log_level);
  linux_platform::configure_log(log);
  for (const std::string& warning : config.warnings) {
    linux_platform::log(LogLevel::kNotice, warning);
  }
  try {
    return protect(config, options);
  } catch (const AlreadyRunning& error) {
    return failed(kAlreadyRunning, error.what());
  } catch (const std::exception& error) {
    return failed(kFailed, error.what());
  }
}

}  // namespace erps::host
