// Spans of time in which this machine stood still or did not send, and how much of another span
// they cover. Moments are CLOCK_MONOTONIC in nanoseconds.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

namespace erps::lab {

struct Span {
  int64_t from_ns = 0;
  int64_t to_ns = 0;

  int64_t length_ns() const { return to_ns - from_ns; }
};

// Pauses that are shorter are not noted: every thread is woken a little late.
inline constexpr int64_t kShortestPauseNs = 250'000;

// The length of the longest one; 0 when there is none.
int64_t longest_ns(const std::vector<Span>& spans);

// The same time in the order of time, with no overlap.
std::vector<Span> merged(std::vector<Span> spans);

// How much of `span` is covered by `pauses`, which are merged.
int64_t covered_ns(const Span& span, const std::vector<Span>& pauses);

// Notes pauses as they happen. Threading: any.
class PauseLog {
 public:
  // Does nothing when it is shorter than kShortestPauseNs.
  void add(const Span& pause);
  // What was added since the last call.
  std::vector<Span> take();

 private:
  std::mutex mutex_;
  std::vector<Span> pauses_;
};

}  // namespace erps::lab
