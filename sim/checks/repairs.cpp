#include "sim/checks/repairs.h"

#include <algorithm>

#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

bool same_circumstances(const Forwarding& one, const Forwarding& other) {
  return one.powered == other.powered &&
         std::equal(
             one.arcs.begin(), one.arcs.end(), other.arcs.begin(), other.arcs.end(),
             [](const Arc& first, const Arc& second) { return first.works == second.works; });
}

}  // namespace

Cover cover_by_mishap(const Mishaps& mishaps, int64_t time_us,
                      const std::set<NodeIndex>& concerned) {
  Cover cover{time_us, nullptr};
  for (const Mishap& mishap : mishaps.all()) {
    const int64_t until_us = mishap.time_us + mishap.lasts_us;
    if (concerned.count(mishap.node) != 0 && mishap.time_us <= time_us &&
        until_us > cover.until_us) {
      cover = {until_us, mishap.surprise};
    }
  }
  return cover;
}

void Repairs::on_record(const Record& record) {
  switch (record.kind) {
    case RecordKind::kSignal:
      if (changes_us_.empty() || changes_us_.back() != record.time_us) {
        changes_us_.push_back(record.time_us);
      }
      break;
    case RecordKind::kCrash:
      end_boot(record.time_us, record.node);
      break;
    case RecordKind::kRunning:
      starts_us_.push_back(record.time_us);
      end_boot(record.time_us, record.node);
      break;
    default:
      break;
  }
}

void Repairs::end_boot(int64_t time_us, NodeIndex node) {
  for (Boot& boot : boots_) {
    if (boot.node == node) {
      boot.to_us = std::min(boot.to_us, time_us);
    }
  }
}

void Repairs::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  if (!same_circumstances(forwarding, last_)) {
    changes_us_.push_back(time_us);
  }
  last_.powered.resize(forwarding.powered.size());
  for (NodeIndex node = 0; node < forwarding.powered.size(); ++node) {
    if (forwarding.powered[node] && !last_.powered[node]) {
      boots_.push_back({node, time_us});
    }
  }
  last_ = forwarding;
}

Cover Repairs::cover(const Mishaps& mishaps, int64_t time_us, const Bounds& bounds) const {
  Cover cover{time_us, nullptr};
  for (const int64_t change_us : changes_us_) {
    if (change_us <= time_us) {
      cover.until_us = std::max(cover.until_us, change_us + bounds.repair_us);
    }
  }
  for (const Boot& boot : boots_) {
    if (boot.from_us <= time_us) {
      const int64_t booted_us = std::min(boot.to_us, boot.from_us + bounds.start_us);
      cover.until_us = std::max(cover.until_us, booted_us + bounds.repair_us);
    }
  }
  for (const int64_t start_us : starts_us_) {
    if (start_us - bounds.start_us <= time_us) {
      cover.until_us = std::max(cover.until_us, start_us + bounds.repair_us);
    }
  }
  for (const Mishap& mishap : mishaps.all()) {
    const int64_t until_us = mishap.time_us + mishap.lasts_us + bounds.repair_us;
    if (mishap.surprise == surprise::kStalled && mishap.time_us <= time_us &&
        until_us > cover.until_us) {
      cover = {until_us, mishap.surprise};
    }
  }
  return cover;
}

void Repairs::forget_before(int64_t time_us) {
  const auto is_old = [=](int64_t at_us) { return at_us < time_us; };
  std::erase_if(changes_us_, is_old);
  std::erase_if(starts_us_, is_old);
  std::erase_if(boots_, [=](const Boot& boot) { return boot.to_us < time_us; });
}

}  // namespace erps::sim
