// A simulated network with faults, and the report of it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/report/report_page.h"
#include "lab/topology.h"
#include "sim/simulation.h"

namespace erps::lab {

struct Act {
  std::string text;
  int64_t after_us = 0;  // since the act before, or the start
  std::function<void(sim::Simulation&)> does;
};

struct Story {
  Topology topology;
  Recorder recorder;
  std::vector<ReportFault> faults;
  std::vector<sim::Finding> findings;
  int64_t end_us = 0;

  ReportInput input() const;
};

Topology example(const std::string& file);
// n1, n2, ... with the RPL between the last and the first.
Topology ring_of(size_t nodes);

// Plays the acts and waits for `rest_us` behind the last one; outages are the longest partitions.
Story tell(const Topology& topology, const std::vector<Act>& acts, int64_t rest_us,
           const RecorderLimits& limits = {});

// Acts by the names in a topology.
Act cut(const Topology& topology, const std::string& link, int64_t after_us);
Act restore(const Topology& topology, const std::string& link, int64_t after_us);
Act crash(const Topology& topology, const std::string& node, int64_t after_us);
Act power_on(const Topology& topology, const std::string& node, int64_t after_us);
Act forced_switch(const Topology& topology, const std::string& node, const std::string& link,
                  int64_t after_us);
Act manual_switch(const Topology& topology, const std::string& node, const std::string& link,
                  int64_t after_us);
Act clear(const Topology& topology, const std::string& node, int64_t after_us);

}  // namespace erps::lab
