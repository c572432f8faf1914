// Logging and tracing. All calls may come from any task at any time.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Writes one message. Levels: 3 error, 5 notice, 7 debug. facility and label name the sender:
// 30 and "erps", or 7 and "Task entry" for the begin and end lines of the two tasks. The host
// decides by level, before anything is formatted, whether anybody listens. The result is the
// host's own.
#if defined(__GNUC__)
__attribute__((format(printf, 4, 5)))
#endif
int Log_logging_func(int level, int facility, const char* label, const char* format, ...);

// Non-zero while tracing is on; the module then formats every message a second time for
// sys_trace_add_log.
int sys_trace_get(void);

// Appends one formatted message to the trace; location reads "function():line". Neither text is
// kept after the call.
int sys_trace_add_log(const char* location, const char* text);

#ifdef __cplusplus
}
#endif
