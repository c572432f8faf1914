// The management wire format: requests and replies on the System V message queue, command codes,
// result codes. Shared with every client.
//
// Request text (everything behind mtype), numbers in machine order unless said otherwise:
//
//   byte  0      1..3      4..7      8        12       16       20       24       28
//        +------+---------+---------+--------+--------+--------+--------+--------+--------+
//        | cmd  | unused  | unused  | arg0   | arg1   | arg2   | arg3   | arg4   | arg5   |
//        +------+---------+---------+--------+--------+--------+--------+--------+--------+
//
// A command that carries a MAC address has its six bytes at text byte 8 or 12 instead.
//
// Reply text:
//
//   byte  0      1..3      4..7         8          9 ..
//        +------+---------+------------+----------+------------------------+
//        | cmd  | unused  | data_len   | ret_code | data, data_len bytes   |
//        +------+---------+------------+----------+------------------------+
//
// A reply is data_len + 12 bytes long. Commands without data leave data_len and data as the last
// reply that had some left them: a client reads them only for the commands that return data.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

namespace erps::mgmt {

// Key of the management message queue.
inline constexpr key_t kQueueKey = 10552;

// Name of the event queue on which a client announces its request (class 3, type 4, payload: the
// request's message type).
inline constexpr const char* kEventQueueName = "/erps_event_queue";
inline constexpr uintptr_t kEventClass = 3;
inline constexpr uintptr_t kEventTypeConf = 4;

// Reply type = (request type & kReplyTypeMask) | kReplyTypeFlag.
inline constexpr long kReplyTypeMask = 0x7FFFFFFF;
inline constexpr long kReplyTypeFlag = 0x40000000;

inline constexpr size_t kTextCapacity = 1024;  // longest request text that is received, in bytes
inline constexpr size_t kArgumentCount = 6;
inline constexpr size_t kMacLength = 6;
inline constexpr size_t kReplyOverhead = 12;  // reply length beyond data_len

struct RequestText {
  uint8_t cmd;
  uint8_t unused[7];
  uint32_t arg[kArgumentCount];
};
static_assert(offsetof(RequestText, arg) == 8 && sizeof(RequestText) == 32);

struct ReplyText {
  uint8_t cmd;
  uint8_t unused[3];
  uint32_t data_len;
  uint8_t ret_code;
  uint8_t data[kTextCapacity - 9];
};
static_assert(offsetof(ReplyText, data_len) == 4);
static_assert(offsetof(ReplyText, ret_code) == 8);
static_assert(offsetof(ReplyText, data) == 9 && sizeof(ReplyText) == kTextCapacity);

// Where a MAC address argument starts in the request text.
inline constexpr size_t kMacAtArgument0 = 8;   // kCaptureRuleAdd
inline constexpr size_t kMacAtArgument1 = 12;  // kSetNodeId

enum Command : uint8_t {
  kSetEnable = 0,           // arg0 ring, arg1 1 on, 0 off
  kAddRing = 2,             // arg0 ring, arg1 port 0, arg2 port 1, arg3 VLAN, arg4 node role,
                            // arg5 ring role
  kGetRing = 3,             // arg0 ring; data: RingConfWord words
  kGetAnyRingEnabled = 4,   // data: one byte, 1 when a ring is enabled
  kDeleteRing = 5,          // arg0 ring
  kSetRingRole = 7,         // arg0 ring, arg1 ring role
  kSetRevertiveMode = 9,    // arg0 ring, arg1 0 revertive, 1 non-revertive
  kSetGuardTime = 13,       // arg0 ms; also sets the WTB time to it + 5000 ms
  kGetGuardTime = 14,       // data: ms, 4 bytes, most significant first
  kSetWtrTime = 15,         // arg0 ms
  kGetWtrTime = 16,         // data: whole minutes, 4 bytes, most significant first
  kSetHoldoffTime = 19,     // arg0 ms
  kGetHoldoffTime = 20,     // data: ms, 4 bytes, most significant first
  kManualSwitch = 21,       // arg0 ring, arg1 port
  kGetManualSwitch = 22,    // no operation
  kForcedSwitch = 23,       // arg0 ring, arg1 port
  kGetForcedSwitch = 24,    // no operation
  kClear = 25,              // arg0 ring
  kShowRingConf = 27,       // no operation
  kAttachSubRing = 30,      // arg0 major ring, arg1 sub-ring, arg2 sub-ring port, arg3 node role,
                            // arg4 interconnection role
  kModifyRingRole = 31,     // arg0 ring, arg1 ring role; ret_code is not set
  kSetNodeId = 32,          // arg0 ring, MAC address at kMacAtArgument1
  kSetPortState = 33,       // arg0 port, arg1 4 forwarding, 1 discarding
  kCaptureRuleAdd = 34,     // MAC address at kMacAtArgument0
  kCaptureRuleDelete = 35,  //
  kDebugSwitch = 36,        // arg0 value
  kNoReply = 37,            // accepted silently
};
inline constexpr uint8_t kCommandCount = 38;

// ret_code is the two's-complement negation of these, truncated to eight bits.
enum Result : uint32_t {
  kDone = 0,
  kRingRunning = 2,
  kNoSuchRing = 3,
  kRingRunningNoChange = 4,
  kVlanInUse = 9,
  kSamePorts = 11,
  kPortInUse = 12,
  kSameRingIds = 14,
  kNotThisMajorRing = 18,
  kNoMemory = 22,
  kNoSuchPort = 23,
  kNoMajorRing = 24,
  kSubRingRoleFixed = 25,
  kSubRingRoleNotSettable = 27,
  kCaptureFailed = 28,
};
inline constexpr uint8_t kUnknownCommand = 0xFF;  // ret_code of a command that does not exist

inline constexpr uint8_t ret_code_of(uint32_t result) {
  return static_cast<uint8_t>(0u - result);
}
static_assert(ret_code_of(kRingRunning) == 0xFE && ret_code_of(kNoSuchPort) == 0xE9);

// Data of kGetRing: 24 words of 32 bits, most significant byte first.
enum RingConfWord : uint32_t {
  kRingId = 0,
  kState = 1,         // node state: 0 init, 1 idle, 2 protection, 3 manual, 4 forced, 5 pending
  kTimerStart = 2,    // last start of WTR, WTB or guard, seconds since the epoch
  kHoldoffStart = 3,  // last start of the hold-off, seconds since the epoch
  kNodeRole = 4,      // 1 RPL owner, 2 RPL neighbour, 4 neither
  kPort0Id = 5,       // followed by its state (4 forwarding, 1 discarding) and link (1 up)
  kPort0State = 6,
  kPort0Link = 7,
  kPort1Id = 8,  // words 8 to 10 are not written for a sub-ring instance
  kPort1State = 9,
  kPort1Link = 10,
  kVlanId = 11,
  kRingRoleWord = 12,  // 0 major ring, 1 sub-ring, 2 sub-ring at an interconnection node
  kNonRevertive = 13,
  kSending = 14,  // 1 while R-APS messages are repeated
  kLocalPriority = 15,
  kInterconnectRing = 16,
  kEnabled = 17,
  kGuardRunning = 18,
  kHoldoffRunning = 19,
  kInterNodeRole = 20,
  kCurrentPriority = 21,
  kNodeId = 22,  // six bytes in transmission order at byte 88; bytes 94 and 95 undefined
};
inline constexpr size_t kRingConfBytes = 96;
inline constexpr size_t kRingConfNodeIdOffset = 88;

}  // namespace erps::mgmt
