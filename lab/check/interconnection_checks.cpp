#include <map>
#include <string>

#include "client/hazards.h"
#include "lab/check/daemon_checks.h"

namespace erps::lab {

namespace {

void check_ends(const std::vector<RingEntry>& ends, Findings& findings) {
  const RingEntry& first = ends.front();
  if (ends.size() == 1) {
    add(findings, Severity::kWarning, "interconnection-incomplete", first, "interconnection",
        "no other file has the other end of this sub-ring, so the roles cannot be compared",
        "give the file of the other interconnection node");
    return;
  }
  for (size_t i = 2; i < ends.size(); ++i) {
    add(findings, Severity::kError, "interconnection-repeated", ends[i], "interconnection",
        "a sub-ring has two ends, and " + first.place("id") + " and " + ends[1].place("id") +
            " are two already",
        "leave two, and make this a [[ring]]");
  }
  const RingEntry& second = ends[1];
  if (first.value("interconnection") &&
      first.value("interconnection") == second.value("interconnection")) {
    add(findings, Severity::kError, "interconnection-roles", second, "interconnection",
        first.place("interconnection") + " has the same: " + client::kWatchingNeedsMarking,
        "make one watching and the other one marking");
  }
  if (first.value("major_ring") && second.value("major_ring") &&
      first.value("major_ring") != second.value("major_ring")) {
    add(findings, Severity::kError, "major-ring-differs", second, "major_ring",
        first.place("major_ring") + " has " + *first.value("major_ring") +
            ": both ends of a sub-ring are part of the same major ring",
        "attach both to the same ring");
  }
}

}  // namespace

void check_interconnections(const Rings& rings, Findings& findings) {
  std::map<std::string, RingEntry> joined;  // the first sub-ring of each major ring
  for (const auto& [id, entries] : rings) {
    std::vector<RingEntry> ends;
    for (const RingEntry& entry : entries) {
      if (entry.is_end) {
        ends.push_back(entry);
      }
    }
    if (ends.empty()) {
      continue;
    }
    check_ends(ends, findings);
    if (const auto major_ring = ends.front().value("major_ring"); major_ring) {
      const auto [first, is_first] = joined.try_emplace(*major_ring, ends.front());
      if (!is_first) {
        add(findings, Severity::kWarning, "major-ring-shared", ends.front(), "major_ring",
            first->second.place("major_ring") + " has the same: " + client::kSharedMajorRingHazard,
            "give a major ring one sub-ring where two failures matter");
      }
    }
    for (const RingEntry& entry : entries) {
      if (!entry.is_end && entry.has("ring_role", "major")) {
        add(findings, Severity::kError, "sub-ring-role", entry, "ring_role",
            "this ring ends at " + ends.front().place("id") +
                ": its R-APS messages have to pass its own blocked ports",
            "set \"sub-ring\" in the nodes between its ends");
      }
    }
  }
}

}  // namespace erps::lab
