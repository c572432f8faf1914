// The clock of a node: the time of day that somebody sets, and the crystal that it runs on, which
// sleeps are measured with too.
//
// Threading: one thread. Errors: none. Logs nothing.
#pragma once

#include <cstdint>

namespace erps::sim {

class NodeClock {
 public:
  explicit NodeClock(int64_t offset_us) : shown_us_(offset_us) {}

  // What it shows at this time of the simulation.
  int64_t at(int64_t now_us) const { return shown_us_ + shown_in(now_us - since_us_); }

  void step(int64_t delta_us) { shown_us_ += delta_us; }
  // Parts per million by which it runs fast; negative: slow. More than -1,000,000.
  void set_drift(int64_t now_us, int64_t ppm) {
    shown_us_ = at(now_us);
    since_us_ = now_us;
    ppm_ = ppm;
  }

  // How long it takes in truth until the crystal has counted this.
  int64_t lasting(int64_t asked_us) const {
    return ppm_ == 0 ? asked_us : asked_us * kMillion / (kMillion + ppm_);
  }

 private:
  static constexpr int64_t kMillion = 1'000'000;

  int64_t shown_in(int64_t passed_us) const {
    return ppm_ == 0
               ? passed_us
               : passed_us + passed_us / kMillion * ppm_ + passed_us % kMillion * ppm_ / kMillion;
  }

  int64_t shown_us_;  // at since_us_
  int64_t since_us_ = 0;
  int64_t ppm_ = 0;
};

}  // namespace erps::sim
