// The protocol task's event queue: event types, the message buffer of the protocol's own events,
// posting.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "platform/event_queue.h"

inline constexpr char kEventQueueName[] = "/erps_event_queue";
inline constexpr int kEventQueueDepth = 256;
inline constexpr uintptr_t kEventClass = 3;
inline constexpr int kWaitForEver = -1;

enum ERPS_EVENT_T : uintptr_t {
  ERPS_EVENT_T_LINK_CHANGE = 1,  // payload: link record of the platform
  ERPS_EVENT_T_PACKET = 2,       // payload: packet buffer of the platform
  ERPS_EVENT_T_TIMER = 3,        // payload: the expired timer; it may be freed memory by now
  ERPS_EVENT_T_CONF = 4,         // payload: System V message type of the waiting request
  ERPS_EVENT_T_RESERVED_5 = 5,
  ERPS_EVENT_T_RESERVED_6 = 6,
  ERPS_EVENT_T_TOPO_CHANGE = 7,  // payload: message buffer with the ring ID
  ERPS_EVENT_T_RESERVED_8 = 8,
  ERPS_EVENT_T_NOTIFY_SUB_RING = 10,  // payload: message buffer with ring ID and indication
};

// Payload of the protocol's own events. 536 bytes, 32-bit words.
struct ERPS_MSG_T {
  uint32_t word[134];

  uint32_t ring_id() const { return word[2]; }
  uint32_t value() const { return word[3]; }
};
static_assert(sizeof(ERPS_MSG_T) == 536);

// Offsets in the platform's payloads.
inline constexpr size_t kLinkRecordInterface = 4;  // u16
inline constexpr size_t kLinkRecordState = 6;      // u16
inline constexpr size_t kPacketHandle = 8;         // u32
inline constexpr size_t kPacketLength = 14;        // u16

// The receiver's handle, null while the protocol task does not run. Written under the timer lock,
// because the timer task posts on it.
extern void* erps_event_queue;

// The timer task's own handle. Opened and closed by it, never used for sending.
extern void* erps_timer_event_queue;

// A zero-filled message buffer, or null. Released with erps_pkt_buf_free.
ERPS_MSG_T* erps_msg_malloc();
void erps_pkt_buf_free(void* buffer);

// Posts an event of the protocol's own with a message buffer: the ring ID for both types, the value
// for ERPS_EVENT_T_NOTIFY_SUB_RING only. 0 sent, -1 no memory or refused by the queue.
int32_t erps_equeue_msg_send(uint32_t type, uint32_t ring_id, uint32_t value);
int32_t erps_send_cmd(uint32_t type, uint32_t ring_id, uint32_t value);
