// What would become of a network if everybody heard what everybody repeats.
//
// The rings start as the modules hold them. Each message that is repeated takes the way that its
// ring's R-APS channel has, and each node does with it what the model of a ring says, until nothing
// changes any more. Guard times and the time that messages take are left out: what is still to
// happen then is what somebody has not heard yet.
#pragma once

#include <set>
#include <vector>

#include "sim/checks/ring_model.h"
#include "sim/checks/strands.h"

namespace erps::sim {

class Hearing {
 public:
  // By node; no rings where no module runs.
  using Rings = std::vector<std::vector<RingSnapshot>>;

  // Topology and strands outlive this.
  Hearing(const Topology& topology, const Strands& strands)
      : topology_(topology), strands_(strands), last_message_(2 * topology.links.size()) {}

  // Anew, as if nothing had been said yet.
  void begin(const Rings& at_first);
  void settle();
  // The same, and no WTR or WTB runs any more.
  void settle_without_waiting();
  // A link is seen to fail at its end.
  void fail(const LinkEnd& end);

  RingSnapshot* ring(NodeIndex node, uint32_t ring);

  // A watching node takes a message for marked only where its own sub-ring's other end has marked
  // it.
  void tell_marks_apart() { tells_marks_apart_ = true; }

  // Who has heard something new, who has said it and who has passed it on.
  std::set<NodeIndex> concerned() const;

  Rings rings;

 private:
  struct Message {
    NodeIndex speaker = 0;
    uint32_t ring = 0;
    uint8_t code = 0;
    bool rb = false;
    std::vector<uint32_t> marks;  // the sub-rings whose marking nodes it has passed
    MacAddress node_id{};
    bool bpr = false;
  };

  void speak(NodeIndex node, const RingSnapshot& ring);
  void send(const LinkEnd& from, const Message& message);
  void send_to_major_ring(NodeIndex node, const RingSnapshot& sub_ring, const Message& message);
  void hear(const LinkEnd& at, const Message& message);
  void hear_on_major_ring(const LinkEnd& at, RingSnapshot& ring, const Message& message);
  void hear_on_sub_ring(const LinkEnd& at, RingSnapshot& ring, const Message& message);
  void relay(const LinkEnd& at, const Message& message);
  void take(NodeIndex node, RingSnapshot& ring, const Message& message);
  void watch_major_ring(NodeIndex node, PortSnapshot& in, const PortSnapshot& out,
                        const SubRingConfig& sub_ring, Message& message);
  void indicate(NodeIndex node, uint32_t sub_ring, uint32_t indication);
  void concern(NodeIndex speaker);
  const SubRingConfig* sub_ring_of(NodeIndex node, uint32_t major_ring) const;
  bool is_marked(const Message& message, uint32_t sub_ring) const;

  const Topology& topology_;
  const Strands& strands_;
  std::vector<const LinkEnd*> way_;     // of the present message, in the order of arrival
  std::vector<uint32_t> last_message_;  // by strand, the number of the last that it carried
  uint32_t messages_ = 0;
  std::vector<bool> concerned_;  // by node
  Rings before_;                 // the present round
  bool tells_marks_apart_ = false;
};

}  // namespace erps::sim
