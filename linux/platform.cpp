#include "linux/platform.h"

#include <system_error>

#include "linux/cancel_guard.h"
#include "linux/instance.h"
#include "linux/log.h"

namespace erps::linux_platform {
namespace {

std::unique_ptr<Instance>& owner() {
  static std::unique_ptr<Instance> owned;
  return owned;
}

std::atomic<Instance*>& current() {
  static std::atomic<Instance*> pointer{nullptr};
  return pointer;
}

}  // namespace

Instance* instance() noexcept {
  return current().load(std::memory_order_acquire);
}

void start(const Config& config) {
  if (owner() != nullptr) {
    throw PlatformError("the platform is running already; stop it first");
  }
  configure_log(config.log);
  try {
    owner() = std::make_unique<Instance>(config);
  } catch (const std::system_error& error) {
    throw PlatformError(std::string("the platform cannot be started: ") + error.what());
  }
  current().store(owner().get(), std::memory_order_release);
}

void stop(PortsAtStop ports) noexcept {
  if (owner() == nullptr) {
    return;
  }
  const CancelGuard guard;
  owner()->shut_down(ports);
  current().store(nullptr, std::memory_order_release);
  owner().reset();
}

bool running() noexcept {
  return instance() != nullptr;
}

Status status() {
  Instance* platform = instance();
  if (platform == nullptr) {
    throw PlatformError("the platform is not running");
  }
  const CancelGuard guard;
  return platform->status();
}

std::vector<HistoryRecord> history(size_t limit) {
  const Instance* platform = instance();
  return platform != nullptr ? platform->history.latest(limit) : std::vector<HistoryRecord>{};
}

}  // namespace erps::linux_platform
