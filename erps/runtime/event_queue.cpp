#include "erps/runtime/event_queue.h"

#include <pthread.h>

#include <new>

#include "erps/runtime/log.h"

void* erps_event_queue = nullptr;
void* erps_timer_event_queue = nullptr;

ERPS_MSG_T* erps_msg_malloc() {
  return new (std::nothrow) ERPS_MSG_T{};
}

void erps_pkt_buf_free(void* buffer) {
  delete static_cast<ERPS_MSG_T*>(buffer);
}

int32_t erps_equeue_msg_send(uint32_t type, uint32_t ring_id, uint32_t value) {
  ERPS_MSG_T* buffer = erps_msg_malloc();
  if (buffer == nullptr) {
    ERPS_ERROR("no memory for event %d of ring %d\n", type, ring_id);  // nobody else would tell
    return -1;
  }
  buffer->word[2] = ring_id;
  if (type == ERPS_EVENT_T_NOTIFY_SUB_RING) {
    buffer->word[3] = value;
  }

  ERPS_EVENT_MSG_T message{};
  message.event_class = kEventClass;
  message.sender = pthread_self();
  message.type = type;
  message.payload = reinterpret_cast<uintptr_t>(buffer);
  if (equeue_send_ucast(erps_event_queue, &message, kWaitForEver) > 0) {
    return 0;
  }
  ERPS_ERROR("equeue error\n");
  erps_pkt_buf_free(buffer);  // what the queue did not take is still ours
  return -1;
}

int32_t erps_send_cmd(uint32_t type, uint32_t ring_id, uint32_t value) {
  return erps_equeue_msg_send(type, ring_id, value);
}
