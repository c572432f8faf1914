// All states that were reached, in the order in which they were found, each with the one that it
// was found from. Two states are the same only when all their words are: there are no collisions to
// reckon with.
//
// Threading: one thread. Errors: std::bad_alloc.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace erps::sim::explore {

using StateIndex = uint32_t;
inline constexpr StateIndex kNoState = ~StateIndex{0};

class StateStore {
 public:
  explicit StateStore(size_t words);

  struct Inserted {
    StateIndex index;
    bool is_new;
  };
  Inserted insert(const uint32_t* words, StateIndex from);
  // kNoState for a state that was not reached.
  StateIndex find(const uint32_t* words) const;

  const uint32_t* at(StateIndex index) const {
    return &chunks_[index >> kChunkBits][(index & kChunkMask) * record_words_];
  }
  StateIndex from(StateIndex index) const { return at(index)[words_]; }
  size_t size() const { return size_; }
  // No more fit.
  bool is_full() const { return size_ == kNoState; }
  size_t bytes() const;
  // What the next growth takes at most.
  size_t bytes_to_grow() const;

 private:
  static constexpr size_t kChunkBits = 16;
  static constexpr size_t kChunkMask = (size_t{1} << kChunkBits) - 1;

  size_t place_of(const uint32_t* words) const;
  uint64_t hash(const uint32_t* words) const;
  void grow();

  size_t words_;
  size_t record_words_;
  size_t size_ = 0;
  std::vector<std::unique_ptr<uint32_t[]>> chunks_;
  std::vector<StateIndex> slots_;
};

}  // namespace erps::sim::explore
