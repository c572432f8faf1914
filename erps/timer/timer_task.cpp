#include "erps/timer/timer_task.h"

#include <pthread.h>
#include <sys/select.h>
#include <unistd.h>

#include "erps/runtime/event_queue.h"
#include "erps/runtime/log.h"
#include "erps/timer/timer_list.h"

namespace {

constexpr time_t kTickSeconds = 1;
constexpr uint8_t kPeriodic = 1;

// Closes the queue however the task ends, cancellation included.
struct QueueCloser {
  ~QueueCloser() { erps_timer_routine_cancel_process(erps_timer_event_queue); }
};

// What the task logs, it logs under its own name.
constexpr const char* kTask = "erps_routine_timer";

// Sleeps one tick. The result of select: 0 after the whole time.
int sleep_one_tick() {
  constexpr ERPS_LOG_PLACE_T task{kTask, __LINE__};
  for (;;) {
    int result = 0;
    {
      const Cancellable sleeping;
      pthread_testcancel();
      timeval timeout{kTickSeconds, 0};
      result = select(0, nullptr, nullptr, nullptr, &timeout);
    }
    if (result >= 0) {
      return result;
    }
    ERPS_DEBUG_AT_FROM(task, "erps timer select error!\n");
    ERPS_DEBUG_FROM(task, "erps timer select error!\n");
  }
}

}  // namespace

int erps_timer_task_init(erps_task_desc* /*task*/) {
  const TimerLock lock;
  while (g_erps_timer_list.next != &g_erps_timer_list) {
    erps_timer_delete(static_cast<ERPS_TIMER_T*>(g_erps_timer_list.next));
  }
  return 0;
}

void erps_timer_routine_cancel_process(void* queue) {
  ERPS_ERROR("erps timer routine process exit!\r\n");
  equeue_close(queue);
}

int erps_routine_timer(erps_task_desc* task) {
  const NoCancellation whole_walks;
  task->process_id = static_cast<uintptr_t>(getpid());
  erps_timer_event_queue = equeue_open(kEventQueueName, 0);
  if (erps_timer_event_queue == nullptr) {
    stask_notify_creater(task, -1);
    ERPS_DEBUG_AT("\nErps timer error exit\n");
    ERPS_DEBUG("\nErps timer error exit\n");
    return -1;
  }

  const QueueCloser closer;
  stask_notify_creater(task, 0);
  for (;;) {
    if (sleep_one_tick() == 0) {
      erps_timer_walk();
    }
  }
}

void erps_timer_walk() {
  constexpr ERPS_LOG_PLACE_T task{kTask, __LINE__};
  ERPS_TASK_ENTRY("Task entry begin process!~\n");
  {
    const TimerLock lock;
    while (g_erps_timer_list.next != &g_erps_timer_list) {
      auto* timer = static_cast<ERPS_TIMER_T*>(g_erps_timer_list.next);
      const ERPS_TIME_T now = erps_time_now();
      if (erps_time_after(timer->expire, now) == 0) {
        break;
      }
      ERPS_DEBUG_AT_FROM(task, "%s Expire time = %d Cur time = %d \n", timer->name,
                         timer->expire.seconds, now.seconds);
      erps_timer_delete(timer);
      if (timer->repeat == kPeriodic) {
        erps_calc_timeout(&timer->expire, timer->period);
        erps_timer_insert(timer);
      }
      if (timer->callback != nullptr) {
        timer->callback(timer);
      }
    }
  }
  ERPS_TASK_ENTRY("Task entry end   process!~\n");
}
