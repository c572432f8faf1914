#include "sim/explore/node_memory.h"

#include <algorithm>

namespace erps::sim::explore {

void NodeMemory::clear() {
  bytes_.fill(kFree);
  spans_.fill({});
  count_ = 0;
}

void* NodeMemory::allocate(size_t bytes) {
  constexpr size_t kAlignment = alignof(std::max_align_t);
  const size_t needed = std::max(kAlignment, (bytes + kAlignment - 1) / kAlignment * kAlignment);
  if (count_ == kMostSpans || needed > kBytes) {
    return nullptr;
  }
  uint32_t begin = 0;
  size_t place = 0;
  while (place < count_ && spans_[place].begin - begin < needed) {
    begin = spans_[place++].end;
  }
  if (kBytes - begin < needed) {
    return nullptr;
  }
  std::copy_backward(spans_.begin() + static_cast<std::ptrdiff_t>(place),
                     spans_.begin() + static_cast<std::ptrdiff_t>(count_),
                     spans_.begin() + static_cast<std::ptrdiff_t>(count_) + 1);
  spans_[place] = {begin, begin + static_cast<uint32_t>(needed)};
  ++count_;
  return &bytes_[begin];
}

bool NodeMemory::release(const void* memory) {
  if (memory == nullptr) {
    return true;
  }
  const auto end = spans_.begin() + static_cast<std::ptrdiff_t>(count_);
  const auto found = std::find_if(spans_.begin(), end,
                                  [&](const Span& span) { return &bytes_[span.begin] == memory; });
  if (found == end) {
    return false;
  }
  std::fill(bytes_.begin() + found->begin, bytes_.begin() + found->end, kFree);
  std::copy(found + 1, end, found);
  spans_[--count_] = {};
  return true;
}

bool NodeMemory::free_memory_is_untouched() const {
  uint32_t begin = 0;
  for (size_t place = 0; place <= count_; ++place) {
    const uint32_t end = place < count_ ? spans_[place].begin : static_cast<uint32_t>(kBytes);
    if (!std::all_of(bytes_.begin() + begin, bytes_.begin() + end,
                     [](uint8_t byte) { return byte == kFree; })) {
      return false;
    }
    begin = place < count_ ? spans_[place].end : begin;
  }
  return true;
}

}  // namespace erps::sim::explore
