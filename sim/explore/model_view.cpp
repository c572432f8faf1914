// States as data frames and operators see them.
#include <algorithm>

#include "sim/checks/graph.h"
#include "sim/explore/model.h"

namespace erps::sim::explore {

const Forwarding& Model::forwarding(const NetworkState& state) {
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    forwarding_.powered[node] = powered(state, node);
  }
  for (size_t strand = 0; strand < forwarding_.arcs.size(); ++strand) {
    Arc& arc = forwarding_.arcs[strand];
    const auto open = [&](const LinkEnd& end) {
      return (locals_.at(state.local[end.node]).open_ports >> end.port & 1U) != 0;
    };
    arc.works = works(state, strand) && powered(state, arc.from) && powered(state, arc.to);
    arc.forwards = arc.works && open(source(strand)) && open(destination(strand));
  }
  return forwarding_;
}

uint8_t Model::verdict(const NetworkState& state) {
  uint32_t key = state.working;
  for (NodeIndex node = 0; node < kMostNodes; ++node) {
    key = key << 1U | (state.local[node] != kNoPower ? 1U : 0U);
  }
  for (size_t link = 0; link < topology_.links.size(); ++link) {
    for (const LinkEnd& end : topology_.links[link].ends) {
      key = key << 1U | (locals_.at(state.local[end.node]).open_ports >> end.port & 1U);
    }
  }
  uint8_t& known = verdicts_.at(key);
  if (known == 0) {
    const Forwarding& now = forwarding(state);
    known = kKnown | (sim::has_loop(now) ? kLoop : 0) | (sim::has_partition(now) ? kPartition : 0);
  }
  return known;
}

bool Model::is_whole(const NetworkState& state) const {
  const uint32_t strands = (1U << 2 * topology_.links.size()) - 1;
  return state.working == strands && state.switched == 0 &&
         std::all_of(state.local.begin(),
                     state.local.begin() + static_cast<std::ptrdiff_t>(topology_.nodes.size()),
                     [](LocalId local) { return local != kNoPower; });
}

bool Model::is_home(const NetworkState& state) const {
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    if (!locals_.at(state.local[node]).home) {
      return false;
    }
  }
  return true;
}

bool Model::is_quiet(const NetworkState& state) const {
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    if (locals_.at(state.local[node]).own_events != 0) {
      return false;
    }
  }
  return std::all_of(state.channel.begin(), state.channel.end(),
                     [](ChannelId channel) { return channel == kEmptyChannel; });
}

bool Model::is_out_of_time(const NetworkState& state) const {
  return budget_.ticks && state.halves >= 2 * *budget_.ticks;
}

}  // namespace erps::sim::explore
