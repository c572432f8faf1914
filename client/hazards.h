// What an operator has to know before asking for a setting that the module accepts silently.
#pragma once

namespace erps::client {

inline constexpr const char* kNonRevertiveHazard =
    "non-revertive: the ring does not return to idle by itself, and after a failed link has "
    "returned both of its ends keep repeating R-APS(SF); if two repeats cross on the ring, both "
    "ends unblock and the ring is a loop until an operator acts";

inline constexpr const char* kShortWtrHazard =
    "WTR below 5000 ms: the guard time lasts up to 1.5 s on a one-second tick, and a node still in "
    "it ignores the first R-APS(NR,RB), so the ring may be split until the repeat 5 s later";

inline constexpr const char* kClearWithFailedLinkHazard =
    "a ring link is down: after the clear its ends stay in forced switch while the RPL is blocked "
    "again, so the ring is split until the link is back";

inline constexpr const char* kOwnerSwitchHazard =
    "this node blocks its port before its R-APS message leaves, and a major ring sends through "
    "forwarding ports only: the ring may be split until the repeat, up to 6 s";

inline constexpr const char* kWatchingNeedsMarking =
    "the other interconnection node of this sub-ring must have the other interconnection role: two "
    "watching nodes build a loop after a single cut, two marking nodes do not repair a split";

inline constexpr const char* kSharedMajorRingHazard =
    "each sub-ring joins the parts of a split major ring by itself: when two links of the major "
    "ring fail, both may do so, a loop until one link is back, or neither";

}  // namespace erps::client
