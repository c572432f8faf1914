#include "lab/stall_meter.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include "lab/clock.h"

namespace erps::lab {

namespace {

constexpr int64_t kPeriodNs = kNsPerMs;
constexpr int kPriority = 6;
constexpr int kNiceInstead = -10;
constexpr unsigned long kTimerSlackNs = 1000;

}  // namespace

void run_before_others(int priority) {
  prctl(PR_SET_TIMERSLACK, kTimerSlackNs);
  const sched_param parameters{priority};
  if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters) != 0) {
    setpriority(PRIO_PROCESS, 0, kNiceInstead);
  }
}

StallMeter::StallMeter() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  sched_getaffinity(0, sizeof allowed, &allowed);
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &allowed)) {
      threads_.emplace_back([this] { loop(); });
      cpu_set_t one;
      CPU_ZERO(&one);
      CPU_SET(cpu, &one);
      pthread_setaffinity_np(threads_.back().native_handle(), sizeof one, &one);
    }
  }
}

StallMeter::~StallMeter() {
  stopping_ = true;
  for (std::thread& thread : threads_) {
    thread.join();
  }
}

void StallMeter::loop() {
  run_before_others(kPriority);
  int64_t next_ns = mono_ns() + kPeriodNs;
  while (!stopping_) {
    sleep_until_ns(next_ns);
    const int64_t now_ns = mono_ns();
    const int64_t late_ns = now_ns - next_ns;
    int64_t longest_ns = longest_ns_;
    while (late_ns > longest_ns && !longest_ns_.compare_exchange_weak(longest_ns, late_ns)) {
    }
    next_ns = now_ns + kPeriodNs;
  }
}

}  // namespace erps::lab
