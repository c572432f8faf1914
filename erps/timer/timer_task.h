// The timer task: once a second it fires every timer whose time has come.
#pragma once

#include "platform/task.h"

// Init hook: unlinks whatever an earlier run left, so that the list is empty. Returns 0.
int erps_timer_task_init(erps_task_desc* task);

// Task entry. -1 when the event queue cannot be opened; otherwise runs until it is cancelled.
int erps_routine_timer(erps_task_desc* task);

// Fires what is due, first to last, until the first record that is not: a periodic timer is linked
// again from its old expiry before its action runs. Takes the timer lock for the whole walk.
void erps_timer_walk();

// Clean-up handler: closes the queue handle that it is given.
void erps_timer_routine_cancel_process(void* queue);
