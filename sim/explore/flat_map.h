// A map from 64-bit numbers to 32-bit ones, made for many look-ups: open addressing in one array.
// Nothing is ever removed. The key ~0 is not allowed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace erps::sim::explore {

class FlatMap {
 public:
  FlatMap() : slots_(kFirstSlots) {}

  // Null when the key is not there. Good until the next set().
  const uint32_t* find(uint64_t key) const {
    const Slot& slot = slots_[place_of(key)];
    return slot.key == key ? &slot.value : nullptr;
  }
  void set(uint64_t key, uint32_t value) {
    if (2 * (count_ + 1) > slots_.size()) {
      grow();
    }
    Slot& slot = slots_[place_of(key)];
    count_ += slot.key == kNone ? 1 : 0;
    slot = {key, value};
  }
  size_t size() const { return count_; }

 private:
  static constexpr size_t kFirstSlots = 1024;
  static constexpr uint64_t kNone = ~uint64_t{0};

  struct Slot {
    uint64_t key = kNone;
    uint32_t value = 0;
  };

  size_t place_of(uint64_t key) const {
    const size_t mask = slots_.size() - 1;
    uint64_t mixed = key * 0x9E3779B97F4A7C15U;
    mixed ^= mixed >> 32U;
    size_t place = mixed & mask;
    while (slots_[place].key != kNone && slots_[place].key != key) {
      place = (place + 1) & mask;
    }
    return place;
  }

  void grow() {
    std::vector<Slot> old(2 * slots_.size());
    old.swap(slots_);
    for (const Slot& slot : old) {
      if (slot.key != kNone) {
        slots_[place_of(slot.key)] = slot;
      }
    }
  }

  std::vector<Slot> slots_;
  size_t count_ = 0;
};

}  // namespace erps::sim::explore
