#include <nlohmann/json.hpp>

#include "client/erpsctl/ring_output.h"
#include "client/words.h"

namespace erps::erpsctl {

namespace {

using client::RingStatus;
using json = nlohmann::ordered_json;

json or_null(const std::optional<uint32_t>& value) {
  return value ? json(*value) : json(nullptr);
}

json timer_json(const client::TimerStatus& timer) {
  return {{"running", timer.running},
          {"elapsed_s", or_null(timer.elapsed_s)},
          {"remaining_s", or_null(timer.remaining_s)}};
}

json port_json(const RingStatus& ring, const client::PortStatus& port) {
  return {{"port", port.port},
          {"state", client::port_state_name(port.state)},
          {"link", port.link_up ? "up" : "down"},
          {"rpl", ring.rpl_port() == port.port}};
}

json interconnection_json(const RingStatus& ring) {
  if (ring.partner_ring == 0) {
    return nullptr;
  }
  const bool sub_ring = ring.is_interconnection_sub_ring();
  return {{"partner_ring", ring.partner_ring},
          {"role", sub_ring ? json(nullptr)
                            : json(client::interconnection_role_name(ring.interconnection_role))}};
}

json ring_json(const RingStatus& ring, const client::TimerSettings& settings, uint32_t now_s) {
  json ports = json::array();
  for (const client::PortStatus& port : ring.ports()) {
    ports.push_back(port_json(ring, port));
  }
  const client::RingTimers timers = ring.timers(settings, now_s);
  return {{"ring", ring.ring_id},
          {"enabled", ring.enabled},
          {"state", client::state_name(ring.state)},
          {"node_role", client::node_role_name(ring.node_role)},
          {"ring_role", client::ring_role_name(ring.ring_role)},
          {"control_vlan", ring.control_vlan},
          {"revertive", ring.revertive},
          {"node_id", client::mac_text(ring.node_id)},
          {"rpl_port", or_null(ring.rpl_port())},
          {"ports", ports},
          {"blocked_ports", ring.blocked_ports()},
          {"local_request", client::request_name(ring.local_request)},
          {"last_request", client::request_name(ring.last_request)},
          {"sending_raps", ring.sending},
          {"timers",
           {{"wtr", timer_json(timers.wtr)},
            {"wtb", timer_json(timers.wtb)},
            {"guard", timer_json(timers.guard)},
            {"holdoff", timer_json(timers.holdoff)}}},
          {"interconnection", interconnection_json(ring)}};
}

}  // namespace

json timers_json(const client::TimerSettings& settings) {
  return {{"guard_ms", settings.guard_ms},
          {"wtr_minutes", settings.wtr_minutes},
          {"holdoff_ms", settings.holdoff_ms}};
}

json rings_json(const std::vector<RingStatus>& rings, const client::TimerSettings& settings,
                uint32_t now_s) {
  json all = json::array();
  for (const RingStatus& ring : rings) {
    all.push_back(ring_json(ring, settings, now_s));
  }
  return {{"rings", all}, {"timers", timers_json(settings)}};
}

}  // namespace erps::erpsctl
