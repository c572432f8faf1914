// The one place outside of the module that knows how its records are laid out.
#include "sim/module_records.h"

#include <algorithm>
#include <array>
#include <map>
#include <string>

#include "erps/ring/ring.h"
#include "sim/module_copy.h"
#include "sim/module_symbols.h"
#include "sim/sent_frame.h"

namespace erps::sim {

namespace {

MacAddress mac(const uint8_t* bytes) {
  MacAddress address{};
  std::copy_n(bytes, address.size(), address.begin());
  return address;
}

const ERPSM_T* first_ring(const RecordAddresses& addresses) {
  return addresses.rings != nullptr ? *static_cast<const ERPSM_T* const*>(addresses.rings)
                                    : nullptr;
}

PortSnapshot read_port(const ERPSM_T& ring, const ERPS_PORT_T& record) {
  PortSnapshot port;
  port.port = record.port_id;
  port.present = !erps_is_sub_ring(&ring) || record.port_index == 0;
  port.rpl = record.port_role == 1;
  port.link_up = record.link_status == kLinkUp;
  port.forwarding = record.port_state == ::kForwarding;
  port.fail_count = record.fail_count;
  port.rx_node_id = mac(record.rx_node_id);
  port.rx_bpr = record.rx_bpr;
  return port;
}

RingSnapshot read_ring(const ERPSM_T& record) {
  RingSnapshot ring;
  ring.ring = record.ring_id;
  ring.ring_role = record.ring_role;
  ring.node_role = record.node_role;
  ring.enabled = record.enable != 0;
  ring.revertive = record.non_revertive == 0;
  ring.state = static_cast<uint32_t>(record.State);
  ring.local_priority = record.local_priority;
  ring.current_priority = record.current_priority;
  size_t port = 0;
  for (const ERPS_PORT_T* at = record.port_list; at != nullptr && port < ring.ports.size();
       at = at->next) {
    ring.ports[port++] = read_port(record, *at);
  }
  ring.sending = record.raps_timer.active != 0;
  ring.tx_request = record.tx_request;
  ring.tx_rb = record.tx_rb != 0;
  ring.tx_dnf = record.tx_dnf != 0;
  ring.tx_bpr = bpr_of(record.tx_frame, record.tx_frame_len);
  ring.guard_running = record.guard_running != 0;
  ring.holdoff_running = record.holdoff_running != 0;
  ring.inter_fault_port = record.inter_fault_port;
  ring.notify_state = record.notify_state;
  ring.local_node_id = mac(record.local_node_id);
  ring.remote_node_id = mac(record.remote_node_id);
  return ring;
}

// In the order of TimerKind.
std::array<const ERPS_TIMER_T*, 5> timers_of(const ERPSM_T& ring) {
  return {&ring.wtr_timer, &ring.wtb_timer, &ring.guard_timer, &ring.holdoff_timer,
          &ring.raps_timer};
}

int64_t expire_us(const ERPS_TIMER_T& timer) {
  return int64_t{timer.expire.seconds} * 1'000'000 + timer.expire.microseconds;
}

}  // namespace

const char* timer_name(TimerKind kind) {
  static constexpr std::array<const char*, 5> kNames{"WTR", "WTB", "guard", "hold-off", "repeat"};
  return kNames.at(static_cast<size_t>(kind));
}

RecordAddresses RecordAddresses::of(const ModuleCopy& module) {
  static std::map<std::string, uintptr_t> offsets;
  auto found = offsets.find(module.module_path());
  if (found == offsets.end()) {
    const ModuleSymbols symbols(module.path());
    found = offsets.emplace(module.module_path(), symbols.variable("ring_list_head").offset).first;
  }
  const uintptr_t address = module.load_address() + found->second;
  return {reinterpret_cast<const void*>(address)};  // NOLINT(performance-no-int-to-ptr)
}

void settle_times(const RecordAddresses& addresses, uint32_t seconds, bool expiry_waits) {
  if (addresses.rings == nullptr) {
    return;
  }
  for (ERPSM_T* ring = *static_cast<ERPSM_T* const*>(addresses.rings); ring != nullptr;
       ring = ring->next) {
    for (ERPS_TIMER_T* timer : {&ring->wtr_timer, &ring->wtb_timer, &ring->guard_timer,
                                &ring->holdoff_timer, &ring->raps_timer}) {
      if (timer->active == 1) {
        timer->expire.seconds -= seconds;
      } else {
        timer->expire = {};
      }
      if (!expiry_waits) {
        timer->request = 0;
      }
    }
    ring->timer_start_time = 0;
    ring->holdoff_start_time = 0;
  }
}

void ModuleRecords::read_rings(std::vector<RingSnapshot>& rings) const {
  rings.clear();
  for (const ERPSM_T* ring = first_ring(addresses_); ring != nullptr; ring = ring->next) {
    rings.push_back(read_ring(*ring));
  }
}

void ModuleRecords::read_words(std::vector<RingWords>& words) const {
  size_t count = 0;
  for (const ERPSM_T* ring = first_ring(addresses_); ring != nullptr; ring = ring->next) {
    if (words.size() == count) {
      words.emplace_back();
    }
    RingWords& at = words[count++];
    at.ring = ring->ring_id;
    at.state = static_cast<uint32_t>(ring->State);
    const std::array<const ERPS_TIMER_T*, 5> records = timers_of(*ring);
    for (size_t kind = 0; kind < records.size(); ++kind) {
      const ERPS_TIMER_T& timer = *records[kind];
      at.timers[kind] =
          timer.active != 0 ? RingWords::Timer{true, expire_us(timer)} : RingWords::Timer{};
    }
  }
  words.resize(count);
}

void ModuleRecords::read_timers(std::vector<TimerSnapshot>& timers) const {
  timers.clear();
  for (const ERPSM_T* ring = first_ring(addresses_); ring != nullptr; ring = ring->next) {
    const std::array<const ERPS_TIMER_T*, 5> records = timers_of(*ring);
    for (size_t kind = 0; kind < records.size(); ++kind) {
      const ERPS_TIMER_T& timer = *records[kind];
      if (timer.active == 0) {
        continue;
      }
      timers.push_back(
          {ring->ring_id, static_cast<TimerKind>(kind), (expire_us(timer) - clock_us_) / 1000});
    }
  }
}

std::vector<RingSnapshot> ModuleRecords::rings() const {
  std::vector<RingSnapshot> result;
  read_rings(result);
  return result;
}

std::vector<TimerSnapshot> ModuleRecords::timers() const {
  std::vector<TimerSnapshot> result;
  read_timers(result);
  return result;
}

}  // namespace erps::sim
