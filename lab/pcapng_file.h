// Writes frames into a capture file in the pcapng format, in the byte order of this machine, with
// nanosecond stamps and the direction of each frame.
//
// Threading: one thread at a time. Errors: LabError when writing fails. Every frame is in the file
// when write() returns, so that a capture that is cut short is still one. Logs nothing.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/unique_fd.h"

namespace erps::lab {

struct CapturedFrame {
  uint32_t interface = 0;  // index in the list that the file was opened with
  int64_t real_ns = 0;     // CLOCK_REALTIME
  bool outgoing = false;
  std::vector<uint8_t> bytes;
};

class PcapngFile {
 public:
  // Takes the open file over. `interfaces` are their names, as programs show them.
  PcapngFile(UniqueFd file, const std::string& application,
             const std::vector<std::string>& interfaces);

  void write(const CapturedFrame& frame);

 private:
  void write_block(uint32_t type, const std::vector<uint8_t>& body);

  UniqueFd file_;
};

}  // namespace erps::lab
