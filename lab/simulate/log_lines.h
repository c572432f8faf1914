// The log lines of the module, as they come, with the time of the simulation.
#pragma once

#include <cstdio>

#include "lab/topology.h"
#include "sim/observer.h"
#include "sim/simulation.h"

namespace erps::lab {

class LogLines final : public sim::Observer {
 public:
  explicit LogLines(const Topology& topology) : topology_(topology) {}

  void on_log(int64_t time_us, NodeIndex node, int level, const std::string& text) override {
    std::fprintf(stderr, "%11.6f %s <%d> %s\n",
                 static_cast<double>(time_us) / static_cast<double>(sim::kSecondUs),
                 topology_.nodes[node].name.c_str(), level, text.c_str());
  }

 private:
  const Topology& topology_;
};

}  // namespace erps::lab
