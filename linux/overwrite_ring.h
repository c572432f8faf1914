// A bounded ring of plain records that any thread may write without ever waiting: the newest
// overwrite the oldest.
//
// Threading: push() from any number of threads, read() from any number of threads, no locks. Each
// slot carries a version that is odd while it is being written; the payload is kept in atomic words
// so that a reader that loses the race sees a version that changed, never a torn record.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace erps::linux_platform {

template <typename T, size_t kCapacity>
class OverwriteRing {
  static_assert(std::is_trivially_copyable_v<T>);
  static_assert((kCapacity & (kCapacity - 1)) == 0, "a power of two");

 public:
  enum class Read { kDone, kNotYet, kOverwritten };

  // Stores a record and returns its sequence number. A record is given up when a writer that was
  // a whole lap ahead is still busy with the same slot.
  uint64_t push(const T& value) {
    const uint64_t sequence = next_.fetch_add(1, std::memory_order_relaxed);
    Slot& slot = slots_[sequence & (kCapacity - 1)];
    uint64_t seen = slot.version.load(std::memory_order_relaxed);
    if ((seen & 1) != 0 || seen > 2 * sequence ||
        !slot.version.compare_exchange_strong(seen, 2 * sequence + 1, std::memory_order_acquire)) {
      return sequence;
    }
    std::array<uint64_t, kWords> words{};
    std::memcpy(words.data(), &value, sizeof value);
    for (size_t i = 0; i < kWords; ++i) {
      slot.words[i].store(words[i], std::memory_order_release);
    }
    slot.version.store(2 * sequence + 2, std::memory_order_release);
    return sequence;
  }

  Read read(uint64_t sequence, T& value) const {
    const Slot& slot = slots_[sequence & (kCapacity - 1)];
    const uint64_t wanted = 2 * sequence + 2;
    const uint64_t before = slot.version.load(std::memory_order_acquire);
    if (before != wanted) {
      return before > wanted ? Read::kOverwritten : Read::kNotYet;
    }
    std::array<uint64_t, kWords> words{};
    for (size_t i = 0; i < kWords; ++i) {
      words[i] = slot.words[i].load(std::memory_order_acquire);
    }
    if (slot.version.load(std::memory_order_relaxed) != before) {
      return Read::kOverwritten;
    }
    std::memcpy(&value, words.data(), sizeof value);
    return Read::kDone;
  }

  // Sequence number that the next record will get.
  uint64_t next() const { return next_.load(std::memory_order_acquire); }

  static constexpr size_t capacity() { return kCapacity; }

 private:
  static constexpr size_t kWords = (sizeof(T) + sizeof(uint64_t) - 1) / sizeof(uint64_t);

  struct Slot {
    std::atomic<uint64_t> version{0};
    std::array<std::atomic<uint64_t>, kWords> words{};
  };

  std::atomic<uint64_t> next_{0};
  std::array<Slot, kCapacity> slots_{};
};

}  // namespace erps::linux_platform
