// The names of what rings do by themselves and an operator would not expect; docs/operating.md
// tells what to do about each.
#pragma once

namespace erps::sim::surprise {

// Not the standard's sub-code: an interconnection node that only marks sets it in all that passes.
inline constexpr char kInterconnectionMark[] = "interconnection mark";
inline constexpr char kMarkedEvent[] = "interconnection mark on an Event";
// A message left only with its repetition, because the port was blocked when it was first sent.
inline constexpr char kHeldBack[] = "message held back until its repetition";
// A node in its guard time neither took nor passed on a message.
inline constexpr char kGuarded[] = "message missed in the guard time";
// A link or a node came while others waited for what had been said before, or a failure in a major
// ring gave the messages of its sub-ring another way.
inline constexpr char kCameLate[] = "rejoined part waits for a repetition";
// Where the end that it was sent to had not noticed yet that its link is back.
inline constexpr char kTooEarly[] = "message sent before the other end was up";
inline constexpr char kLost[] = "message lost on its way";
// One direction of a link is dead and no carrier tells, at one end or at both: the ring between the
// end that sees nothing and its next failure or block is not told.
inline constexpr char kSilentFailure[] = "link failed one way unseen";
// One hold-off a ring: another failure ends it, and the one that it was for is not told.
inline constexpr char kHoldoffEnded[] = "first of two failures in a hold-off";
// The expiry is under way already when the link comes back: the link is taken for down.
inline constexpr char kHoldoffLate[] = "hold-off that is over when the link comes back";
// The watching node's count of a failure was cleared, and who tells of it is known already.
inline constexpr char kUncounted[] = "failure of the major ring that is not counted";
// The marking node of one sub-ring marks what passes, and the watching node of another one of the
// same major ring takes it for sound.
inline constexpr char kForeignMark[] = "failure of the major ring behind another sub-ring's mark";
// The platform refused what the module asked of it.
inline constexpr char kCallFailed[] = "platform call failed";
// The module of a node is dead: its ports stay as they are, and it passes on no message.
inline constexpr char kNoModule[] = "node without its module";
// An interconnection node tells of its sub-ring, and its R-APS(NR) or R-APS(NR,RB) is not repeated.
inline constexpr char kEventRepeated[] = "Event repeated in place of what was said before";
// The first message only ends a state, or finds one that it does not end: R-APS(NR) takes a node to
// pending, and so does R-APS(MS) one that is in manual for it and has seen a link come back. The
// second one opens the port.
inline constexpr char kHeardTwice[] = "block that a message heard twice ends";
// WTR, WTB or a command outranked it, and it is needed now.
inline constexpr char kOutranked[] = "message refused while a local request stood";
inline constexpr char kManualCollision[] = "two manual switches that met";
// A forced switch keeps its port blocked whatever else fails, and beside another forced switch.
inline constexpr char kForcedSplit[] = "forced switch beside another block";
// The ends of a failed link stay in forced when the switch is cleared.
inline constexpr char kForcedLeft[] = "forced switch cleared while a link is down";
// A clear that finds no blocked port whose link is up says nothing, and the R-APS(FS) goes on.
inline constexpr char kForcedStuck[] = "forced switch cleared while its own link is down";
// ... nor does one that finds a manual switch so, and the R-APS(MS) goes on.
inline constexpr char kManualStuck[] = "manual switch cleared while its own link is down";
// A manual switch of a sub-ring is not ended by a failure of its major ring, and one that is given
// where a failed link is not told of does not yield to that.
inline constexpr char kManualSplit[] = "manual switch beside another block";
// A manual switch goes on in its node when a failure or a forced switch takes over, and outranks
// NR.
inline constexpr char kManualOutlives[] = "manual switch outlives what took over";
// The watching end of a sub-ring joins a split major ring by a manual switch of its own. A failure
// or a command there takes it away, and it is not told of the split again; nor is an end that
// starts when its major ring is split already.
inline constexpr char kSplitForgotten[] = "sub-ring that forgot the split of its major ring";
// ... and heeds the end of the split in manual only: where a switch of the sub-ring has met its
// own, or a clear has ended that, it goes on repeating R-APS(MS) with its port open, and who blocks
// opens on that.
inline constexpr char kSplitOutlived[] = "sub-ring that goes on joining a whole major ring";
// A clear in pending takes a neighbour to idle as it is; the owner blocks the RPL alone.
inline constexpr char kNeighbourOpen[] = "neighbour idle with its end of the RPL open";
// Only R-APS(NR) ends protection, manual and forced; NR,RB does not.
inline constexpr char kNoNr[] = "node that heard no R-APS(NR)";
// The owner came to pending without a blocked port of its own to clear: it waits for nothing.
inline constexpr char kNobodyWaits[] = "owner pending without WTR or WTB";
// A message flushes the port that it comes in through; what was learnt at the other one stays.
inline constexpr char kOnePortFlushed[] = "flush of one port only";
// The last node ID and blocked port reference again, or the DNF bit: no flush.
inline constexpr char kKnownSender[] = "message of a known sender flushes nothing";
// A port compares what it knew with the other one's: after R-APS(NR) both know nobody, and the next
// message flushes neither.
inline constexpr char kAlikeAtBothPorts[] = "news flushes nothing where both ports knew the same";
// The network forwards as it does since a node opened its port on it, and nothing asks for a flush
// before the ring comes home.
inline constexpr char kNrFlushesNothing[] = "R-APS(NR) opens a port and flushes nothing";
// The owner blocks the RPL at once, and what was learnt there stays.
inline constexpr char kClearFlushesNothing[] = "clear while pending flushes nothing";
// A node whose first ring port has failed neither blocks nor flushes the second one when it fails;
// the second one forwards from the instant of its return.
inline constexpr char kSecondFailure[] = "second failure at a node changes nothing";
// It was on its way, or waited in a stalled node, for longer than the guard time of who hears it.
inline constexpr char kOldMessage[] = "message heard when it is no longer true";
// The watching node has yet to hear that a failure is over, and its end of the sub-ring stays open,
// or takes the next failure for a cut on both sides.
inline constexpr char kOldCount[] = "failure of the major ring counted when it is over";
// Each watching node opens its end of a sub-ring when the major ring is cut into two: a loop
// through both sub-rings until the major ring has but one cut.
inline constexpr char kTwoRepair[] = "two sub-rings repair the same split";
// Both ends of a restored link repeat R-APS(SF), and each opens on the other's.
inline constexpr char kCrossedFailures[] = "R-APS(SF) of both ends of a restored link crossed";
// An interconnection node that starts: its end of the sub-ring is open and repeats R-APS(NR), and
// who blocks hands over to it. The loop lasts until the owner's WTR is over.
inline constexpr char kOpenEnd[] = "sub-ring's end starts without a block";
// Nothing but an operator takes it back to idle.
inline constexpr char kNonRevertive[] = "non-revertive ring stays as it is";
inline constexpr char kStalled[] = "node without its processor";

}  // namespace erps::sim::surprise
