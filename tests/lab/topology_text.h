// Topology files for tests, written from parts.
#pragma once

#include <stdexcept>
#include <string>

namespace erps::lab::testing {

// Four nodes n1 to n4 in a ring, hosts h1 at n1 and h2 at n3; no [[ring]] yet.
inline std::string four_nodes() {
  return R"(name = "test"
[[node]]
name = "n1"
[[node]]
name = "n2"
[[node]]
name = "n3"
[[node]]
name = "n4"
[[link]]
between = ["n1", "n2"]
[[link]]
between = ["n2", "n3"]
[[link]]
between = ["n3", "n4"]
[[link]]
between = ["n4", "n1"]
[[host]]
name = "h1"
node = "n1"
[[host]]
name = "h2"
node = "n3"
[[stream]]
between = ["h1", "h2"]
)";
}

inline std::string ring_of_four(const std::string& more = "") {
  return R"([[ring]]
id = 1
control_vlan = 100
nodes = ["n1", "n2", "n3", "n4"]
owner = "n1"
rpl = "n4-n1"
wtr_ms = 5000
)" + more;
}

// A sub-ring n2, n5, n6, n3 below the ring of four.
inline std::string sub_ring(const std::string& more = "watching = \"n2\"\n") {
  return R"([[node]]
name = "n5"
[[node]]
name = "n6"
[[link]]
between = ["n2", "n5"]
[[link]]
between = ["n5", "n6"]
[[link]]
between = ["n6", "n3"]
[[ring]]
id = 2
control_vlan = 100
nodes = ["n2", "n5", "n6", "n3"]
owner = "n5"
rpl = "n5-n6"
major_ring = 1
wtr_ms = 5000
)" + more;
}

inline std::string ladder() {
  return four_nodes() + ring_of_four() + sub_ring();
}

// `what` with its first `from` replaced.
inline std::string swapped(std::string what, const std::string& from, const std::string& to) {
  const size_t at = what.find(from);
  if (at == std::string::npos) {
    throw std::logic_error("not in the text: " + from);
  }
  return what.replace(at, from.size(), to);
}

}  // namespace erps::lab::testing
