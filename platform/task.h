// Tasks: one thread each, started and stopped through its descriptor.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Fifteen machine words. The descriptor belongs to the module and outlives its task.
typedef struct erps_task_desc erps_task_desc;
struct erps_task_desc {
  const char* name;                    // word 0
  uintptr_t thread_id;                 // word 1: (uintptr_t)-1 while not running
  int (*init)(erps_task_desc* task);   // word 2: run in the starter's thread before the entry
  int (*entry)(erps_task_desc* task);  // word 3: the task; its result is the task's end
  uintptr_t word4;                     // word 4: framework parameter
  uintptr_t word5_to_9[5];
  uintptr_t word10;  // word 10: framework parameter
  uintptr_t word11_to_12[2];
  uintptr_t process_id;  // word 13: written by the task itself
  uintptr_t word14;
};

// Runs the init hook, starts the thread, writes thread_id, and waits until the task has called
// stask_notify_creater. flags is always 0. Returns the task's result, negative when it failed;
// thread_id is (uintptr_t)-1 again after a failure.
int stask_start(erps_task_desc* task, int flags);

// Cancels the thread at its next cancellation point, waits for its end and sets thread_id to
// (uintptr_t)-1.
int stask_stop(erps_task_desc* task);

// Called once by the task: tells the waiting starter that it is ready (0) or failed (negative).
int stask_notify_creater(erps_task_desc* task, int result);

#ifdef __cplusplus
}
#endif
