#include "sim/checks/partition_judge.h"

#include <algorithm>
#include <limits>
#include <set>

#include "sim/checks/graph.h"
#include "sim/checks/ring_model.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

// Steps are told when the node takes its next event, at the latest with a repetition.
constexpr int64_t kAllToldUs = 10 * kSecondUs;

// How often the reason of a partition is looked for.
constexpr int64_t kLookUs = 100 * kMillisecondUs;

std::string in_milliseconds(int64_t time_us) {
  return std::to_string(time_us / kMillisecondUs) + "." +
         std::to_string(time_us % kMillisecondUs / 100) + " ms";
}

}  // namespace

PartitionJudge::PartitionJudge(Simulation& simulation, const RingWatch& watch, const Bounds& bounds,
                               Mishaps& mishaps, ForcedSwitches& forced)
    : simulation_(simulation),
      watch_(watch),
      bounds_(bounds),
      mishaps_(mishaps),
      forced_(forced),
      dead_(simulation.topology().nodes.size()) {}

void PartitionJudge::on_record(const Record& record) {
  if (record.kind == RecordKind::kKilled || record.kind == RecordKind::kStopped) {
    dead_[record.node] = true;
  } else if (record.kind == RecordKind::kRunning || record.kind == RecordKind::kCrash) {
    dead_[record.node] = false;
  }
  if (open_ && record.time_us - looked_us_ >= kLookUs) {
    look(record.time_us);
  }
  // A node without its software is split off until that runs.
  if (record.kind == RecordKind::kRunning) {
    starts_us_.push_back(record.time_us);
  }
}

void PartitionJudge::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  const bool split = has_partition(forwarding);
  if (split && !open_) {
    waiting_.push_back({{time_us, time_us}, {}});
  } else if (!split && open_) {
    waiting_.back().to_us = time_us;
    if (waiting_.back().length_us() <= bounds_.repair_us) {
      waiting_.pop_back();
    }
  }
  if (split) {
    forwarding_ = forwarding;
    auto nodes = blocking(forwarding);
    const char* surprise = surprise_in(forwarding, nodes);
    waiting_.back().blocks.push_back({time_us, std::move(nodes), surprise});
    looked_us_ = time_us;
  }
  open_ = split;
  judge_old(time_us);
}

// The reason of a partition may change while it lasts.
void PartitionJudge::look(int64_t time_us) {
  const Blocks& last = waiting_.back().blocks.back();
  const char* surprise = surprise_in(forwarding_, last.nodes);
  if (surprise != last.surprise) {
    waiting_.back().blocks.push_back({time_us, last.nodes, surprise});
  }
  looked_us_ = time_us;
}

const char* PartitionJudge::surprise_in(const Forwarding& forwarding,
                                        const std::set<NodeIndex>& blocking) const {
  if (is_by_silence(forwarding) || is_by_untold_failure(forwarding, blocking)) {
    return surprise::kSilentFailure;
  }
  if (is_by_dead_modules(forwarding)) {
    return surprise::kNoModule;
  }
  const char* surprise = nullptr;
  for (const NodeIndex node : blocking) {
    if (owner_is_no_help(node, surprise)) {
      return surprise;
    }
  }
  return nullptr;
}

// Whether one end of a link repeats its failure, the other one sees none, and who blocks has not
// heard of it: the end that repeats cannot send towards it.
bool PartitionJudge::is_by_untold_failure(const Forwarding& forwarding,
                                          const std::set<NodeIndex>& blocking) const {
  constexpr uint8_t kSfMessage = 11;
  const auto is_untold = [&](const LinkEnd& end) {
    const auto& rings = watch_.rings(end.node);
    return std::any_of(rings.begin(), rings.end(), [&](const RingSnapshot& ring) {
      const bool failed_here =
          std::any_of(ring.ports.begin(), ring.ports.end(), [&](const PortSnapshot& port) {
            return port.present && port.port == end.port && !port.link_up;
          });
      return failed_here && ring.sending && ring.tx_request == kSfMessage &&
             std::any_of(blocking.begin(), blocking.end(), [&](NodeIndex node) {
               return mishaps_.has_not_heard(node, end.node, ring);
             });
    });
  };
  return std::any_of(forwarding.arcs.begin(), forwarding.arcs.end(), [&](const Arc& arc) {
    const auto& ends = simulation_.topology().links[arc.link].ends;
    return !arc.works && forwarding.powered[arc.from] && forwarding.powered[arc.to] &&
           ((watch_.link_is_up(ends[0]) && is_untold(ends[1])) ||
            (watch_.link_is_up(ends[1]) && is_untold(ends[0])));
  });
}

