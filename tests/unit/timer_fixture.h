// Timers that belong to no ring, for the tests of the timer list and its task.
#pragma once

#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "erps/timer/timer_list.h"
#include "tests/unit/fixture.h"

namespace erps::test {

class TimerTest : public ModuleTest {
 protected:
  TimerTest() { expired().clear(); }

  ~TimerTest() override {
    for (ERPS_TIMER_T& timer : timers_) {
      erps_timer_cancel(&timer);
    }
  }

  // Names of the timers whose action note_expiry ran, in order.
  static std::vector<std::string>& expired() {
    static std::vector<std::string> names;
    return names;
  }

  static int32_t note_expiry(ERPS_TIMER_T* timer) {
    expired().emplace_back(timer->name);
    return 0;
  }

  // An idle timer; the fixture owns it.
  ERPS_TIMER_T& add(const char* name, uint32_t seconds, int32_t microseconds = 0) {
    ERPS_TIMER_T& timer = timers_.emplace_back();
    erps_timer_init(&timer, nullptr, note_expiry);
    strncpy(timer.name, name, sizeof timer.name - 1);
    timer.expire = {seconds, microseconds};
    return timer;
  }

  ERPS_TIMER_T& start(const char* name, uint32_t seconds, int32_t microseconds = 0) {
    ERPS_TIMER_T& timer = add(name, seconds, microseconds);
    erps_timer_start(&timer, "");
    return timer;
  }

 private:
  std::deque<ERPS_TIMER_T> timers_;  // records do not move
};

}  // namespace erps::test
