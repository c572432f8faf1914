#include "host/ring_setup.h"

namespace erps::host {

namespace {

// More than an operator's patience: at boot the machine may be busy.
constexpr std::chrono::milliseconds kSetupTimeout{10'000};

template <typename Step>
void for_ring(uint32_t ring, Step step) {
  try {
    step();
  } catch (const std::runtime_error& error) {
    throw std::runtime_error("ring " + std::to_string(ring) +
                             " could not be configured: " + error.what());
  }
}

}  // namespace

void set_up_rings(const Config& config) {
  client::Client client(kSetupTimeout);
  client.set_guard_ms(config.guard_ms);
  client.set_wtr_ms(config.wtr_ms);
  client.set_holdoff_ms(config.holdoff_ms);
  for (const RingConfig& ring : config.rings) {
    for_ring(ring.ring.ring, [&] {
      client.add_ring(ring.ring);
      client.set_revertive(ring.ring.ring, ring.revertive);
    });
  }
  for (const SubRingConfig& sub_ring : config.sub_rings) {
    for_ring(sub_ring.ring.ring, [&] { client.attach_sub_ring(sub_ring.ring); });
  }
  for (const RingConfig& ring : config.rings) {
    if (ring.enable) {
      for_ring(ring.ring.ring, [&] { client.enable_ring(ring.ring.ring); });
    }
  }
  for (const SubRingConfig& sub_ring : config.sub_rings) {
    if (sub_ring.enable) {
      for_ring(sub_ring.ring.ring, [&] { client.enable_ring(sub_ring.ring.ring); });
    }
  }
}

}  // namespace erps::host
