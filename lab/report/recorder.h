// Watches a simulation and keeps what the report shows of it.
//
//   lab::Recorder recorder(topology);
//   simulation.observe(recorder);  // before the first run_
//
// It is bounded: of each kind of thing the first so many are kept, and the recording says since
// when some are missing. The oldest are kept because a run is read from its beginning, and because
// what repeats is what makes a run large.
//
// Threading: the simulation's. Errors: none.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "lab/report/recording.h"
#include "sim/module_records.h"
#include "sim/observer.h"

namespace erps::lab {

struct RecorderLimits {
  size_t changes = 60'000;
  size_t marks = 40'000;
  size_t timers = 20'000;
  size_t messages = 60'000;  // that say something new
  size_t repeats = 40'000;   // and those that do not
};

class Recorder final : public sim::Observer {
 public:
  // The network of the simulation, with the same indices.
  explicit Recorder(const Topology& topology, const RecorderLimits& limits = {});

  void on_record(const sim::Record& record) override;
  void on_forwarding(int64_t time_us, const sim::Forwarding& forwarding) override;

  const Recording& recording() const { return recording_; }

 private:
  static constexpr uint32_t kNothing = 0xFFFFFFFF;
  static constexpr uint32_t kUnrecorded = 0xFFFFFFFE;  // a message beyond the limit

  // A message that has left and not arrived.
  struct Flight {
    uint32_t message = 0;  // or kUnrecorded
    uint32_t text = 0;
    int64_t from_us = 0;
  };
  struct Strand {
    std::deque<Flight> flights;
    std::optional<Flight> arrived;          // the last one
    std::map<uint32_t, int64_t> last_sent;  // by text
  };

  struct RunningTimer {
    size_t run = 0;  // index into Recording::timers
    int64_t due_us = 0;
  };

  uint32_t end_at(uint32_t node, uint32_t port) const;
  uint32_t place_of(uint32_t ring, uint32_t node) const;
  uint32_t text_of(const sim::Record& record);
  bool changes_to(ChangeKind kind, uint32_t subject, uint32_t value);
  void change(int64_t time_us, ChangeKind kind, uint32_t subject, uint32_t value);
  void mark(int64_t time_us, MarkKind kind, uint32_t subject, uint32_t value);
  void set_power(const sim::Record& record, NodePower power);
  void end_module(const sim::Record& record);
  void set_timer(const sim::Record& record);
  void end_timer(const RunningTimer& running, int64_t time_us);
  void command(const sim::Record& record);
  void send(const sim::Record& record);
  void receive(const sim::Record& record);
  void lose(const sim::Record& record);
  Flight depart(int64_t time_us, uint32_t strand, uint32_t text);
  void arrive(const Flight& flight, int64_t time_us, Fate fate);

  const RecorderLimits limits_;
  Recording recording_;
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> ends_;    // by node and port
  std::vector<bool> in_ring_;                                 // by link
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> places_;  // by ring ID and node
  std::map<std::pair<ChangeKind, uint32_t>, uint32_t> present_;
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> texts_;              // by the words of a record
  std::map<std::pair<uint32_t, sim::TimerKind>, RunningTimer> running_;  // by place
  std::vector<Strand> strands_;
  size_t repeats_ = 0;
};

}  // namespace erps::lab
