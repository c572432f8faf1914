// The protocol task: one event at a time, each to its end.
#pragma once

#include <stdint.h>

#include "erps/timer/timer_list.h"
#include "platform/event_queue.h"
#include "platform/task.h"

// Init hook. Returns 0.
int erps_process_init(erps_task_desc* task);

// Task entry: creates the queue, opens the management server, reports to its starter and handles
// events until the queue is gone. -1 when it ends.
int erps_routine_process(erps_task_desc* task);

// Handles one event.
void erps_dispatch_event(const ERPS_EVENT_MSG_T* message);

// A timer expiry. The timer's ring may be gone: the address is compared, the record read only if it
// belongs to a ring that lives. Always 0.
int32_t erps_timer_proc(ERPS_TIMER_T* timer);

// Clean-up handler: closes the queue that it is given.
void erps_routine_cancel_process(void* queue);
