#include "sim/explore/state_store.h"

#include <algorithm>

namespace erps::sim::explore {

namespace {
constexpr size_t kFirstSlots = size_t{1} << 16U;
}

StateStore::StateStore(size_t words)
    : words_(words), record_words_(words + 1), slots_(kFirstSlots, kNoState) {}

uint64_t StateStore::hash(const uint32_t* words) const {
  uint64_t hash = 0x9E3779B97F4A7C15U;
  for (size_t i = 0; i < words_; ++i) {
    hash = (hash ^ words[i]) * 0xD6E8FEB86659FD93U;
    hash ^= hash >> 32U;
  }
  return hash;
}

size_t StateStore::place_of(const uint32_t* words) const {
  const size_t mask = slots_.size() - 1;
  size_t place = hash(words) & mask;
  while (slots_[place] != kNoState && !std::equal(words, words + words_, at(slots_[place]))) {
    place = (place + 1) & mask;
  }
  return place;
}

StateIndex StateStore::find(const uint32_t* words) const {
  return slots_[place_of(words)];
}

StateStore::Inserted StateStore::insert(const uint32_t* words, StateIndex from) {
  size_t place = place_of(words);
  if (slots_[place] != kNoState) {
    return {slots_[place], false};
  }
  if (10 * (size_ + 1) > 7 * slots_.size()) {
    grow();
    place = place_of(words);
  }
  if (size_ >> kChunkBits == chunks_.size()) {
    chunks_.push_back(std::make_unique_for_overwrite<uint32_t[]>(record_words_ << kChunkBits));
  }
  const auto index = static_cast<StateIndex>(size_++);
  uint32_t* record = &chunks_[index >> kChunkBits][(index & kChunkMask) * record_words_];
  std::copy_n(words, words_, record);
  record[words_] = from;
  slots_[place] = index;
  return {index, true};
}

void StateStore::grow() {
  const size_t slots = 2 * slots_.size();
  slots_ = {};  // the old one first: both would be most of the memory
  slots_.assign(slots, kNoState);
  for (size_t index = 0; index < size_; ++index) {
    slots_[place_of(at(static_cast<StateIndex>(index)))] = static_cast<StateIndex>(index);
  }
}

size_t StateStore::bytes() const {
  return slots_.size() * sizeof(StateIndex) +
         chunks_.size() * (record_words_ << kChunkBits) * sizeof(uint32_t);
}

size_t StateStore::bytes_to_grow() const {
  const bool table_grows = 10 * (size_ + (size_t{1} << kChunkBits)) > 7 * slots_.size();
  return (table_grows ? slots_.size() * sizeof(StateIndex) : 0) +
         (record_words_ << kChunkBits) * sizeof(uint32_t);
}

}  // namespace erps::sim::explore
