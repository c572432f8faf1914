#include "linux/capture_rules.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "linux/log.h"

namespace erps::linux_platform {
namespace {

constexpr uint32_t kActionToProcessor = 30;
constexpr uint32_t kActionPriority = 2;
constexpr uint32_t kActionNoForwarding = 53;
constexpr uint32_t kQualifyPorts = 13;
constexpr uint32_t kQualifyDestination = 7;
constexpr uint32_t kQualifyEtherType = 29;
constexpr uint32_t kPortSetBytes = 32;

// What stands in the rule's opaque part; all zero is an empty rule.
struct Contents {
  uint8_t to_processor;
  uint8_t has_ports;
  uint8_t has_destination;
  uint8_t has_ether_type;
  uint16_t ether_type;
  uint8_t destination[6];
  uint8_t destination_mask[6];
  uint64_t ports;  // bit n: port n; no port number reaches 64
};
static_assert(sizeof(Contents) <= sizeof(adp_fp_rule_t::opaque));

Contents contents_of(const adp_fp_rule_t& rule) {
  Contents contents;
  std::memcpy(&contents, rule.opaque, sizeof contents);
  return contents;
}

void store(adp_fp_rule_t& rule, const Contents& contents) {
  std::memcpy(rule.opaque, &contents, sizeof contents);
}

// The mechanism, with a trap in switch hardware where all ring ports have it.
std::unique_ptr<CaptureMechanism> with_hardware(std::unique_ptr<CaptureMechanism> software,
                                                const std::vector<CaptureEntry>& entries) {
  auto trap = make_trap_capture(std::move(software));
  const std::string error = trap->probe(entries);
  if (error.empty()) {
    return trap;
  }
  logf(LogLevel::kDebug, "no capture in switch hardware: %s", error.c_str());
  return trap->give_back_software();
}

int unknown(const char* what, uint32_t number, uint32_t length) {
  logf(LogLevel::kError, "capture rule: %s %u with %u bytes is not known", what, number, length);
  return -1;
}

}  // namespace

int add_rule_action(adp_fp_rule_t& rule, uint32_t action, const void*, uint32_t data_length,
                    const void*, uint32_t) {
  Contents contents = contents_of(rule);
  switch (action) {
    case kActionToProcessor:
      contents.to_processor = 1;
      break;
    case kActionPriority:      // the sockets see the frame in the order of its arrival anyway
    case kActionNoForwarding:  // what every mechanism does
      break;
    default:
      return unknown("action", action, data_length);
  }
  store(rule, contents);
  return 0;
}

int add_rule_qualifier(adp_fp_rule_t& rule, uint32_t qualifier, const void* value,
                       uint32_t value_length, const void* mask, uint32_t mask_length) {
  if (value == nullptr || mask == nullptr || value_length != mask_length) {
    return unknown("qualifier", qualifier, value_length);
  }
  Contents contents = contents_of(rule);
  if (qualifier == kQualifyPorts && value_length == kPortSetBytes) {
    // 32-bit words in machine order, bit n of word w is port 32 w + n.
    uint32_t members[2];
    uint32_t counted[2];
    std::memcpy(members, value, sizeof members);
    std::memcpy(counted, mask, sizeof counted);
    contents.has_ports = 1;
    contents.ports = (members[0] & counted[0]) | static_cast<uint64_t>(members[1] & counted[1])
                                                     << 32;
  } else if (qualifier == kQualifyDestination && value_length == sizeof contents.destination) {
    contents.has_destination = 1;
    std::memcpy(contents.destination, value, sizeof contents.destination);
    std::memcpy(contents.destination_mask, mask, sizeof contents.destination_mask);
  } else if (qualifier == kQualifyEtherType && value_length == sizeof contents.ether_type) {
    contents.has_ether_type = 1;
    std::memcpy(&contents.ether_type, value, sizeof contents.ether_type);
  } else {
    return unknown("qualifier", qualifier, value_length);
  }
  store(rule, contents);
  return 0;
}

void CaptureRules::choose() {
  const std::lock_guard lock(mutex_);
  std::vector<CaptureEntry> entries;
  for (const auto& port : ports_.all()) {
    entries.push_back({port->interface, port->ifindex.load(), FrameMatch{}});
  }
  std::vector<std::unique_ptr<CaptureMechanism>> candidates;
  candidates.push_back(make_nftables_capture(bridge_));
  candidates.push_back(make_clsact_capture());
  std::string reasons;
  for (auto& candidate : candidates) {
    const std::string error = candidate->probe(entries);
    if (error.empty()) {
      mechanism_ = with_hardware(std::move(candidate), entries);
      return;
    }
    reasons += std::string(reasons.empty() ? "" : "; ") + candidate->name() + ": " + error;
  }
  throw PlatformError("bridge " + bridge_ +
                      ": the kernel offers no way to keep R-APS frames from being flooded (" +
                      reasons + "); it needs nf_tables with the netdev family, or act_bpf/cls_bpf");
}

int CaptureRules::add(const adp_fp_rule_t& rule) {
  const Contents contents = contents_of(rule);
  if (contents.to_processor == 0 || contents.has_destination == 0 || contents.has_ether_type == 0) {
    logf(LogLevel::kError,
         "capture rule %u: refused: it must send frames to the processor and match a destination "
         "address and an EtherType",
         rule.entity_id);
    return -1;
  }
  Rule added{.entity_id = rule.entity_id,
             .ports = contents.has_ports != 0 ? contents.ports : ~uint64_t{0},
             .match = {}};
  std::copy_n(contents.destination, added.match.destination.size(),
              added.match.destination.begin());
  std::copy_n(contents.destination_mask, added.match.mask.size(), added.match.mask.begin());
  added.match.ether_type = contents.ether_type;

  const std::lock_guard lock(mutex_);
  std::erase_if(rules_, [&](const Rule& old) { return old.entity_id == added.entity_id; });
  rules_.push_back(added);
  return install();
}

int CaptureRules::remove(uint32_t entity_id) {
  const std::lock_guard lock(mutex_);
  const bool known =
      std::erase_if(rules_, [&](const Rule& rule) { return rule.entity_id == entity_id; }) > 0;
  return known ? install() : -1;
}

void CaptureRules::remove_all() {
  const std::lock_guard lock(mutex_);
  if (mechanism_ != nullptr && !rules_.empty()) {
    rules_.clear();
    install();
  }
}

void CaptureRules::refresh() {
  const std::lock_guard lock(mutex_);
  if (mechanism_ != nullptr && !rules_.empty()) {
    install();
  }
}

int CaptureRules::install() {
  std::vector<CaptureEntry> entries;
  for (const auto& port : ports_.all()) {
    const uint32_t ifindex = port->ifindex.load();
    bool captured = false;
    for (const Rule& rule : rules_) {
      if (ifindex != 0 && (rule.ports >> port->id & 1) != 0) {
        entries.push_back({port->interface, ifindex, rule.match});
        captured = true;
      }
    }
    if (!captured) {
      port->frames.listen(nullptr);
    }
  }
  if (entries.empty()) {
    mechanism_->remove();
    error_.clear();
  } else {
    error_ = mechanism_->install(entries);
  }
  const bool done = error_.empty();
  for (const CaptureEntry& entry : entries) {
    for (const auto& port : ports_.all()) {
      if (port->interface == entry.interface) {
        port->frames.listen(done ? &entry.match : nullptr);
      }
    }
  }
  installed_ = done && !rules_.empty();

  HistoryRecord record = History::make(HistoryKind::kCapture, 0);
  record.phase = done ? Phase::kApplied : Phase::kFailed;
  std::snprintf(record.text, sizeof record.text, "%s%s", mechanism_->name().c_str(),
                rules_.empty() ? " removed" : "");
  history_.add(record);
  if (!done) {
    logf(LogLevel::kError, "capture rule cannot be installed with %s, so no R-APS is received: %s",
         mechanism_->name().c_str(), error_.c_str());
    return -1;
  }
  logf(LogLevel::kNotice, "R-APS capture %s: %s", rules_.empty() ? "removed" : "in force",
       mechanism_->name().c_str());
  return 0;
}

std::string CaptureRules::mechanism() const {
  const std::lock_guard lock(mutex_);
  return mechanism_ != nullptr ? mechanism_->name() : "";
}

bool CaptureRules::installed() const {
  const std::lock_guard lock(mutex_);
  return installed_;
}

std::string CaptureRules::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

}  // namespace erps::linux_platform
