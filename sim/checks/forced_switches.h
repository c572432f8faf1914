// When forced switches split a ring by themselves.
//
// A forced switch outranks a signal fail (ITU-T G.8032 clause 10.1.1): its port stays blocked
// beside a failed link, or beside another forced switch. And the ends of a failed link stay in
// forced when the switch is cleared, so that the RPL closes beside the failure.
#pragma once

#include <vector>

#include "sim/checks/ring_watch.h"

namespace erps::sim {

class ForcedSwitches final : public StepListener {
 public:
  explicit ForcedSwitches(const RingWatch& watch, size_t nodes) : watch_(watch), nodes_(nodes) {}

  void on_step(const Step& step) override;

  struct Spell {
    uint32_t ring = 0;
    const char* surprise = "";
    int64_t from_us = 0;
    int64_t to_us = 0;
    bool lasts = false;
  };
  const std::vector<Spell>& spells() const { return spells_; }
  // Those that were over before this time.
  void forget_before(int64_t time_us);

 private:
  void set(uint32_t ring, const char* surprise, int64_t time_us, bool holds);

  const RingWatch& watch_;
  size_t nodes_;
  std::vector<Spell> spells_;
};

}  // namespace erps::sim
