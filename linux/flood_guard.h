// Which received frames are let in when a neighbour sends more than any node of a ring ever would.
//
// R-APS carries no proof of who sent it, and every frame that is let in costs this node and, being
// forwarded, the whole ring. A node sends a few frames at a change and one every five seconds
// behind it, so budgets that no honest node can exhaust are still small:
//
// - Each source address has one of its own. A source that has kept to it for a while is let in
//   whatever the others do.
// - What is more than that, and what comes from a source that is new or has just sent too much,
//   comes out of a budget that all sources of the port share.
// - When that is used up, what differs from a source's flood still passes, so that a neighbour
//   that repeats itself without end is heard when it has something else to say.
// - Sources that were never heard before cannot push out those that were.
//
// Threading: the thread that receives. Errors: none. Times are monotonic nanoseconds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "linux/token_bucket.h"

namespace erps::linux_platform {

class FloodGuard {
 public:
  // A ring's source sends about three frames a change of each of its rings.
  static constexpr Budget kOfSource{64, 20};
  static constexpr Budget kOfAll{1000, 500};
  static constexpr Budget kBesidesFloods{64, 50};
  static constexpr Budget kOfStrangers{256, 50};
  static constexpr size_t kSources = 512;  // twice a ring's nodes
  // How long a source keeps to its budget before it is let in whatever the others do.
  static constexpr int64_t kProvenNs = 1'000'000'000;
  // A source that was silent for so long may be forgotten for another one.
  static constexpr int64_t kForgettableNs = 60'000'000'000;

  FloodGuard();

  // Whether the frame, from its destination address on, is let in.
  bool admits(const uint8_t* frame, size_t length, int64_t now_ns);

 private:
  struct Source {
    TokenBucket own;
    uint64_t flood = 0;  // what it repeats, as a hash of the frame behind the addresses
    int64_t kept_to_it_since_ns = 0;
    int64_t heard_ns = 0;
  };

  bool admits_source(Source& source, const uint8_t* frame, size_t length, int64_t now_ns);
  bool make_room(int64_t now_ns);

  std::unordered_map<uint64_t, Source> sources_;
  TokenBucket all_;
  TokenBucket besides_floods_;
  TokenBucket strangers_;
};

}  // namespace erps::linux_platform
