// The bytes of one fuzz input, taken from the front. Behind the end everything reads as zero, so
// that a decoder needs no error path.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace erps::fuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool empty() const { return size_ == 0; }

  uint8_t byte() {
    uint8_t value = 0;
    take(&value, 1);
    return value;
  }
  uint16_t half() {
    uint16_t value = 0;
    take(&value, sizeof value);
    return value;
  }
  uint32_t word() {
    uint32_t value = 0;
    take(&value, sizeof value);
    return value;
  }
  // `count` bytes, fewer only when the input ends.
  std::vector<uint8_t> bytes(size_t count) {
    std::vector<uint8_t> taken(std::min(count, size_));
    take(taken.data(), taken.size());
    return taken;
  }

 private:
  void take(void* to, size_t count) {
    count = std::min(count, size_);
    if (count != 0) {
      std::memcpy(to, data_, count);
      data_ += count;
      size_ -= count;
    }
  }

  const uint8_t* data_;
  size_t size_;
};

}  // namespace erps::fuzz