// Whether the partition would end if the dead nodes opened their ports.
bool PartitionJudge::is_by_dead_modules(const Forwarding& forwarding) const {
  Forwarding healed = forwarding;
  for (Arc& arc : healed.arcs) {
    const auto& ends = simulation_.topology().links[arc.link].ends;
    arc.forwards = arc.forwards ||
                   (arc.works && std::all_of(ends.begin(), ends.end(), [&](const LinkEnd& end) {
                      return dead_[end.node] || simulation_.port_forwards(end);
                    }));
  }
  return !has_partition(healed);
}

// A node that blocks in pending waits for the owner or for a lower node ID: which is dead, or
// repeats something else.
bool PartitionJudge::owner_is_no_help(NodeIndex blocking, const char*& surprise) const {
  constexpr uint32_t kOwner = 1;
  constexpr uint8_t kEventMessage = 14;
  for (const RingSnapshot& waiting : watch_.rings(blocking)) {
    if (waiting.state != static_cast<uint32_t>(RingState::kPending)) {
      continue;
    }
    for (NodeIndex node = 0; node < dead_.size(); ++node) {
      const auto& rings = simulation_.topology().nodes[node].rings;
      const bool is_owner = std::any_of(rings.begin(), rings.end(), [&](const RingConfig& ring) {
        return ring.ring == waiting.ring && ring.node_role == kOwner;
      });
      const RingSnapshot* other = watch_.ring(node, waiting.ring);
      if (is_owner && dead_[node]) {
        surprise = surprise::kNoModule;
        return true;
      }
      if (is_owner && other != nullptr && other->sending && other->tx_request == kEventMessage &&
          other->state == static_cast<uint32_t>(RingState::kIdle)) {
        surprise = surprise::kEventRepeated;
        return true;
      }
      // To whom it would hand over, if it heard the R-APS(NR).
      if (other != nullptr && other->sending && other->tx_request == kEventMessage &&
          other->state == waiting.state && other->local_node_id < waiting.local_node_id) {
        surprise = surprise::kEventRepeated;
        return true;
      }
    }
  }
  return false;
}

bool PartitionJudge::is_by_silence(const Forwarding& forwarding) const {
  Forwarding healed = forwarding;
  for (size_t i = 0; i < healed.arcs.size(); ++i) {
    Arc& arc = healed.arcs[i];
    const auto& ends = simulation_.topology().links[arc.link].ends;
    const bool seems_to_work = !arc.works && healed.powered[arc.from] && healed.powered[arc.to] &&
                               std::all_of(ends.begin(), ends.end(), [&](const LinkEnd& end) {
                                 return watch_.link_is_up(end) && simulation_.port_forwards(end);
                               });
    arc.works = arc.works || seems_to_work;
    arc.forwards = arc.forwards || seems_to_work;
  }
  return !has_partition(healed);
}

std::set<NodeIndex> PartitionJudge::blocking(const Forwarding& forwarding) const {
  std::set<NodeIndex> nodes;
  for (const Arc& arc : forwarding.arcs) {
    for (const LinkEnd& end : simulation_.topology().links[arc.link].ends) {
      if (arc.works && !arc.forwards && !simulation_.port_forwards(end)) {
        nodes.insert(end.node);
      }
    }
  }
  return nodes;
}

