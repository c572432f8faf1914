// The heap of a node under exploration: one block of memory at a fixed address, which is saved and
// put back as a whole, its own book-keeping included.
//
// What is free holds one byte value throughout, so that the same allocations leave the same bytes
// whatever was there before, and a write to freed memory shows.
//
// Threading: one thread. Plain data, copied as bytes. Errors: null without memory, false for what
// is not an allocation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace erps::sim::explore {

class NodeMemory {
 public:
  void clear();
  void* allocate(size_t bytes);
  [[nodiscard]] bool release(const void* memory);
  // Whether nothing was written to memory that is free.
  bool free_memory_is_untouched() const;

 private:
  static constexpr size_t kBytes = size_t{16} * 1024;
  static constexpr size_t kMostSpans = 64;
  static constexpr uint8_t kFree = 0xDD;

  // In the order of their places.
  struct Span {
    uint32_t begin = 0;
    uint32_t end = 0;
  };

  alignas(std::max_align_t) std::array<uint8_t, kBytes> bytes_;
  std::array<Span, kMostSpans> spans_;
  uint64_t count_;
};

}  // namespace erps::sim::explore
