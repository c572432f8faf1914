// A shared object with the module's lifecycle and one mistake, chosen by a definition.
#include <pthread.h>
#include <sys/select.h>

#include <cstdlib>

#include "platform/event_queue.h"
#include "platform/field_processor.h"
#include "platform/task.h"

#define ERPS_EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

#if defined(ERPS_MISTAKE_LOCKS_TWICE) || defined(ERPS_MISTAKE_SLEEPS_WITH_A_LOCK)
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
#endif

#if defined(ERPS_MISTAKE_KEEPS_A_PACKET)
int receive_for_ever(erps_task_desc* task) {
  void* queue = equeue_make_extend("/erps_event_queue", 256, 1, 0);
  stask_notify_creater(task, 0);
  ERPS_EVENT_MSG_T event;
  while (equeue_recv(queue, &event, 0) == 0) {
  }
  return 0;
}
erps_task_desc receiver = {"receiver", 0, nullptr, receive_for_ever, 0, {}, 0, {}, 0, 0};
#endif

#if defined(ERPS_MISTAKE_SHARES_WITHOUT_A_LOCK)
constexpr char kQueue[] = "/erps_event_queue";
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
unsigned ticks_seen = 0;  // written by one task, with the lock, and read by the other, without it

int count_events(erps_task_desc* task) {
  void* queue = equeue_make_extend(kQueue, 256, 1, 0);
  stask_notify_creater(task, 0);
  ERPS_EVENT_MSG_T event;
  while (equeue_recv(queue, &event, 0) == 0 && ticks_seen < 1000) {
  }
  return 0;
}

int count_ticks(erps_task_desc* task) {
  stask_notify_creater(task, 0);
  for (;;) {
    timeval second{1, 0};
    select(0, nullptr, nullptr, nullptr, &second);
    pthread_mutex_lock(&lock);
    ++ticks_seen;
    pthread_mutex_unlock(&lock);
  }
}
erps_task_desc counters[] = {{"events", 0, nullptr, count_events, 0, {}, 0, {}, 0, 0},
                             {"ticks", 0, nullptr, count_ticks, 0, {}, 0, {}, 0, 0}};
#endif

int make_the_mistake() {
#if defined(ERPS_MISTAKE_READS_THE_ENVIRONMENT)
  return getenv("HOME") != nullptr ? 0 : -1;
#elif defined(ERPS_MISTAKE_LOCKS_TWICE)
  pthread_mutex_lock(&lock);
  return pthread_mutex_lock(&lock);
#elif defined(ERPS_MISTAKE_SLEEPS_WITH_A_LOCK)
  pthread_mutex_lock(&lock);
  timeval second{1, 0};
  return select(0, nullptr, nullptr, nullptr, &second);
#elif defined(ERPS_MISTAKE_SHARES_WITHOUT_A_LOCK)
  for (erps_task_desc& task : counters) {
    if (stask_start(&task, 0) < 0) {
      return -1;
    }
  }
  return 0;
#else
  // The capture rule is what brings frames here.
  adp_fp_add_entity_rule({});
  return stask_start(&receiver, 0);
#endif
}

}  // namespace

ERPS_EXPORTED int erps_module_init() {
  return 0;
}

ERPS_EXPORTED int erps_module_start() {
  return make_the_mistake();
}

ERPS_EXPORTED int erps_module_stop() {
  return 0;
}

ERPS_EXPORTED int erps_exit() {
  return 0;
}
