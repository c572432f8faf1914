#include "linux/recorder.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>

#include "linux/background_thread.h"
#include "linux/log.h"

namespace erps::linux_platform {

Recorder::Recorder(const History& history, const std::string& journal_path)
    : history_(history), journal_path_(journal_path) {
  if (!journal_path.empty()) {
    journal_.reset(open(journal_path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640));
    if (!journal_) {
      throw PlatformError("journal_path \"" + journal_path +
                          "\": cannot be opened for writing: " + std::strerror(errno));
    }
  }
  log_queue(true);  // from here on; the thread may take its time to start
  try {
    thread_ = start_background_thread("erps-recorder", [this] { run(); });
  } catch (const std::exception&) {
    log_queue(false);
    throw;
  }
}

Recorder::~Recorder() {
  stop_.store(true, std::memory_order_release);
  thread_.join();
  log_queue(false);
  drain();
}

void Recorder::run() {
  constexpr int kNice = 5;  // behind whatever moves traffic
  setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), kNice);
  while (!stop_.load(std::memory_order_acquire)) {
    drain();
    std::this_thread::sleep_for(std::chrono::milliseconds(kPeriodMs));
  }
}

void Recorder::drain() {
  log_lost_.store(log_drain(), std::memory_order_relaxed);
  if (!journal_) {
    return;
  }
  lines_.clear();
  const uint64_t lost = history_.drain(next_, [this](const HistoryRecord& record) {
    lines_ += to_json_line(record);
    lines_ += '\n';
  });
  if (lost > 0) {
    history_lost_.fetch_add(lost, std::memory_order_relaxed);
    lines_ += "{\"kind\":\"journal-gap\",\"lost\":" + std::to_string(lost) + "}\n";
  }
  if (!lines_.empty()) {
    write_journal(lines_);
  }
}

void Recorder::write_journal(const std::string& lines) {
  size_t done = 0;
  while (done < lines.size()) {
    const ssize_t written = write(journal_.get(), lines.data() + done, lines.size() - done);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      if (!write_failed_) {
        logf(LogLevel::kError, "journal %s: cannot be written: %s", journal_path_.c_str(),
             std::strerror(errno));
      }
      write_failed_ = true;
      return;
    }
    done += static_cast<size_t>(written);
  }
  write_failed_ = false;
}

}  // namespace erps::linux_platform
