#include "erps/runtime/log.h"

#include <cstdarg>
#include <cstdio>

namespace {
constexpr int kTraceCapacity = 1024;  // with the terminating zero
constexpr int kLocationCapacity = 128;
}  // namespace

void erps_trace(const char* function, int line, const char* format, ...) {
  char text[kTraceCapacity];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);

  char location[kLocationCapacity];
  snprintf(location, sizeof location, "%s():%d", function, line);
  sys_trace_add_log(location, text);
}
