// The thread that writes what happened: log lines to standard error, history to the journal file.
//
// Threading: one thread of its own at low priority, with all signals blocked, that looks every
// 10 ms, so nobody who records ever makes a system call or waits for a disk or a console.
// Errors: a journal that cannot be opened throws; one that cannot be written is reported once.
// Counters: records that were overwritten before they could be written.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "linux/history.h"
#include "linux/unique_fd.h"

namespace erps::linux_platform {

class Recorder {
 public:
  static constexpr int kPeriodMs = 10;

  // Opens the journal ("" none) for appending and starts the thread.
  Recorder(const History& history, const std::string& journal_path);
  // Writes out everything, then ends the thread.
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  uint64_t history_lost() const { return history_lost_.load(std::memory_order_relaxed); }
  uint64_t log_lost() const { return log_lost_.load(std::memory_order_relaxed); }

 private:
  void run();
  void drain();
  void write_journal(const std::string& lines);

  const History& history_;
  std::string journal_path_;
  UniqueFd journal_;
  uint64_t next_ = 0;
  std::string lines_;
  bool write_failed_ = false;
  std::atomic<uint64_t> history_lost_{0};
  std::atomic<uint64_t> log_lost_{0};
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace erps::linux_platform
