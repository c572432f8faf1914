#include "erps/runtime/module.h"

#include <mqueue.h>
#include <stdio.h>

#include "erps/ring/ring_list.h"
#include "erps/runtime/event_loop.h"
#include "erps/runtime/event_queue.h"
#include "erps/runtime/log.h"
#include "erps/timer/timer_task.h"

namespace {

constexpr auto kNotRunning = static_cast<uintptr_t>(-1);
constexpr uintptr_t kFrameworkWord4 = 0x1000000;
constexpr uintptr_t kFrameworkWord10 = 1;

constexpr erps_task_desc describe_task(const char* name, int (*init)(erps_task_desc*),
                                       int (*entry)(erps_task_desc*)) {
  erps_task_desc task{};
  task.name = name;
  task.thread_id = kNotRunning;
  task.init = init;
  task.entry = entry;
  task.word4 = kFrameworkWord4;
  task.word10 = kFrameworkWord10;
  return task;
}

}  // namespace

erps_task_desc erps_task_table[kTaskCount] = {
    describe_task("erps_process", erps_process_init, erps_routine_process),
    describe_task("erps_timer", erps_timer_task_init, erps_routine_timer),
};

extern "C" {

int erps_module_init() {
  erps_get_list_head();
  erps_event_queue = nullptr;
  erps_timer_event_queue = nullptr;
  return 0;
}

int erps_module_start() {
  for (erps_task_desc& task : erps_task_table) {
    if (stask_start(&task, 0) < 0) {
      erps_module_stop();
      return -1;
    }
  }
  return 0;
}

int erps_module_stop() {
  erps_shutdown();
  for (erps_task_desc& task : erps_task_table) {
    if (task.thread_id != kNotRunning) {
      stask_stop(&task);
    }
  }
  return 0;
}

int erps_module_list() {
  for (const erps_task_desc& task : erps_task_table) {
    if (task.thread_id != kNotRunning) {
      printf("\t%12s \ttid=%04lu, pid=%04d\n", task.name, task.thread_id,
             static_cast<int>(task.process_id));
    }
  }
  return 0;
}

int erps_start() {
  return 0;
}

int erps_exit() {
  mq_unlink(kEventQueueName);
  return 0;
}

int erps_shutdown() {
  constexpr char kText[] = "bridge shut down\n";
  const int result = Log_logging_func(kLogNotice, kLogFacility, kLogLabel, kText);
  if (sys_trace_get() != 0) {
    erps_trace(__func__, __LINE__, kText);
  }
  return result;
}
}
