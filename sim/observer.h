// Who watches a simulation. Observers change nothing in it.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "sim/forwarding.h"
#include "sim/trace.h"

namespace erps::sim {

class Observer {
 public:
  virtual ~Observer() = default;
  virtual void on_record(const Record& /*record*/) {}
  // A module hands a frame to its switch, whatever it takes it for.
  virtual void on_transmission(int64_t /*time_us*/, NodeIndex /*node*/, uint32_t /*port*/,
                               std::span<const uint8_t> /*bytes*/) {}
  // An R-APS frame arrives at a node, whatever becomes of it there.
  virtual void on_reception(int64_t /*time_us*/, NodeIndex /*node*/, uint32_t /*port*/,
                            std::span<const uint8_t> /*bytes*/) {}
  // A node's protocol task is done with an event and about to take the next one.
  virtual void on_event_done(int64_t /*time_us*/, NodeIndex /*node*/) {}
  // At the end of every instant in which a port, a link or a node changed what it forwards.
  virtual void on_forwarding(int64_t /*time_us*/, const Forwarding& /*forwarding*/) {}
  virtual void on_log(int64_t /*time_us*/, NodeIndex /*node*/, int /*level*/,
                      const std::string& /*text*/) {}
};

}  // namespace erps::sim
