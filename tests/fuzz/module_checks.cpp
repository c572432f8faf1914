#include "tests/fuzz/module_checks.h"

#include <pthread.h>

#include <array>
#include <cstring>

#include "erps/fsm/requests.h"
#include "erps/ring/ring_list.h"
#include "erps/timer/timer_list.h"
#include "tests/fuzz/fail.h"

namespace erps::fuzz {

namespace {

constexpr size_t kMostRecords = 1000;  // a list longer than this is a loop

std::array<const ERPS_TIMER_T*, 5> timers_of(const ERPSM_T& ring) {
  return {&ring.wtr_timer, &ring.wtb_timer, &ring.guard_timer, &ring.holdoff_timer,
          &ring.raps_timer};
}

void check_lock() {
  require(pthread_mutex_trylock(&erps_timer_lock) == 0, "the timer lock is held");
  pthread_mutex_unlock(&erps_timer_lock);
}

void check_ports(const ERPSM_T& ring) {
  uint32_t count = 0;
  for (const ERPS_PORT_T* port = ring.port_list; port != nullptr; port = port->next) {
    require(++count <= kPortsPerRing, "a ring has more than two ports");
    require(port->ring == &ring && port->port_index == count - 1, "a port is not its ring's");
    require(port->port_role <= 1, "a port has a role that does not exist");
    require(port->rx_bpr <= 1, "a port remembers a BPR of more than one bit");
    const uint16_t state = port->port_state;
    require(state == 0 || state == kForwarding || state == kDiscarding,
            "a port has a state that does not exist");
  }
  require(count == kPortsPerRing, "a ring has lost a port");
}

void check_state_list(const ERPSM_T& ring) {
  uint32_t count = 0;
  for (const ERPS_STATE_ENTRY_T* entry = ring.state_list; entry != nullptr; entry = entry->next) {
    require(++count <= kStateEntries && entry->ring == &ring, "a state list is not its ring's");
  }
  require(count == kStateEntries, "a ring has lost a part of its state list");
}

void check_ring(const ERPSM_T& ring) {
  check_ports(ring);
  check_state_list(ring);
  require(ring.State >= STATE_INIT && ring.State <= STATE_PENDING, "a ring is in no state");
  require(ring.local_priority < kRequestCount, "a ring has a local request that does not exist");
  require(ring.tx_frame_len <= kTxFrameCapacity, "a ring's frame is longer than its buffer");
  require(ring.enable != 1 || ring.State != STATE_INIT, "a running ring was never entered");
}

bool belongs_to_a_ring(const ERPS_TIMER_T& timer) {
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    for (const ERPS_TIMER_T* own : timers_of(*ring)) {
      if (own == &timer) {
        require(timer.arg == ring, "a timer is not its ring's");
        return true;
      }
    }
  }
  return false;
}

// How many records the timer list holds.
size_t check_timer_list() {
  size_t count = 0;
  const ERPS_TIMER_LINK_T* before = &g_erps_timer_list;
  for (const ERPS_TIMER_LINK_T* link = before->next; link != &g_erps_timer_list;
       link = link->next) {
    require(link->prev == before && ++count <= kMostRecords, "the timer list is broken");
    const auto* timer = static_cast<const ERPS_TIMER_T*>(link);
    require(belongs_to_a_ring(*timer), "a timer runs for a ring that is gone");
    require(timer->active == 1, "a timer is linked that does not run");
    require(memchr(timer->name, 0, sizeof timer->name) != nullptr, "a timer's name has no end");
    before = link;
  }
  require(g_erps_timer_list.prev == before, "the timer list has no end");
  return count;
}

}  // namespace

void check_module() {
  check_lock();
  const size_t linked = check_timer_list();
  size_t rings = 0;
  size_t running = 0;
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    require(++rings <= kMostRecords, "the ring list is a loop");
    for (const ERPSM_T* older = ring->next; older != nullptr; older = older->next) {
      require(older->ring_id != ring->ring_id, "two rings have one ID");
    }
    check_ring(*ring);
    for (const ERPS_TIMER_T* timer : timers_of(*ring)) {
      running += timer->active == 1 ? 1 : 0;
    }
  }
  require(running == linked, "a timer runs that is not linked");
}

std::vector<RingSummary> summary_of_rings() {
  std::vector<RingSummary> rings;
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    rings.emplace_back(ring->ring_id, ring->port_list->port_id, ring->port_list->next->port_id,
                       ring->vlan_id, ring->ring_role, ring->enable, ring->State);
  }
  return rings;
}

bool ports_are_distinct() {
  std::array<bool, kAbsentPort> taken{};
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
      if (port->port_id >= taken.size()) {
        continue;
      }
      if (taken.at(port->port_id)) {
        return false;
      }
      taken.at(port->port_id) = true;
    }
  }
  return true;
}

void check_empty() {
  require(erps_get_list_head() == nullptr, "a ring is left that was removed");
  require(g_erps_timer_list.next == &g_erps_timer_list, "a timer is left without a ring");
}

}  // namespace erps::fuzz
