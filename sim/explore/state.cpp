#include "sim/explore/state.h"

namespace erps::sim::explore {

void Packing::pack(const NetworkState& state, uint32_t* words) const {
  for (size_t node = 0; node < nodes_; ++node) {
    *words++ = state.local[node];
  }
  for (size_t link = 0; link < links_; ++link) {
    *words++ = uint32_t{state.channel[2 * link]} << 16U | state.channel[2 * link + 1];
  }
  uint32_t passed = 0;
  for (const uint8_t mask : state.own_passed) {
    passed = passed << 4U | mask;
  }
  *words++ = passed << 16U | uint32_t{state.second_half} << 12U | uint32_t{state.ahead} << 8U |
             state.working;
  *words = uint32_t{state.switched} << 28U | uint32_t{state.cuts} << 24U |
           uint32_t{state.strand_failures} << 20U | uint32_t{state.crashes} << 16U |
           uint32_t{state.commands} << 12U | state.halves;
}

NetworkState Packing::unpack(const uint32_t* words) const {
  NetworkState state;
  for (size_t node = 0; node < nodes_; ++node) {
    state.local[node] = *words++;
  }
  for (size_t link = 0; link < links_; ++link) {
    state.channel[2 * link] = static_cast<ChannelId>(*words >> 16U);
    state.channel[2 * link + 1] = static_cast<ChannelId>(*words & 0xFFFFU);
    ++words;
  }
  const uint32_t clocks = *words++;
  for (size_t node = 0; node < kMostNodes; ++node) {
    state.own_passed[node] = static_cast<uint8_t>(clocks >> (28U - 4 * node) & 0xFU);
  }
  state.second_half = static_cast<uint8_t>(clocks >> 12U & 0xFU);
  state.ahead = static_cast<uint8_t>(clocks >> 8U & 0xFU);
  state.working = static_cast<uint8_t>(clocks & 0xFFU);
  state.switched = static_cast<uint8_t>(*words >> 28U);
  state.cuts = static_cast<uint8_t>(*words >> 24U & 0xFU);
  state.strand_failures = static_cast<uint8_t>(*words >> 20U & 0xFU);
  state.crashes = static_cast<uint8_t>(*words >> 16U & 0xFU);
  state.commands = static_cast<uint8_t>(*words >> 12U & 0xFU);
  state.halves = static_cast<uint16_t>(*words & 0xFFFU);
  return state;
}

}  // namespace erps::sim::explore
