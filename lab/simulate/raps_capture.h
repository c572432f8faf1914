// The R-APS frames of every node of a simulation, in a capture file each, with the simulation's
// time.
//
// Threading: the simulation's. Errors: LabError when a file cannot be written.
#pragma once

#include <map>
#include <memory>
#include <span>
#include <vector>

#include "lab/pcapng_file.h"
#include "lab/topology.h"
#include "sim/observer.h"

namespace erps::lab {

class RapsCapture final : public sim::Observer {
 public:
  // Writes NODE.pcapng for every node with ring ports into this open directory.
  RapsCapture(const Topology& topology, int directory);

  void on_transmission(int64_t time_us, NodeIndex node, uint32_t port,
                       std::span<const uint8_t> bytes) override {
    write({time_us, true, bytes}, node, port);
  }
  void on_reception(int64_t time_us, NodeIndex node, uint32_t port,
                    std::span<const uint8_t> bytes) override {
    write({time_us, false, bytes}, node, port);
  }

 private:
  struct Passing {
    int64_t time_us;
    bool outgoing;
    std::span<const uint8_t> bytes;
  };

  void write(const Passing& frame, NodeIndex node, uint32_t port);

  struct OfNode {
    std::unique_ptr<PcapngFile> file;
    std::map<uint32_t, uint32_t> interfaces;  // by port
  };
  std::vector<OfNode> nodes_;
};

}  // namespace erps::lab
