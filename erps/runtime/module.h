// What the module exports: its lifecycle, called by the host from one thread in this order:
// erps_module_init, erps_module_start, ..., erps_module_stop, erps_exit. C linkage.
#pragma once

#include "erps/runtime/export.h"
#include "platform/task.h"

extern "C" {

// Forgets the queue handles. Returns 0.
ERPS_EXPORT int erps_module_init();

// Starts the protocol task, then the timer task. 0 when both run; otherwise stops what was started
// and returns -1.
ERPS_EXPORT int erps_module_start();

// Stops the tasks that run. Rings stay. Returns 0.
ERPS_EXPORT int erps_module_stop();

// Prints the running tasks to standard output. Returns 0.
ERPS_EXPORT int erps_module_list();

// Does nothing. Returns 0.
ERPS_EXPORT int erps_start();

// Removes the event queue's name from the system. Returns 0.
ERPS_EXPORT int erps_exit();

// Logs the shutdown. Returns the logger's result.
ERPS_EXPORT int erps_shutdown();
}

// The tasks, in the order in which they start: protocol task, timer task.
inline constexpr int kTaskCount = 2;
extern erps_task_desc erps_task_table[kTaskCount];
