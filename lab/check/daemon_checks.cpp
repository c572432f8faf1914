#include "lab/check/daemon_checks.h"

#include <map>
#include <set>

#include "client/hazards.h"
#include "lab/timer_hazards.h"

namespace erps::lab {

namespace {

// Reports every entry whose value differs from that of the first one that has it.
template <typename Value>
void compare(const std::vector<RingEntry>& entries, const char* option, Value value,
             Severity severity, const char* rule, const std::string& why, const std::string& advice,
             Findings& findings) {
  const RingEntry* first = nullptr;
  for (const RingEntry& entry : entries) {
    const auto its = value(entry);
    if (!its) {
      continue;
    }
    if (first == nullptr) {
      first = &entry;
    } else if (its != value(*first)) {
      add(findings, severity, rule, entry, option,
          first->place(option) + " has " + *value(*first) +
              (entry.value(option) ? "" : ", and " + *its + " here") + ": " + why,
          advice);
    }
  }
}

std::vector<RingEntry> with_role(const std::vector<RingEntry>& entries, const std::string& role) {
  std::vector<RingEntry> found;
  for (const RingEntry& entry : entries) {
    if (entry.has("node_role", role)) {
      found.push_back(entry);
    }
  }
  return found;
}

void check_rpl(const std::vector<RingEntry>& entries, Findings& findings) {
  const auto owners = with_role(entries, "owner");
  if (owners.empty() && entries.size() > 1) {
    add(findings, Severity::kError, "owner-missing", entries.front(), "node_role",
        "none of the " + std::to_string(entries.size()) +
            " files with this ring has its owner: nothing blocks the RPL and brings the ring to "
            "rest",
        "make the node at one end of the RPL the owner, or give its file as well");
  }
  for (size_t i = 1; i < owners.size(); ++i) {
    add(findings, Severity::kError, "owner-repeated", owners[i], "node_role",
        owners[0].place("node_role") +
            " is the owner, too: each would block its own link and split the ring",
        "leave one owner");
  }
  const auto neighbours = with_role(entries, "neighbour");
  for (size_t i = 1; i < neighbours.size(); ++i) {
    add(findings, Severity::kError, "neighbour-repeated", neighbours[i], "node_role",
        neighbours[0].place("node_role") +
            " is the RPL neighbour, too, and the RPL has one other end",
        "leave the one at the other end of the owner's RPL");
  }
  for (const RingEntry& owner : owners) {
    const auto address = owner.file->address();
    for (const RingEntry& entry : entries) {
      const auto other = entry.file->address();
      if (address && other && *other < *address) {
        add(findings, Severity::kWarning, "owner-not-lowest", owner, "node_role",
            "its node_address " + *address + " should be the lowest of the ring, and " +
                entry.file->path + " has " + *other +
                ": the ring may be split for several seconds at the start and when a link returns",
            "give the owner the lowest node_address of the ring");
        break;
      }
    }
    for (const host::Settings& sub_ring : owner.file->settings.sub_rings) {
      const RingEntry end{owner.file, &sub_ring, true};
      if (!owner.is_end && end.value("major_ring") == owner.value("id")) {
        add(findings, Severity::kWarning, "owner-at-interconnection", owner, "node_role",
            "an interconnection node tells its major ring of changes in the sub-ring with "
            "R-APS(Event), which replaces the message that it repeats: a node that missed "
            "R-APS(NR,RB) does not get it again",
            "make a node the owner that is no end of a sub-ring");
      }
    }
  }
}

void check_operation(const std::vector<RingEntry>& entries, Findings& findings) {
  for (const RingEntry& entry : entries) {
    if (entry.has("enable", "false")) {
      add(findings, Severity::kWarning, "ring-disabled", entry, "enable",
          "this node does not protect the ring until an operator enables it",
          "set true, or leave it out");
    }
  }
  const auto written = [](const char* option) {
    return [option](const RingEntry& entry) {
      return entry.is_end ? std::nullopt : entry.value(option);
    };
  };
  compare(entries, "ring_role", written("ring_role"), Severity::kError, "ring-role-differs",
          "some nodes pass R-APS messages through blocked ports and others do not",
          "set the same in all nodes of the ring", findings);
  compare(
      entries, "revertive", written("revertive"), Severity::kError, "revertive-differs",
      "a node that is not revertive sends no R-APS(NR) when its link is back, and an owner that "
      "is not starts no WTR: the ring does not come home",
      "set the same in all nodes of the ring", findings);
  for (const RingEntry& entry : entries) {
    if (!entry.is_end && entry.has("revertive", "false")) {
      add(findings, Severity::kWarning, "non-revertive", entry, "revertive",
          client::kNonRevertiveHazard,
          "set true, unless an operator watches the ring and clears it after each repair");
      break;
    }
  }
}

uint32_t timer_of(const DaemonFile& file, const char* option, uint32_t otherwise) {
  const host::Setting* setting = file.settings.timers.find(option);
  return setting == nullptr ? otherwise : static_cast<uint32_t>(setting->number);
}

uint32_t timer_line(const DaemonFile& file, const char* option) {
  const host::Setting* setting = file.settings.timers.find(option);
  return setting == nullptr ? 0 : static_cast<uint32_t>(setting->line);
}

void check_timers(const DaemonFile& file, Findings& findings) {
  const Timers presets;
  const Timers timers{timer_of(file, "wtr_ms", presets.wtr_ms),
                      timer_of(file, "guard_ms", presets.guard_ms),
                      timer_of(file, "holdoff_ms", presets.holdoff_ms)};
  for (const TimerHazard& hazard : timer_hazards(timers, 0)) {
    findings.add({.severity = Severity::kWarning,
                  .rule = hazard.rule,
                  .file = file.path,
                  .line = timer_line(file, hazard.key),
                  .where = "timers",
                  .key = hazard.key,
                  .value = std::to_string(hazard.value_ms),
                  .why = hazard.why,
                  .advice = hazard.advice});
  }
}

// Files with a ring in common have the same times; each pair is told once.
void compare_timers(const Rings& rings, Findings& findings) {
  std::set<std::pair<const DaemonFile*, std::string>> told;
  for (const auto& [id, entries] : rings) {
    const DaemonFile& first = *entries.front().file;
    for (const RingEntry& entry : entries) {
      for (const char* option : {"wtr_ms", "guard_ms", "holdoff_ms"}) {
        const host::Setting* one = first.settings.timers.find(option);
        const host::Setting* other = entry.file->settings.timers.find(option);
        if (one == nullptr || other == nullptr || one->number == other->number ||
            !told.insert({entry.file, option}).second) {
          continue;
        }
        findings.add({.severity = Severity::kWarning,
                      .rule = "timers-differ",
                      .file = entry.file->path,
                      .line = timer_line(*entry.file, option),
                      .where = "timers",
                      .key = option,
                      .value = std::to_string(other->number),
                      .why = first.path + " has " + std::to_string(one->number) +
                             ", and both are part of ring " + std::to_string(id),
                      .advice = "set the same in all nodes of a ring"});
      }
    }
  }
}

void check_addresses(const std::vector<DaemonFile>& files, Findings& findings) {
  std::map<std::string, const DaemonFile*> first;
  for (const DaemonFile& file : files) {
    const auto address = file.address();
    if (!address) {
      continue;
    }
    const auto [at, fresh] = first.insert({*address, &file});
    if (!fresh) {
      findings.add(
          {.rule = "address-repeated",
           .file = file.path,
           .line = static_cast<uint32_t>(file.settings.top.at("node_address").line),
           .key = "node_address",
           .value = *address,
           .why = at->second->path +
                  " has it, too, and each node would take the other's messages for its own",
           .advice = "give each node its own"});
    }
  }
}

}  // namespace

void add(Findings& findings, Severity severity, const char* rule, const RingEntry& entry,
         const std::string& option, std::string why, std::string advice) {
  findings.add({.severity = severity,
                .rule = rule,
                .file = entry.file->path,
                .line = entry.line(option),
                .where = "ring " + entry.value("id").value_or("?"),
                .key = option,
                .value = entry.value(option).value_or(""),
                .why = std::move(why),
                .advice = std::move(advice)});
}

void check_daemons(const std::vector<DaemonFile>& files, const Rings& rings, Findings& findings) {
  for (const DaemonFile& file : files) {
    check_timers(file, findings);
  }
  check_addresses(files, findings);
  for (const auto& [id, entries] : rings) {
    if (entries.size() == 1) {
      add(findings, Severity::kWarning, "ring-incomplete", entries.front(), "id",
          "no other file has this ring, so nothing can be compared",
          "give the files of all its nodes; the ID is the same in all of them");
    }
    check_rpl(entries, findings);
    check_operation(entries, findings);
    compare(
        entries, "control_vlan", [](const RingEntry& entry) { return entry.control_vlan(); },
        Severity::kError, "control-vlan-differs", "the nodes would not hear each other",
        "set the same in all nodes of the ring", findings);
  }
  compare_timers(rings, findings);
  check_interconnections(rings, findings);
}

}  // namespace erps::lab
