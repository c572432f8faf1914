// The one way to log: every message goes to the platform logger and, while tracing is on, to the
// trace as well. Any task. The logger filters by level before it formats, so a message that nobody
// listens to costs two calls.
#pragma once

#include "platform/log.h"

inline constexpr int kLogError = 3;
inline constexpr int kLogNotice = 5;
inline constexpr int kLogDebug = 7;

inline constexpr int kLogFacility = 30;
inline constexpr char kLogLabel[] = "erps";
inline constexpr int kTaskEntryFacility = 7;
inline constexpr char kTaskEntryLabel[] = "Task entry";

// Formats the message, at most 1023 characters of it, and appends it to the platform's trace.
__attribute__((format(printf, 3, 4))) void erps_trace(const char* function, int line,
                                                      const char* format, ...);

// Where a message comes from. As a default argument it names the caller of the function, so that a
// helper shared by several functions logs under the name of the one that it works for.
struct ERPS_LOG_PLACE_T {
  const char* function;
  int line;

  static constexpr ERPS_LOG_PLACE_T here(const char* function = __builtin_FUNCTION(),
                                         int line = __builtin_LINE()) {
    return {function, line};
  }
};

#define ERPS_LOG_AS(place, level, facility, label, ...)          \
  do {                                                           \
    Log_logging_func((level), (facility), (label), __VA_ARGS__); \
    if (sys_trace_get() != 0) {                                  \
      erps_trace((place).function, (place).line, __VA_ARGS__);   \
    }                                                            \
  } while (false)

#define ERPS_LOG_FROM(place, level, ...) \
  ERPS_LOG_AS(place, level, kLogFacility, kLogLabel, __VA_ARGS__)
#define ERPS_LOG(level, ...) ERPS_LOG_FROM(ERPS_LOG_PLACE_T::here(), level, __VA_ARGS__)
#define ERPS_ERROR(...) ERPS_LOG(kLogError, __VA_ARGS__)

// A debug message; _FROM under another function's name, _AT with "[function:line]" in front.
#define ERPS_DEBUG_FROM(place, ...) ERPS_LOG_FROM(place, kLogDebug, __VA_ARGS__)
#define ERPS_DEBUG(...) ERPS_DEBUG_FROM(ERPS_LOG_PLACE_T::here(), __VA_ARGS__)
#define ERPS_DEBUG_AT_FROM(place, format, ...)               \
  ERPS_DEBUG_FROM(place, "[%s:%d]" format, (place).function, \
                  (place).line __VA_OPT__(, ) __VA_ARGS__)
#define ERPS_DEBUG_AT(format, ...) \
  ERPS_DEBUG("[%s:%d]" format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// The lines around each piece of work of a task.
#define ERPS_TASK_ENTRY(text) \
  ERPS_LOG_AS(ERPS_LOG_PLACE_T::here(), kLogDebug, kTaskEntryFacility, kTaskEntryLabel, text)
