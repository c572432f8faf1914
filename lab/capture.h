// Captures the R-APS frames on the ring ports of every node, both directions, into a file a node:
// DIRECTORY/n1.pcapng.
//
// Threading: a thread of its own reads all sockets. Errors: LabError at construction; a file that
// cannot be written any more ends the capture and is told by stop(). Logs nothing.
#pragma once

#include <atomic>
#include <exception>
#include <memory>
#include <thread>
#include <vector>

#include "lab/network.h"
#include "lab/packet_socket.h"
#include "lab/pcapng_file.h"

namespace erps::lab {

class Capture {
 public:
  // `directory` is an open directory, which stays the caller's.
  Capture(const Topology& topology, const Network& network, int directory);
  ~Capture();
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  // Takes in what still waits, then ends; throws what went wrong meanwhile.
  void stop();

 private:
  struct NodeCapture {
    std::vector<std::unique_ptr<PacketSocket>> ports;
    std::unique_ptr<PcapngFile> file;
  };

  void loop();
  void drain(NodeCapture& node);

  std::vector<NodeCapture> nodes_;
  std::atomic<bool> stopping_{false};
  std::exception_ptr failure_;
  std::thread thread_;
};

// The frame as it was on the wire: with the tag that the kernel took off put back.
std::vector<uint8_t> with_tag(const ReceivedFrame& frame);

}  // namespace erps::lab
