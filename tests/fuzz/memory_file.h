// A file that is only in memory, for readers that want a path.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "tests/fuzz/fail.h"

namespace erps::fuzz {

class MemoryFile {
 public:
  MemoryFile() : fd_(memfd_create("input", 0)), path_("/proc/self/fd/" + std::to_string(fd_)) {
    require(fd_ >= 0, "there is no file to write to");
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void write(std::string_view text) const {
    require(ftruncate(fd_, 0) == 0 &&
                pwrite(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()),
            "the file cannot be written");
  }
  const std::string& path() const { return path_; }

 private:
  int fd_;
  std::string path_;
};

}  // namespace erps::fuzz
