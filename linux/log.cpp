#include "linux/log.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "linux/cancel_guard.h"
#include "linux/clock.h"
#include "linux/overwrite_ring.h"

namespace erps::linux_platform {
namespace {

struct LogLine {
  int64_t wall_ns;
  int32_t level;
  char label[20];
  char text[448];
};

struct TraceLine {
  char text[256];
};

constexpr size_t kLogLines = 1024;
constexpr size_t kTraceLines = 1024;

struct LogState {
  std::atomic<int> level{static_cast<int>(LogLevel::kNotice)};
  std::atomic<bool> severity_prefix{false};
  std::atomic<bool> queued{false};
  std::atomic<bool> trace{false};
  OverwriteRing<LogLine, kLogLines> lines;
  OverwriteRing<TraceLine, kTraceLines> traces;
  uint64_t drained = 0;  // sequence of the next line to write, the draining thread's own
  std::atomic<uint64_t> lost{0};
};

LogState& state() {
  static LogState instance;
  return instance;
}

// True when standard error is connected to the journal: $JOURNAL_STREAM names its device and inode.
bool stderr_is_journal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || fstat(STDERR_FILENO, &status) != 0) {
    return false;
  }
  uint64_t device = 0;
  uint64_t inode = 0;
  return std::sscanf(stream, "%" SCNu64 ":%" SCNu64, &device, &inode) == 2 &&
         device == status.st_dev && inode == status.st_ino;
}

const char* level_name(int level) {
  if (level <= static_cast<int>(LogLevel::kError)) {
    return "error";
  }
  return level <= static_cast<int>(LogLevel::kNotice) ? "notice" : "debug";
}

// The module ends its lines as a terminal of old would; one message is one line here.
void flatten(char* text) {
  size_t length = std::strlen(text);
  while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r')) {
    text[--length] = '\0';
  }
  const char* from = text;
  while (*from == '\n' || *from == '\r') {
    ++from;
  }
  char* to = text;
  for (; *from != '\0'; ++from) {
    *to++ = static_cast<unsigned char>(*from) < 0x20 ? ' ' : *from;
  }
  *to = '\0';
}

void write_line(const LogLine& line) {
  char out[sizeof(LogLine) + 64];
  int length = 0;
  if (state().severity_prefix.load(std::memory_order_relaxed)) {
    length = std::snprintf(out, sizeof out, "<%d>%s: %s\n", line.level, line.label, line.text);
  } else {
    const time_t seconds = line.wall_ns / 1'000'000'000;
    const int micros = static_cast<int>(line.wall_ns % 1'000'000'000 / 1000);
    tm local{};
    localtime_r(&seconds, &local);
    length = std::snprintf(out, sizeof out, "%02d:%02d:%02d.%06d %s %s: %s\n", local.tm_hour,
                           local.tm_min, local.tm_sec, micros, level_name(line.level), line.label,
                           line.text);
  }
  const char* next = out;
  size_t left = std::min<size_t>(static_cast<size_t>(std::max(length, 0)), sizeof out - 1);
  while (left > 0) {
    const ssize_t written = write(STDERR_FILENO, next, left);
    if (written <= 0) {
      if (written < 0 && errno == EINTR) {
        continue;
      }
      return;  // nobody is there to be told
    }
    next += written;
    left -= static_cast<size_t>(written);
  }
}

}  // namespace

void configure_log(const LogConfig& config) noexcept {
  LogState& log = state();
  log.level.store(static_cast<int>(config.level), std::memory_order_relaxed);
  const bool journal = config.target == LogTarget::kJournal ||
                       (config.target == LogTarget::kAuto && stderr_is_journal());
  log.severity_prefix.store(journal, std::memory_order_relaxed);
  log.trace.store(config.trace, std::memory_order_relaxed);
}

bool log_listens(int level) noexcept {
  return level <= state().level.load(std::memory_order_relaxed);
}

void log_write(int level, const char* label, const char* format, va_list arguments) noexcept {
  const CancelGuard guard;
  const int saved_errno = errno;
  LogLine line;
  line.wall_ns = wall_now_ns();
  line.level = level;
  std::snprintf(line.label, sizeof line.label, "%s", label != nullptr ? label : "");
  const int length = std::vsnprintf(line.text, sizeof line.text, format, arguments);
  if (length < 0) {
    std::snprintf(line.text, sizeof line.text, "(message could not be formatted)");
  } else if (static_cast<size_t>(length) >= sizeof line.text) {
    std::memcpy(line.text + sizeof line.text - 4, "...", 4);
  }
  flatten(line.text);
  if (state().queued.load(std::memory_order_acquire)) {
    state().lines.push(line);
  } else {
    write_line(line);
  }
  errno = saved_errno;
}

namespace {

__attribute__((format(printf, 3, 4))) void write_as(int level, const char* label,
                                                    const char* format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  log_write(level, label, format, arguments);
  va_end(arguments);
}

}  // namespace

void logf(LogLevel level, const char* format, ...) noexcept {
  if (!log_listens(static_cast<int>(level))) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  log_write(static_cast<int>(level), "platform", format, arguments);
  va_end(arguments);
}

void log(LogLevel level, std::string_view message) noexcept {
  if (log_listens(static_cast<int>(level))) {
    write_as(static_cast<int>(level), "host", "%.*s",
             static_cast<int>(std::min<size_t>(message.size(), sizeof LogLine::text)),
             message.data());
  }
}

bool trace_on() noexcept {
  return state().trace.load(std::memory_order_relaxed);
}
void set_trace(bool on) noexcept {
  state().trace.store(on, std::memory_order_relaxed);
}

void trace_add(const char* location, const char* text) noexcept {
  TraceLine line;
  std::snprintf(line.text, sizeof line.text, "%s %s", location != nullptr ? location : "",
                text != nullptr ? text : "");
  flatten(line.text);
  state().traces.push(line);
}

std::vector<std::string> trace() {
  std::vector<std::string> lines;
  const auto& ring = state().traces;
  const uint64_t end = ring.next();
  TraceLine line;
  for (uint64_t i = end - std::min<uint64_t>(end, kTraceLines); i < end; ++i) {
    if (ring.read(i, line) == decltype(LogState::traces)::Read::kDone) {
      lines.emplace_back(line.text);
    }
  }
  return lines;
}

void log_queue(bool on) noexcept {
  if (on) {
    state().drained = state().lines.next();
  }
  state().queued.store(on, std::memory_order_release);
}

uint64_t log_drain() noexcept {
  using Ring = decltype(LogState::lines);
  LogState& log = state();
  LogLine line;
  uint64_t lost = 0;
  while (log.drained < log.lines.next()) {
    if (log.drained + kLogLines < log.lines.next()) {
      lost += log.lines.next() - kLogLines - log.drained;
      log.drained = log.lines.next() - kLogLines;
    }
    const auto result = log.lines.read(log.drained, line);
    if (result == Ring::Read::kNotYet) {
      break;
    }
    if (result == Ring::Read::kDone) {
      write_line(line);
    } else {
      ++lost;
    }
    ++log.drained;
  }
  if (lost > 0) {
    log.lost.fetch_add(lost, std::memory_order_relaxed);
    LogLine notice{};
    notice.wall_ns = wall_now_ns();
    notice.level = static_cast<int>(LogLevel::kError);
    std::snprintf(notice.label, sizeof notice.label, "platform");
    std::snprintf(notice.text, sizeof notice.text,
                  "%" PRIu64 " log lines were lost: standard error does not keep up", lost);
    write_line(notice);
  }
  return log.lost.load(std::memory_order_relaxed);
}

}  // namespace erps::linux_platform
