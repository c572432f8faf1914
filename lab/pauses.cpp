#include "lab/pauses.h"

#include <algorithm>
#include <utility>

namespace erps::lab {

int64_t longest_ns(const std::vector<Span>& spans) {
  int64_t longest = 0;
  for (const Span& span : spans) {
    longest = std::max(longest, span.length_ns());
  }
  return longest;
}

std::vector<Span> merged(std::vector<Span> spans) {
  std::sort(spans.begin(), spans.end(),
            [](const Span& a, const Span& b) { return a.from_ns < b.from_ns; });
  std::vector<Span> whole;
  for (const Span& span : spans) {
    if (!whole.empty() && span.from_ns <= whole.back().to_ns) {
      whole.back().to_ns = std::max(whole.back().to_ns, span.to_ns);
    } else {
      whole.push_back(span);
    }
  }
  return whole;
}

int64_t covered_ns(const Span& span, const std::vector<Span>& pauses) {
  int64_t covered = 0;
  auto pause = std::lower_bound(pauses.begin(), pauses.end(), span.from_ns,
                                [](const Span& a, int64_t from_ns) { return a.to_ns <= from_ns; });
  for (; pause != pauses.end() && pause->from_ns < span.to_ns; ++pause) {
    covered += std::min(pause->to_ns, span.to_ns) - std::max(pause->from_ns, span.from_ns);
  }
  return covered;
}

void PauseLog::add(const Span& pause) {
  if (pause.length_ns() < kShortestPauseNs) {
    return;
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  pauses_.push_back(pause);
}

std::vector<Span> PauseLog::take() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return std::exchange(pauses_, {});
}

}  // namespace erps::lab
