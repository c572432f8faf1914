// Who comes within reach of what is repeated, and has to wait for the next time.
#include <algorithm>

#include "sim/checks/bounds.h"
#include "sim/checks/message_questions.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

bool has_ring(const NodePlan& node, uint32_t ring) {
  return std::any_of(node.rings.begin(), node.rings.end(),
                     [=](const RingConfig& at) { return at.ring == ring; }) ||
         std::any_of(node.sub_rings.begin(), node.sub_rings.end(),
                     [=](const SubRingConfig& at) { return at.ring == ring; });
}

}  // namespace

const Mishaps::Heard* Mishaps::last_heard(NodeIndex listener, NodeIndex speaker,
                                          uint32_t ring) const {
  const auto& heard = members_[listener].heard;
  const Heard wanted{ring, id_end(topology_.nodes[speaker].address), 0, 0};
  const auto last = std::lower_bound(heard.begin(), heard.end(), wanted);
  return last != heard.end() && !(wanted < *last) ? &*last : nullptr;
}

// Whether it has not, since the speaker says so.
bool Mishaps::has_not_heard(NodeIndex listener, NodeIndex speaker, const RingSnapshot& ring) const {
  if (listener == speaker || !members_[listener].running) {
    return false;
  }
  const uint32_t words = words_of(ring);
  int64_t since_us = 0;
  for (const Said& said : members_[speaker].said) {
    since_us = said.ring == ring.ring && said.words == words ? said.since_us : since_us;
  }
  const Heard* last = last_heard(listener, speaker, ring.ring);
  const bool heard_it = last != nullptr && last->words == words && last->at_us >= since_us;
  return !heard_it && has_ring(topology_.nodes[listener], ring.ring);
}

// Whether the listener has missed a repetition that it would heed now, although it has heard the
// same before.
bool Mishaps::has_to_hear_again(int64_t time_us, NodeIndex listener, NodeIndex speaker,
                                const RingSnapshot& ring) const {
  const Heard* last = last_heard(listener, speaker, ring.ring);
  if (listener == speaker || (last != nullptr && last->at_us >= time_us - kRepetitionUs)) {
    return false;
  }
  const RingSnapshot* at = watch_.ring(listener, ring.ring);
  return at != nullptr && matters(*at, message_of(ring));
}

void Mishaps::add_who_did_not_hear(int64_t time_us, NodeIndex speaker, const RingSnapshot& ring) {
  for (NodeIndex listener = 0; listener < members_.size(); ++listener) {
    // Once for all who speak at this time.
    if (came_late_us_[listener] != time_us &&
        (has_not_heard(listener, speaker, ring) ||
         has_to_hear_again(time_us, listener, speaker, ring))) {
      came_late_us_[listener] = time_us;
      mishaps_.push_back({time_us, surprise::kCameLate, listener, repeat_us_});
    }
  }
}

// What the end of a sub-ring says or passes on goes through the first open port of its major ring:
// when that fails it is another one, and others hear it.
void Mishaps::on_other_way(const Step& step) {
  const auto way = [](const RingSnapshot& major) {
    const auto first = std::find_if(
        major.ports.begin(), major.ports.end(),
        [](const PortSnapshot& port) { return port.present && port.link_up && port.forwarding; });
    return first - major.ports.begin();
  };
  for (const SubRingConfig& config : topology_.nodes[step.node].sub_rings) {
    if (config.major_ring != step.ring() || way(*step.before) == way(*step.after)) {
      continue;
    }
    for (NodeIndex speaker = 0; speaker < members_.size(); ++speaker) {
      const RingSnapshot* said = watch_.ring(speaker, config.ring);
      if (said != nullptr && said->sending) {
        add_who_did_not_hear(step.to_us, speaker, *said);
      }
    }
  }
}

// Somebody repeats what somebody else has not heard. Asked of the modules as they are now: the
// watch is a little late.
void Mishaps::on_connection(const Record& record) {
  connected_us_ = record.time_us;
  for (NodeIndex speaker = 0; speaker < members_.size(); ++speaker) {
    simulation_.records(speaker).read_rings(rings_);
    for (const RingSnapshot& ring : rings_) {
      if (ring.sending) {
        add_who_did_not_hear(record.time_us, speaker, ring);
      }
    }
  }
}

}  // namespace erps::sim
