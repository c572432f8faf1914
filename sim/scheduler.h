// Virtual time: a queue of alarms, the earliest first, alarms of one instant in the order in which
// they were set.
//
// Threading: one thread. Errors: none. Logs nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace erps::sim {

// Something that can be woken at a time. It must outlive the alarms set on it.
class Alarm {
 public:
  // token: what the alarm was set with.
  virtual void on_alarm(uint64_t token) = 0;

 protected:
  ~Alarm() = default;
};

class Scheduler {
 public:
  int64_t now_us() const { return now_us_; }

  void set(int64_t time_us, Alarm& alarm, uint64_t token);
  void set_after(int64_t delay_us, Alarm& alarm, uint64_t token) {
    set(now_us_ + delay_us, alarm, token);
  }

  bool empty() const { return heap_.empty(); }
  int64_t next_us() const { return heap_.front().time_us; }

  // Moves to the earliest alarm and lets it ring.
  void ring_next();
  // Moves on with nothing to do on the way.
  void skip_to(int64_t time_us) { now_us_ = time_us; }

 private:
  struct Entry {
    int64_t time_us;
    uint64_t order;
    Alarm* alarm;
    uint64_t token;

    bool before(const Entry& other) const {
      return time_us != other.time_us ? time_us < other.time_us : order < other.order;
    }
  };

  void sift_down(size_t hole, const Entry& entry);

  std::vector<Entry> heap_;
  int64_t now_us_ = 0;
  uint64_t next_order_ = 0;
};

}  // namespace erps::sim
