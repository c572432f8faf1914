#include <stddef.h>

#include <algorithm>

#include "client/erpsctl/ring_output.h"
#include "client/words.h"

namespace erps::erpsctl {

namespace {

using client::RingStatus;
using client::TimerStatus;
using Row = std::vector<std::string>;

std::string yes_no(bool value) {
  return value ? "yes" : "no";
}

std::string timer_text(const char* name, const TimerStatus& timer, bool at_least) {
  if (!timer.running) {
    return "";
  }
  std::string text = name;
  if (timer.remaining_s) {
    text += (at_least ? " >=" : " ") + std::to_string(*timer.remaining_s) + " s left";
  } else if (timer.elapsed_s) {
    text += " for " + std::to_string(*timer.elapsed_s) + " s";
  } else {
    text += " running";
  }
  return text;
}

std::string timers_text(const client::RingTimers& timers) {
  std::string all;
  for (const std::string& text :
       {timer_text("WTR", timers.wtr, true), timer_text("WTB", timers.wtb, false),
        timer_text("guard", timers.guard, false), timer_text("hold-off", timers.holdoff, false)}) {
    if (!text.empty()) {
      all += (all.empty() ? "" : ", ") + text;
    }
  }
  return all.empty() ? "-" : all;
}

// A short word in the table; ring_details has the long one.
std::string short_ring_role(const RingStatus& ring) {
  return ring.is_interconnection_sub_ring() ? "attached" : client::ring_role_name(ring.ring_role);
}

void add_rows(const RingStatus& ring, const client::TimerSettings& settings, uint32_t now_s,
              std::vector<Row>* rows) {
  Row columns{std::to_string(ring.ring_id),   yes_no(ring.enabled),
              client::state_name(ring.state), client::node_role_name(ring.node_role),
              short_ring_role(ring),          std::to_string(ring.control_vlan)};
  Row last{client::request_name(ring.local_request), client::request_name(ring.last_request),
           timers_text(ring.timers(settings, now_s))};
  for (const client::PortStatus& port : ring.ports()) {
    Row row = columns;
    row.push_back(std::to_string(port.port) + (ring.rpl_port() == port.port ? " RPL" : ""));
    row.push_back(client::port_state_name(port.state));
    row.emplace_back(port.link_up ? "up" : "down");
    row.insert(row.end(), last.begin(), last.end());
    rows->push_back(row);
    std::fill(columns.begin(), columns.end(), "");
    std::fill(last.begin(), last.end(), "");
  }
}

std::string aligned(const std::vector<Row>& rows) {
  std::vector<size_t> widths(rows.front().size(), 0);
  for (const Row& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::string text;
  for (const Row& row : rows) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + '\n';
  }
  return text;
}

}  // namespace

std::string rings_table(const std::vector<RingStatus>& rings, const client::TimerSettings& settings,
                        uint32_t now_s) {
  if (rings.empty()) {
    return "";
  }
  std::vector<Row> rows{{"RING", "ENABLED", "STATE", "NODE", "ROLE", "VLAN", "PORT", "PORT STATE",
                         "LINK", "REQUEST", "LAST REQUEST", "TIMERS"}};
  for (const RingStatus& ring : rings) {
    add_rows(ring, settings, now_s, &rows);
  }
  return aligned(rows);
}

std::string ring_details(const RingStatus& ring) {
  std::string text = "node ID      " + client::mac_text(ring.node_id) + '\n';
  text += "ring role    " + client::ring_role_name(ring.ring_role) + '\n';
  text += std::string("operation    ") + (ring.revertive ? "revertive" : "non-revertive") + '\n';
  text +=
      std::string("R-APS        ") + (ring.sending ? "repeated by this node" : "not sent") + '\n';
  if (ring.partner_ring != 0) {
    text += "attached     ";
    text += ring.is_interconnection_sub_ring()
                ? "to ring " + std::to_string(ring.partner_ring)
                : "sub-ring " + std::to_string(ring.partner_ring) + ", " +
                      client::interconnection_role_name(ring.interconnection_role);
    text += '\n';
  }
  return text;
}

}  // namespace erps::erpsctl
