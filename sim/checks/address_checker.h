// Checks that no switch keeps an address that points away from its station: what the flush of ITU-T
// G.8032 clause 10.1.10 is for.
//
// It looks when the network has forwarded the same way for so long that every message that asks for
// a flush, repeated ones too, must have been heard.
#pragma once

#include <map>
#include <vector>

#include "sim/checks/checker.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/ring_watch.h"
#include "sim/simulation.h"

namespace erps::sim {

class AddressChecker final : public Checker, public Observer, public StepListener {
 public:
  // The mishaps are told of a step before this is.
  AddressChecker(Simulation& simulation, const Mishaps& mishaps, int64_t settled_us);

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  // A step that opened a port and asked for no flush.
  struct Opening {
    int64_t from_us = 0;
    int64_t to_us = 0;
    const char* surprise = "";
  };

  void on_message(const Step& step);
  void on_clear(const Step& step);
  void on_opening(const Step& step);
  void look(int64_t now_us, FindingList& into) const;
  const char* surprise_of(NodeIndex node, uint32_t port, int64_t seen_us) const;
  // Numbers the nodes that frames reach from a node, having left it through one link.
  std::vector<bool> beyond(NodeIndex node, size_t arc) const;

  Simulation& simulation_;
  const Mishaps& mishaps_;
  const int64_t settled_us_;
  int64_t transit_us_ = 0;  // of a data frame that was under way
  std::map<MacAddress, NodeIndex> stations_;
  std::vector<std::map<uint32_t, int64_t>> flushed_us_;  // by node and port, when last
  // By node, as they were when its module ended: how it forwarded until then is looked at later.
  std::vector<std::vector<RingSnapshot>> left_rings_;
  // By node and ring, when a message last flushed nothing, being known.
  std::map<std::pair<NodeIndex, uint32_t>, int64_t> known_us_;
  // ... being news where both ports knew the same.
  std::map<std::pair<NodeIndex, uint32_t>, int64_t> alike_us_;
  // By node and port, when a clear while pending last blocked it.
  std::vector<std::map<uint32_t, int64_t>> cleared_us_;
  // By ring, that of `before_` and later ones: the next may be told before its forwarding is.
  std::map<uint32_t, std::vector<Opening>> openings_;
  Forwarding before_;  // as it has been since
  int64_t since_us_ = 0;
  FindingList findings_;
};

}  // namespace erps::sim