int64_t PartitionJudge::Partition::blocked_until_us(NodeIndex node, int64_t time_us) const {
  int64_t until_us = time_us;
  for (size_t i = 0; i < blocks.size(); ++i) {
    const int64_t end_us = i + 1 < blocks.size() ? blocks[i + 1].from_us : to_us;
    if (end_us <= time_us) {
      continue;
    }
    if (blocks[i].nodes.count(node) == 0) {
      break;
    }
    until_us = end_us;
  }
  return until_us;
}

void PartitionJudge::judge_old(int64_t now_us) {
  while (!waiting_.empty() && !(open_ && waiting_.size() == 1) &&
         waiting_.front().to_us + kAllToldUs < now_us) {
    judge(waiting_.front(), findings_);
    waiting_.erase(waiting_.begin());
  }
  const int64_t since_us = waiting_.empty() ? now_us : waiting_.front().from_us;
  mishaps_.forget_before(since_us - kAllToldUs);
  forced_.forget_before(since_us - kAllToldUs);
  std::erase_if(starts_us_, [=](int64_t start) { return start < since_us - kAllToldUs; });
}

void PartitionJudge::judge(const Partition& partition, FindingList& into) const {
  int64_t covered_us = partition.from_us + bounds_.repair_us;
  std::set<std::string> names;
  for (bool longer = true; longer && covered_us < partition.to_us;) {
    longer = false;
    // What was missed before the partition is still missed in it, until its repetition.
    const auto cover = [&](int64_t from_us, int64_t to_us, const char* name) {
      if (from_us <= covered_us && to_us > covered_us) {
        covered_us = to_us;
        if (name != nullptr) {
          names.insert(name);
        }
        longer = true;
      }
    };
    for (const int64_t start : starts_us_) {
      cover(start - bounds_.start_us, start + bounds_.repair_us, nullptr);
    }
    if (longer) {
      continue;
    }
    for (size_t i = 0; i < partition.blocks.size(); ++i) {
      const bool is_last = i + 1 == partition.blocks.size();
      if (partition.blocks[i].surprise != nullptr) {
        cover(partition.blocks[i].from_us,
              (is_last ? partition.to_us : partition.blocks[i + 1].from_us) + bounds_.repair_us,
              partition.blocks[i].surprise);
      }
    }
    for (const Mishap& mishap : mishaps_.all()) {
      int64_t until_us = mishap.time_us + mishap.lasts_us;
      if (mishap.surprise == surprise::kStalled) {
        until_us += bounds_.repair_us;
      } else if (mishap.surprise == surprise::kCameLate || mishap.surprise == surprise::kNoModule) {
        const int64_t blocked_us = partition.blocked_until_us(mishap.node, covered_us);
        until_us = blocked_us > covered_us ? std::min(until_us, blocked_us + bounds_.repair_us)
                                           : covered_us;
      }
      cover(mishap.time_us, until_us, mishap.surprise);
      if (longer) {
        break;
      }
    }
    for (const ForcedSwitches::Spell& spell : forced_.spells()) {
      constexpr int64_t kForEver = std::numeric_limits<int64_t>::max();
      cover(spell.from_us, spell.lasts ? kForEver : spell.to_us + bounds_.wait_to_block_us,
            spell.surprise);
    }
  }
  if (covered_us >= partition.to_us && names.empty()) {
    return;
  }
  std::string all;
  for (const std::string& name : names) {
    all += (all.empty() ? "" : "; ") + name;
  }
  const bool explained = covered_us >= partition.to_us;
  into.add(
      {"partition", partition.from_us, partition.to_us, std::nullopt,
       "split for " + in_milliseconds(partition.length_us()) + ", " +
           in_milliseconds(bounds_.repair_us) + " are allowed" +
           (explained ? "" : "; explained until " + std::to_string(covered_us) + " us: " + all),
       explained ? all : ""});
}

void PartitionJudge::collect(int64_t now_us, std::vector<Finding>& findings) {
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
