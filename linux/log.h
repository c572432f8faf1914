// Log lines and the module's trace.
//
// Threading: everything from any thread, at any time, also while a cancellation is pending. While
// a recorder drains them (see recorder.h) lines go through a bounded ring, so a console that does
// not read never holds up a task; before and after that they are written directly.
// Errors: none is reported; lines that the ring could not keep are counted and announced.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "linux/platform.h"

namespace erps::linux_platform {

// True when a message of this level is to be formatted at all.
bool log_listens(int level) noexcept;

// Formats and stores one line. `label` names the sender.
__attribute__((format(printf, 3, 0))) void log_write(int level, const char* label,
                                                     const char* format,
                                                     va_list arguments) noexcept;

// The platform's own messages, labelled "platform".
__attribute__((format(printf, 2, 3))) void logf(LogLevel level, const char* format, ...) noexcept;

bool trace_on() noexcept;
void trace_add(const char* location, const char* text) noexcept;

// Used by the recorder: from now on lines are queued (true) or written directly (false).
void log_queue(bool on) noexcept;
// Writes out what is queued; one thread at a time. Returns the number of lines lost so far.
uint64_t log_drain() noexcept;

}  // namespace erps::linux_platform
