// What keeps R-APS messages from being heard at once, so that their repetition has to do it: each
// such mishap, when it happens.
//
// Threading: the simulation's. Errors: none.
#pragma once

#include <cstdint>
#include <deque>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "sim/checks/ring_watch.h"

namespace erps::sim {

struct Mishap {
  int64_t time_us = 0;
  const char* surprise = "";  // its name
  NodeIndex node = 0;         // where it happened
  int64_t lasts_us = 0;       // for how long at most it explains that something does not happen
};

class Mishaps final : public Observer, public StepListener {
 public:
  // The watch observes before this does. repeat_us: how long a repetition takes at most to reach
  // everybody.
  Mishaps(Simulation& simulation, const RingWatch& watch, int64_t repeat_us);

  void on_record(const Record& record) override;
  void on_reception(int64_t time_us, NodeIndex node, uint32_t port,
                    std::span<const uint8_t> bytes) override;
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override;
  void on_step(const Step& step) override;

  // Oldest first by the time when they became known; those of before since_us may be gone.
  const std::deque<Mishap>& all() const { return mishaps_; }
  void forget_before(int64_t time_us);
  // Whether a call to its platform failed at the node since then: what it holds or sends may
  // differ.
  bool call_failed(NodeIndex node, int64_t since_us) const { return failed_us_[node] >= since_us; }
  // The surprises since then.
  std::set<std::string> names_since(int64_t time_us) const;

 private:
  // What a node repeats about a ring.
  struct Said {
    uint32_t ring = 0;
    uint32_t words = 0;  // request and RB
    int64_t since_us = 0;
    bool repeated = false;
  };
  // The last that a node took in from another one.
  struct Heard {
    uint32_t ring = 0;
    uint32_t from = 0;
    uint32_t words = 0;
    int64_t at_us = 0;

    friend bool operator<(const Heard& one, const Heard& other) {
      return one.ring != other.ring ? one.ring < other.ring : one.from < other.from;
    }
  };
  struct Member {
    std::vector<Said> said;
    std::vector<Heard> heard;            // in their order
    std::vector<uint32_t> sent_through;  // ports, own messages of the present event
    bool running = false;
    bool dead = false;          // powered, and without its module
    int64_t held_back_us = -1;  // when a message of its own was, last
  };

  void on_received(const Record& record);
  void on_lost(const Record& record);
  void on_connection(const Record& record);
  void on_other_way(const Step& step);
  // What the listener took in from the speaker last; null when it was nothing.
  const Heard* last_heard(NodeIndex listener, NodeIndex speaker, uint32_t ring) const;
  // Whether the listener is yet to hear what the speaker repeats about the ring.
  bool has_not_heard(NodeIndex listener, NodeIndex speaker, const RingSnapshot& ring) const;
  bool has_to_hear_again(int64_t time_us, NodeIndex listener, NodeIndex speaker,
                         const RingSnapshot& ring) const;
  void add_who_did_not_hear(int64_t time_us, NodeIndex speaker, const RingSnapshot& ring);
  void add(const Record& record, const char* surprise) { add(record, surprise, repeat_us_); }
  void add(const Record& record, const char* surprise, int64_t lasts_us);
  bool waits_to_hear(NodeIndex node, const RingSnapshot& ring) const;
  void on_ended_request(const Step& step);
  void add_who_has_to_hear_twice(const Step& step);
  void on_new_message(const Step& step);
  int64_t wait_us(NodeIndex node, uint32_t local_priority) const;

  Simulation& simulation_;
  const Topology& topology_;
  const RingWatch& watch_;
  const int64_t repeat_us_;
  std::vector<Member> members_;
  std::vector<int64_t> failed_us_;     // by node, when a call to its platform last failed
  std::vector<int64_t> came_late_us_;  // by node, when it last came to a repetition too late
  int64_t connected_us_ = -1;          // when a link or a node last came
  std::vector<bool> strands_;  // that carry frames, by 2 * link + end that they lead away from
  std::deque<Mishap> mishaps_;
  std::vector<RingSnapshot> rings_;  // that are looked at
};

}  // namespace erps::sim
