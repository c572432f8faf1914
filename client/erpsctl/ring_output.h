// Rings as a table and as JSON.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "client/ring_status.h"

namespace erps::erpsctl {

// Two lines a ring, one a port; a heading above them. "" when there are no rings.
std::string rings_table(const std::vector<client::RingStatus>& rings,
                        const client::TimerSettings& settings, uint32_t now_s);

// What the table leaves out, one line each.
std::string ring_details(const client::RingStatus& ring);

// {"rings": [...], "timers": {...}}: the same shape whatever the number of rings.
nlohmann::ordered_json rings_json(const std::vector<client::RingStatus>& rings,
                                  const client::TimerSettings& settings, uint32_t now_s);

nlohmann::ordered_json timers_json(const client::TimerSettings& settings);

}  // namespace erps::erpsctl
