#include "erps/runtime/event_loop.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "erps/fsm/commands.h"
#include "erps/fsm/dispatch.h"
#include "erps/fsm/priority.h"
#include "erps/fsm/requests.h"
#include "erps/link/link_state.h"
#include "erps/mgmt/server.h"
#include "erps/raps/interconnection.h"
#include "erps/raps/receive.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/event_queue.h"
#include "erps/runtime/log.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"

namespace {

// Closes the queue however the task ends, cancellation included.
struct QueueCloser {
  ~QueueCloser() { erps_routine_cancel_process(erps_event_queue); }
};

// The timer task posts on this handle, under the lock.
void set_event_queue(void* queue) {
  const TimerLock lock;
  erps_event_queue = queue;
}

template <typename Number>
Number field_at(const void* payload, size_t offset) {
  Number number;
  memcpy(&number, static_cast<const uint8_t*>(payload) + offset, sizeof number);
  return number;
}

void handle_link_change(const void* record) {
  ERPS_DEBUG("Receive ERPS_EVENT_T_LINK_CHANGE message, process it !~\n");
  erps_link_change_trigger(field_at<uint16_t>(record, kLinkRecordInterface),
                           field_at<uint16_t>(record, kLinkRecordState));
}

void handle_packet(void* packet) {
  uint8_t frame[kRxFrameCapacity] = {};  // zero behind the frame: offsets are read unchecked
  const auto announced = field_at<uint16_t>(packet, kPacketLength);
  const auto capacity = static_cast<uint16_t>(std::min<uint32_t>(announced, kRxFrameCapacity));
  uint16_t length = 0;
  uint16_t vlan = 0;
  uint32_t in_port = 0;
  const int failed = adp_receive_frame(field_at<uint32_t>(packet, kPacketHandle), frame, capacity,
                                       &length, &vlan, &in_port);
  if (failed == 0) {
    ERPS_DEBUG("--------------------- Receive packet, process it !~ ---------------------\n");
    erps_packet_process(in_port, frame, length);
  }
  skpack_release(packet);
}

ERPSM_T* living_ring_of(const ERPS_TIMER_T* timer) {
  for (ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    for (const ERPS_TIMER_T* own : {&ring->wtr_timer, &ring->wtb_timer, &ring->guard_timer,
                                    &ring->holdoff_timer, &ring->raps_timer}) {
      if (own == timer) {
        return ring;
      }
    }
  }
  return nullptr;
}

}  // namespace

int erps_process_init(erps_task_desc* task) {
  task->word14 = 0;
  return 0;
}

void erps_routine_cancel_process(void* queue) {
  ERPS_ERROR("routine process exit!\r\n");
  set_event_queue(nullptr);
  equeue_close(queue);
}

int erps_routine_process(erps_task_desc* task) {
  const NoCancellation whole_events;
  task->process_id = static_cast<uintptr_t>(getpid());
  const QueueCloser closer;
  void* queue = equeue_make_extend(kEventQueueName, kEventQueueDepth, 1, 0);
  set_event_queue(queue);
  if (queue == nullptr || erps_user_srv_init() < 0) {
    stask_notify_creater(task, -1);
    return -1;
  }
  stask_notify_creater(task, 0);

  for (;;) {
    ERPS_EVENT_MSG_T message{};
    int result = 0;
    {
      const Cancellable waiting;
      result = equeue_recv(queue, &message, 0);
    }
    if (result == -1) {
      ERPS_ERROR("%s equeue_recv error\n", __func__);
      return -1;
    }
    ERPS_TASK_ENTRY("Task entry begin process!~\n");
    erps_dispatch_event(&message);
    ERPS_TASK_ENTRY("Task entry end   process!~\n");
  }
}

void erps_dispatch_event(const ERPS_EVENT_MSG_T* message) {
  void* payload = reinterpret_cast<void*>(message->payload);  // NOLINT(performance-no-int-to-ptr)
  switch (message->type) {
    case ERPS_EVENT_T_LINK_CHANGE:
      handle_link_change(payload);
      break;
    case ERPS_EVENT_T_PACKET:
      handle_packet(payload);
      break;
    case ERPS_EVENT_T_TIMER:
      erps_timer_proc(static_cast<ERPS_TIMER_T*>(payload));
      break;
    case ERPS_EVENT_T_CONF:
      erps_conf_manage(static_cast<long>(message->payload));
      break;
    case ERPS_EVENT_T_TOPO_CHANGE:
      ERPS_DEBUG("Receive topology change message, process it !~\n");
      erps_cmd_topo_change_pro(static_cast<ERPS_MSG_T*>(payload)->ring_id());
      erps_pkt_buf_free(payload);
      break;
    case ERPS_EVENT_T_NOTIFY_SUB_RING: {
      ERPS_DEBUG("Receive notify sub ring event message, process it !~\n");
      const auto* indication = static_cast<ERPS_MSG_T*>(payload);
      erps_notify_sub_ring(indication->ring_id(), indication->value());
      erps_pkt_buf_free(payload);
      break;
    }
    case ERPS_EVENT_T_RESERVED_5:
    case ERPS_EVENT_T_RESERVED_6:
    case ERPS_EVENT_T_RESERVED_8:
      break;
    default:
      ERPS_ERROR("UNKNOWN EVENT! Sys ERROR\r\n");
      break;
  }
}

int32_t erps_timer_proc(ERPS_TIMER_T* timer) {
  ERPSM_T* ring = living_ring_of(timer);
  if (ring == nullptr) {
    return 0;
  }
  const auto request = static_cast<uint32_t>(timer->request.get());
  if (request == REQUEST_LOCAL_SF) {
    erps_holdoff_expired(ring);
  }
  if (erps_priority_logic(ring, request) != 0) {
    ERPS_erpsm_update(ring);
  }
  return 0;
}
