// A file with a text that lives as long as this object.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace erps::test {

class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& text) {
    char name[] = "/tmp/erps-test-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0) {
      throw std::runtime_error("mkstemp failed");
    }
    close(fd);
    path_ = name;
    std::ofstream(path_) << text;
  }
  ~TemporaryFile() { unlink(path_.c_str()); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace erps::test
