// Which received frames are let in when a neighbour sends more than any node of a ring ever would.
//
// R-APS carries no proof of who sent it, and every frame that is let in costs this node and, being
// forwarded, the whole ring. A node sends a few frames at a change and one every five seconds
// behind it, so a budget that no honest node can exhaust is still small. Each source address has
// one of its own; of a source that exhausts it, what differs from its flood still passes, so that a
// neighbour that repeats itself without end is heard when it has something else to say. Sources
// that were never heard before share a budget and cannot push out those that were.
//
// Threading: the thread that receives. Errors: none. Times are monotonic nanoseconds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

namespace erps::linux_platform {

class FloodGuard {
 public:
  struct Budget {
    int64_t burst = 0;       // frames at once
    int64_t per_second = 0;  // and what comes back
  };
  // A ring's source sends about three frames a change of each of its rings.
  static constexpr Budget kOfSource{500, 500};
  static constexpr Budget kBesidesFlood{64, 100};
  static constexpr Budget kOfStrangers{256, 50};
  static constexpr size_t kSources = 512;  // twice a ring's nodes
  // A source that was silent for so long may be forgotten for another one.
  static constexpr int64_t kForgettableNs = 60'000'000'000;

  FloodGuard();

  // Whether the frame, from its destination address on, is let in.
  bool admits(const uint8_t* frame, size_t length, int64_t now_ns);

 private:
  class Bucket {
   public:
    explicit Bucket(Budget budget, int64_t now_ns)
        : budget_(budget), level_(budget.burst * kUnit), filled_ns_(now_ns) {}
    bool take(int64_t now_ns);

   private:
    // A frame in the bucket's own unit, in which a nanosecond brings back per_second of them.
    static constexpr int64_t kUnit = 1'000'000'000;
    Budget budget_;
    int64_t level_;
    int64_t filled_ns_;
  };
  struct Source {
    Bucket frames;
    Bucket besides_flood;
    uint64_t flood = 0;  // what it repeats, as a hash of the frame behind the addresses
    int64_t heard_ns = 0;
  };

  bool admits_stranger(uint64_t address, int64_t now_ns);
  bool make_room(int64_t now_ns);

  std::unordered_map<uint64_t, Source> sources_;
  Bucket strangers_;
};

}  // namespace erps::linux_platform
