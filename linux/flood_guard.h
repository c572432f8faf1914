// Which received frames are let in when a neighbour sends more than any node of a ring ever would.
//
// R-APS carries no proof of who sent it, and every frame that is let in costs this node and, being
// forwarded, the whole ring. A node sends a few frames at a change and one every five seconds
// behind it, so budgets that no honest node can exhaust are still small:
//
// - At each port a source address has one of its own, for the node ID that is the address or that
// it
//   was first heard with, so that invented nodes cost it nothing. A source that has kept to it for
//   a while is let in whatever the others do.
// - A source that was let in like that at one port is at another one, too: no node is heard through
//   the blocked port of the RPL before the failure that it tells of.
// - Sources that no port knows have a budget, too. The first frames of such a one are let in.
// - What is more, and what comes from a source that is new or has just sent too much, comes out of
// a
//   budget that all sources of the port share.
// - When that is used up, what differs from a source's flood still passes, so that a neighbour
//   that repeats itself without end is heard when it has something else to say.
// - Sources that were never heard before cannot push out those that were.
//
// Threading: the thread that receives. Errors: none. Times are monotonic nanoseconds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

#include "linux/raps_sender.h"
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
  static constexpr int kFirstFrames = 8;
  // How long a source keeps to its budget before it is let in whatever the others do.
  static constexpr int64_t kProvenNs = 1'000'000'000;
  // A source that was silent for so long may be forgotten for another one.
  static constexpr int64_t kForgettableNs = 60'000'000'000;

  // Whether the frame that came in at the port, from its destination address on, is let in.
  bool admits(uint32_t port, const uint8_t* frame, size_t length, int64_t now_ns);

  // The node IDs with which the source is let in at the port whatever the others do; none, if it is
  // not.
  std::vector<MacAddress> trusted_nodes(uint32_t port, const MacAddress& source,
                                        int64_t now_ns) const;

 private:
  struct Source {
    TokenBucket own;
    std::optional<MacAddress> node;
    uint64_t flood = 0;  // what it repeats, as a hash of the frame behind the addresses
    int64_t kept_to_it_since_ns = 0;
    int64_t heard_ns = 0;
    int first_frames = kFirstFrames;  // those to come, of a source that is new
  };

  using Sources = std::unordered_map<uint64_t, Source>;  // by address

  struct Port {
    Port() { sources.reserve(kSources); }

    Sources sources;
    TokenBucket all{kOfAll, 0};
    TokenBucket besides_floods{kBesidesFloods, 0};
    TokenBucket strangers{kOfStrangers, 0};
  };

  // What is looked at of a frame.
  struct Look {
    MacAddress address;
    std::optional<MacAddress> node;
    uint64_t content;  // a hash of it
    int64_t now_ns;
  };

  static bool is_proven(const Source& source, int64_t now_ns);
  static bool make_room(Sources& sources, int64_t now_ns);
  static bool admits_known(Port& port, Source& source, const Look& frame);
  static bool is_own(const Source& source, const Look& frame);
  bool admits_new(Port& port, const Look& frame);
  const Source* find_proven(const Look& frame) const;

  std::map<uint32_t, Port> ports_;
};

}  // namespace erps::linux_platform
