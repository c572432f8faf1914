#include "sim/checks/partition_judge.h"

#include <algorithm>

#include "sim/checks/graph.h"
#include "sim/checks/surprises.h"
#include "sim/checks/time_text.h"

namespace erps::sim {

namespace {

// Steps are told when the node takes its next event, at the latest with a repetition.
constexpr int64_t kAllToldUs = 10 * kSecondUs;

}  // namespace

PartitionJudge::PartitionJudge(Simulation& simulation, const RingWatch& watch, const Bounds& bounds,
                               Mishaps& mishaps)
    : simulation_(simulation), watch_(watch), bounds_(bounds), mishaps_(mishaps) {
  slowness_.resize(simulation.topology().nodes.size(), 1);
  last_.dead.resize(slowness_.size());
  last_.rings.resize(last_.dead.size());
  last_.carriers.resize(2 * simulation.topology().links.size());
  last_.open.resize(last_.carriers.size());
  ends_of_.resize(last_.dead.size());
  for (size_t i = 0; i < last_.open.size(); ++i) {
    ends_of_[simulation.topology().links[i / 2].ends[i % 2].node].push_back(i);
  }
  is_changed_.resize(last_.dead.size());
  change_all();
}

void PartitionJudge::on_record(const Record& record) {
  find_reason(record.time_us);
  repairs_.on_record(record);
  if (record.node < is_changed_.size()) {
    change(record.node);
  }
  const auto set_carriers = [&](const auto& is_meant, bool up) {
    const auto& links = simulation_.topology().links;
    for (size_t i = 0; i < last_.carriers.size(); ++i) {
      last_.carriers[i] = is_meant(links[i / 2].ends[i % 2]) ? up : last_.carriers[i];
    }
  };
  switch (record.kind) {
    case RecordKind::kCarrier:
      set_carriers(
          [&](const LinkEnd& end) {
            return end == LinkEnd{record.node, record.port};
          },
          record.a == 1);
      break;
    case RecordKind::kKilled:
    case RecordKind::kStopped:
      last_.dead[record.node] = true;
      break;
    case RecordKind::kCrash:
      set_carriers([&](const LinkEnd& end) { return end.node == record.node; }, false);
      last_.dead[record.node] = false;
      break;
    case RecordKind::kSlowed:
      slowness_[record.node] = std::max<int64_t>(1, record.a);
      most_slowness_ = *std::max_element(slowness_.begin(), slowness_.end());
      break;
    case RecordKind::kRunning:
      last_.dead[record.node] = false;
      break;
    default:
      return;
  }
  note(record.time_us);
}

void PartitionJudge::on_step(const Step& step) {
  step_changed_ = step_changed_ || step.before == nullptr || step.after == nullptr ||
                  *step.before != *step.after;
  watch_repair(step);
}

// Whether the sub-ring starts where its major ring is cut on both sides.
bool PartitionJudge::starts_beside_split(const Step& step) const {
  const bool starts = step.after != nullptr && step.after->enabled &&
                      (step.before == nullptr || !step.before->enabled);
  const auto& configs = simulation_.topology().nodes[step.node].sub_rings;
  return starts && std::any_of(configs.begin(), configs.end(), [&](const SubRingConfig& config) {
           const RingSnapshot* major = watch_.ring(step.node, config.major_ring);
           return config.ring == step.ring() && major != nullptr && major->enabled &&
                  std::none_of(major->ports.begin(), major->ports.end(),
                               [](const PortSnapshot& port) { return port.link_up; });
         });
}

// A sub-ring that stands in for its major ring does so by a manual switch at its end. It is told to
// only once, and what it is told before it starts is forgotten.
void PartitionJudge::watch_repair(const Step& step) {
  const auto repairs = [](const RingSnapshot* ring) {
    return ring != nullptr && ring->ring_role == kSubRingRole &&
           has_local(*ring, RingRequest::kMs) && ring->ports[0].forwarding;
  };
  const std::pair<NodeIndex, uint32_t> end{step.node, step.ring()};
  if (step.cause == Step::Cause::kIndication || step.after == nullptr || repairs(step.after)) {
    last_.splits_forgotten.erase(end);
  } else if (repairs(step.before) || starts_beside_split(step)) {
    last_.splits_forgotten.insert(end);
  }
}

void PartitionJudge::on_event_done(int64_t time_us, NodeIndex node) {
  find_reason(time_us);
  change(node);
  if (step_changed_) {
    note(time_us);
  }
}

void PartitionJudge::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  find_reason(time_us);
  repairs_.on_forwarding(time_us, forwarding);
  last_.forwarding = forwarding;
  const bool split = has_partition(forwarding);
  if (split && !open_) {
    waiting_.push_back({{time_us, time_us}, {}});
  } else if (!split && open_) {
    waiting_.back().to_us = time_us;
    if (waiting_.back().length_us() <= bounds_.repair_us) {
      waiting_.pop_back();
    }
  }
  open_ = split;
  change_all();
  note(time_us);
  judge_old(time_us);
}

