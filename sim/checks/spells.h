// When something held, and for how long.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace erps::sim {

struct Spell {
  int64_t from_us = 0;
  int64_t to_us = 0;

  int64_t length_us() const { return to_us - from_us; }
};

class Spells {
 public:
  void set(int64_t time_us, bool holds) {
    if (holds && !open_) {
      spells_.push_back({time_us, time_us});
    } else if (!holds && open_) {
      spells_.back().to_us = time_us;
    }
    open_ = holds;
  }

  // All until now, the one that still lasts included, oldest first.
  std::vector<Spell> until(int64_t now_us) const {
    std::vector<Spell> spells = spells_;
    if (open_) {
      spells.back().to_us = now_us;
    }
    return spells;
  }
  bool holds() const { return open_; }

  // The longest that ended after `since_us`, or lasts; 0 if there was none.
  int64_t longest_us(int64_t since_us, int64_t now_us) const {
    int64_t longest = 0;
    for (const Spell& spell : until(now_us)) {
      if (spell.to_us > since_us) {
        longest = std::max(longest, spell.length_us());
      }
    }
    return longest;
  }

 private:
  std::vector<Spell> spells_;
  bool open_ = false;
};

}  // namespace erps::sim
