#include "sim/campaign/minimiser.h"

#include <algorithm>

#include "sim/simulation.h"

namespace erps::sim {

namespace {

int64_t latest_end_us(const Scenario& scenario) {
  int64_t latest_us = 0;
  for (const Fault& fault : scenario.faults) {
    latest_us = std::max(latest_us, fault.until_us());
  }
  return latest_us;
}

int64_t rounded(int64_t time_us, int64_t unit_us) {
  return (time_us + unit_us / 2) / unit_us * unit_us;
}

class Minimiser {
 public:
  Minimiser(Case best, const Shows& shows, size_t most_plays)
      : best_(std::move(best)), shows_(shows), plays_left_(most_plays) {}

  Case run() {
    drop_faults();
    shorten_the_end();
    close_gaps();
    shorten_faults();
    round_times();
    drop_faults();
    return std::move(best_);
  }

 private:
  // Takes the scenario over if it still shows the finding.
  bool try_scenario(Scenario scenario) {
    if (plays_left_ == 0) {
      return false;
    }
    --plays_left_;
    std::stable_sort(scenario.faults.begin(), scenario.faults.end(),
                     [](const Fault& one, const Fault& other) { return one.at_us < other.at_us; });
    Case tried = best_;
    tried.scenario = std::move(scenario);
    tried.scenario.quiet_us = std::max(tried.scenario.quiet_us, latest_end_us(tried.scenario));
    if (!shows_(tried)) {
      return false;
    }
    best_ = std::move(tried);
    return true;
  }

  // Large parts first, from the end on: what comes after the finding is not needed.
  void drop_faults() {
    size_t part = best_.scenario.faults.size();
    while (part > 0) {
      for (size_t end = best_.scenario.faults.size(); end > 0;) {
        const size_t begin = end > part ? end - part : 0;
        Scenario without = best_.scenario;
        without.faults.erase(without.faults.begin() + static_cast<std::ptrdiff_t>(begin),
                             without.faults.begin() + static_cast<std::ptrdiff_t>(end));
        try_scenario(std::move(without));
        end = begin;
      }
      part /= 2;
    }
  }

  void shorten_the_end() {
    Scenario shorter = best_.scenario;
    shorter.quiet_us = 0;  // no earlier than the last fault ends, see try_scenario
    try_scenario(std::move(shorter));
  }

  // Times in which nothing begins and nothing is down.
  void close_gaps() {
    for (const int64_t left_us : {kSecondUs, 10 * kSecondUs, 60 * kSecondUs}) {
      for (size_t i = 0; i < best_.scenario.faults.size(); ++i) {
        int64_t free_us = 0;
        for (size_t before = 0; before < i; ++before) {
          free_us = std::max(free_us, best_.scenario.faults[before].until_us());
        }
        const int64_t gap_us = best_.scenario.faults[i].at_us - free_us;
        if (gap_us <= left_us) {
          continue;
        }
        Scenario closer = best_.scenario;
        for (size_t later = i; later < closer.faults.size(); ++later) {
          closer.faults[later].at_us -= gap_us - left_us;
        }
        closer.quiet_us = 0;
        try_scenario(std::move(closer));
      }
    }
  }

  void shorten_faults() {
    for (size_t i = 0; i < best_.scenario.faults.size(); ++i) {
      for (const int64_t length_us : {kSecondUs, 10 * kSecondUs}) {
        Scenario shorter = best_.scenario;
        if (shorter.faults[i].lasts_us > length_us) {
          shorter.faults[i].lasts_us = length_us;
          shorter.quiet_us = 0;
          if (try_scenario(std::move(shorter))) {
            break;
          }
        }
      }
    }
  }

  void round_times() {
    for (const int64_t unit_us : {kSecondUs, 100 * kMillisecondUs, kMillisecondUs}) {
      for (size_t i = 0; i < best_.scenario.faults.size(); ++i) {
        Scenario rounder = best_.scenario;
        Fault& fault = rounder.faults[i];
        const int64_t at_us = rounded(fault.at_us, unit_us);
        const int64_t lasts_us = std::max(unit_us, rounded(fault.lasts_us, unit_us));
        if (at_us != fault.at_us || lasts_us != fault.lasts_us) {
          fault.at_us = at_us;
          fault.lasts_us = lasts_us;
          rounder.quiet_us = 0;
          try_scenario(std::move(rounder));
        }
      }
    }
  }

  Case best_;
  const Shows& shows_;
  size_t plays_left_;
};

}  // namespace

Case minimise(const Case& found, const Shows& shows, size_t most_plays) {
  return Minimiser(found, shows, most_plays).run();
}

}  // namespace erps::sim
