// What a node does by itself that keeps messages from being heard at once.
#include <algorithm>

#include "sim/checks/message_questions.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

void Mishaps::on_step(const Step& step) {
  if (step.after == nullptr) {
    return;
  }
  on_new_message(step);
  // Who came while it was said may have missed it.
  if (step.after->sending && connected_us_ >= step.from_us) {
    add_who_did_not_hear(connected_us_, step.node, *step.after);
  }
  if (step.before == nullptr) {
    return;
  }
  on_other_way(step);
  const RingSnapshot& after = *step.after;
  if (step.before->local_priority > after.local_priority) {
    on_ended_request(step);
  }
  // Nor does a switch yield to what was said before it was given.
  if (step.cause == Step::Cause::kCommand && has_local(after, RingRequest::kMs) &&
      !has_local(*step.before, RingRequest::kMs) && waits_to_hear(step.node, after)) {
    mishaps_.push_back({step.from_us, surprise::kManualSplit, step.node, repeat_us_});
  }
  add_who_has_to_hear_twice(step);
}

void Mishaps::add_who_has_to_hear_twice(const Step& step) {
  const RingSnapshot& before = *step.before;
  const RingSnapshot& after = *step.after;
  constexpr auto kManual = static_cast<uint32_t>(RingState::kManual);
  const auto add_here = [&](const char* surprise, int64_t lasts_us) {
    mishaps_.push_back({step.from_us, surprise, step.node, lasts_us});
  };
  // What was heard while its link was down did not open the port, and nobody is told of the return.
  if (step.cause == Step::Cause::kLink && step.up && after.local_priority == 0 && !after.sending &&
      has_block(after)) {
    add_here(surprise::kHeardTwice, (after.state == kManual ? 2 : 1) * repeat_us_);
  }
  // Nor is that of who repeats a forced switch that was cleared.
  if (step.cause == Step::Cause::kLink && step.up && after.local_priority == 0 &&
      sends(after, kFsCode) && has_block(after)) {
    add_here(surprise::kForcedStuck, repeat_us_);
  }
  if (step.cause != Step::Cause::kFrame || (after.ring & 0xFFU) != step.message.ring() ||
      before.state == after.state) {
    return;
  }
  const RingRequest request = request_in(step.message);
  // What is repeated by others did not open the port either, in the state that R-APS(NR) ends.
  if (request == RingRequest::kRapsNr &&
      (matters(after, step.message) || (has_block(after) && waits_to_hear(step.node, after)))) {
    add_here(surprise::kHeardTwice, repeat_us_);
    return;
  }
  if (request == RingRequest::kRapsMs && before.state == kManual && matters(after, step.message)) {
    const bool has_own = before.local_priority == static_cast<uint32_t>(RingRequest::kMs);
    add_here(has_own ? surprise::kManualCollision : surprise::kHeardTwice, repeat_us_);
  }
}

// Whether somebody repeats what the node would heed now, and has yet to hear again.
bool Mishaps::waits_to_hear(NodeIndex node, const RingSnapshot& ring) const {
  for (NodeIndex speaker = 0; speaker < members_.size(); ++speaker) {
    const RingSnapshot* said = watch_.ring(speaker, ring.ring);
    if (speaker != node && said != nullptr && said->sending && matters(ring, message_of(*said))) {
      return true;
    }
  }
  return false;
}

// What was refused while a local request stood is not heard again before it is repeated.
void Mishaps::on_ended_request(const Step& step) {
  const RingSnapshot& after = *step.after;
  const Member& member = members_[step.node];
  if (waits_to_hear(step.node, after)) {
    mishaps_.push_back({step.from_us, surprise::kOutranked, step.node, repeat_us_});
  }
  // A switch that is cleared before anybody has heard of it leaves the others where they were.
  if (member.held_back_us >= 0 && step.from_us - member.held_back_us < repeat_us_) {
    mishaps_.push_back({step.from_us, surprise::kHeldBack, step.node,
                        std::max(repeat_us_, wait_us(step.node, after.local_priority))});
  }
}

void Mishaps::on_new_message(const Step& step) {
  const RingSnapshot& after = *step.after;
  auto& said = members_[step.node].said;
  auto entry = std::find_if(said.begin(), said.end(),
                            [&](const Said& one) { return one.ring == after.ring; });
  if (entry == said.end()) {
    entry = said.insert(said.end(), {after.ring, 0, 0, false});
  }
  const uint32_t words = words_of(after);
  const bool is_new = after.sending && (!entry->repeated || entry->words != words);
  if (is_new) {
    entry->since_us = step.from_us;
  }
  entry->words = words;
  entry->repeated = after.sending;
  if (!is_new) {
    return;
  }
  const auto& through = members_[step.node].sent_through;
  for (const PortSnapshot& port : after.ports) {
    if (port.present && port.link_up && port.forwarding &&
        std::find(through.begin(), through.end(), port.port) == through.end()) {
      mishaps_.push_back({step.from_us, surprise::kHeldBack, step.node, repeat_us_});
      members_[step.node].held_back_us = step.from_us;
    }
  }
}

}  // namespace erps::sim