// Something has changed. What that means is asked when time goes on, and only if the partition
// lasts too long.
void PartitionJudge::note(int64_t time_us) {
  step_changed_ = false;
  is_asked_ = open_;
  if (!open_) {
    return;
  }
  noted_us_ = time_us;
  waiting_.back().slowness = std::max(waiting_.back().slowness, most_slowness_);
  look();
}

const Circumstances& PartitionJudge::circumstances() {
  look();
  return last_;
}

void PartitionJudge::change(NodeIndex node) {
  if (!is_changed_[node]) {
    is_changed_[node] = true;
    changed_.push_back(node);
  }
}

void PartitionJudge::change_all() {
  for (NodeIndex node = 0; node < is_changed_.size(); ++node) {
    change(node);
  }
}

void PartitionJudge::look() {
  const auto& links = simulation_.topology().links;
  for (const NodeIndex node : changed_) {
    is_changed_[node] = false;
    for (const size_t end : ends_of_[node]) {
      last_.open[end] = simulation_.port_forwards(links[end / 2].ends[end % 2]);
    }
    last_.rings[node].clear();
    if (!last_.dead[node]) {
      last_.rings[node] = watch_.rings(node);
    }
  }
  changed_.clear();
}

void PartitionJudge::find_reason(int64_t time_us) {
  if (!is_asked_ || time_us == noted_us_) {
    return;
  }
  // Not from the beginning on, because most are over by then; but what is repaired just before it
  // has lasted too long was a reason all the same.
  const int64_t suspicious_us = waiting_.back().from_us + bounds_.repair_us / 2;
  if (time_us <= suspicious_us) {
    return;
  }
  is_asked_ = false;
  PartitionReason reason = reason_of(simulation_.topology(), last_);
  auto& stretches = waiting_.back().stretches;
  if (stretches.empty() || stretches.back().reason != reason) {
    stretches.push_back({std::max(noted_us_, suspicious_us), std::move(reason)});
  }
}

void PartitionJudge::judge_old(int64_t now_us) {
  while (!waiting_.empty() && !(open_ && waiting_.size() == 1) &&
         waiting_.front().to_us + kAllToldUs < now_us) {
    judge(waiting_.front(), findings_);
    waiting_.erase(waiting_.begin());
  }
  const int64_t since_us = (waiting_.empty() ? now_us : waiting_.front().from_us) - kAllToldUs;
  mishaps_.forget_before(since_us);
  repairs_.forget_before(since_us);
}

void PartitionJudge::judge(const Partition& partition, FindingList& into) const {
  const Bounds bounds =
      partition.slowness == 1
          ? bounds_
          : bounds_of(simulation_.topology(), simulation_.timing(), partition.slowness);
  int64_t covered_us = partition.from_us + bounds.repair_us;
  std::set<std::string> names;
  const auto& stretches = partition.stretches;
  const auto take = [&](const Cover& cover, int64_t most_us) {
    const int64_t until_us = std::min(cover.until_us, most_us);
    if (until_us <= covered_us) {
      return false;
    }
    covered_us = until_us;
    if (cover.surprise != nullptr) {
      names.insert(cover.surprise);
    }
    return true;
  };
  while (covered_us < partition.to_us) {
    if (take(repairs_.cover(mishaps_, covered_us, bounds), partition.to_us)) {
      continue;
    }
    // Where the reason is gone, its end is told on: the one before may still explain it.
    bool goes_on = false;
    auto next = std::find_if(stretches.begin(), stretches.end(),
                             [&](const Stretch& stretch) { return stretch.from_us > covered_us; });
    while (!goes_on && next != stretches.begin()) {
      const int64_t most_us =
          (next == stretches.end() ? partition.to_us : next->from_us) + bounds.repair_us;
      const PartitionReason& reason = (--next)->reason;
      if (most_us <= covered_us) {
        break;
      }
      for (const char* surprise : reason.surprises) {
        goes_on = take({most_us, surprise}, most_us) || goes_on;
        names.insert(surprise);
      }
      goes_on = goes_on || (reason.is_unheard &&
                            take(cover_by_mishap(mishaps_, covered_us, reason.concerned), most_us));
    }
    if (!goes_on) {
      break;
    }
  }
  const bool explained = covered_us >= partition.to_us;
  if (explained && names.empty()) {
    return;
  }
  std::string all;
  for (const std::string& name : names) {
    all += (all.empty() ? "" : "; ") + name;
  }
  into.add(
      {"partition", partition.from_us, partition.to_us, std::nullopt,
       "split for " + in_milliseconds(partition.length_us()) + ", " +
           in_milliseconds(bounds.repair_us) + " are allowed" +
           (explained ? "" : "; explained until " + std::to_string(covered_us) + " us: " + all),
       explained ? all : ""});
}

void PartitionJudge::collect(int64_t now_us, std::vector<Finding>& findings) {
  find_reason(now_us);
  FindingList late = findings_;
  for (const Partition& partition : waiting_) {
    Partition until_now = partition;
    if (open_ && &partition == &waiting_.back()) {
      until_now.to_us = now_us;
    }
    if (until_now.length_us() > bounds_.repair_us) {
      judge(until_now, late);
    }
  }
  late.append_to(findings);
}

}  // namespace erps::sim
