// The event queue of the protocol task.
//
// Senders run in any thread; one task receives. Everything a queued event points at belongs to the
// receiver from the moment the send succeeded.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Eight machine words.
typedef struct {
  uintptr_t event_class;  // word 0: always 3
  uintptr_t sender;       // word 1: thread ID of the sender
  uintptr_t type;         // word 2: event type
  uintptr_t unused[4];    // words 3 to 6
  uintptr_t payload;      // word 7: a pointer, or the System V message type of a type 4 event
} ERPS_EVENT_MSG_T;

// Creates the queue under its name; depth in events, arg2 is always 1 and arg3 0.
// Returns the receiver's handle, or null when it failed.
void* equeue_make_extend(const char* name, int depth, int arg2, int arg3);

// Opens an existing queue by name; flags is always 0. Returns a handle, or null when it failed.
void* equeue_open(const char* name, int flags);

// Waits for the next event; flags is always 0. A cancellation point. Returns 0 with an event in
// *message, or -1 when the queue is gone.
int equeue_recv(void* queue, ERPS_EVENT_MSG_T* message, int flags);

// Posts one event; the message is copied. timeout_ms -1 waits without limit. The module sends with
// the timer lock held, so a host must not make the sender wait for the task that receives.
// Returns a number above 0 when the event was queued.
int equeue_send_ucast(void* queue, const ERPS_EVENT_MSG_T* message, int timeout_ms);

// Gives up a handle. Null is refused with a non-zero result.
int equeue_close(void* queue);

#ifdef __cplusplus
}
#endif
