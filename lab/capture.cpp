#include "lab/capture.h"

#include <fcntl.h>
#include <net/ethernet.h>

#include <algorithm>

#include "erps/raps/frame.h"
#include "lab/clock.h"
#include "lab/lab_error.h"
#include "lab/node_config.h"

namespace erps::lab {

namespace {

constexpr int64_t kDrainEveryMs = 20;
constexpr int kBufferBytes = 1 << 20;
constexpr uint32_t kWholeFrame = 0xFFFF;

// Frames to an R-APS address of any ring. R-APS frames have no other trait that can be told at a
// fixed offset, as a tag may be there or not.
std::vector<sock_filter> raps_filter() {
  const auto& prefix = raps::kDestinationPrefix;
  const uint32_t first = static_cast<uint32_t>(prefix[0]) << 24 |
                         static_cast<uint32_t>(prefix[1]) << 16 |
                         static_cast<uint32_t>(prefix[2]) << 8 | prefix[3];
  return {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, first, 0, 3),
      BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 4),  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, prefix[4], 0, 1),
      BPF_STMT(BPF_RET | BPF_K, kWholeFrame), BPF_STMT(BPF_RET | BPF_K, 0),
  };
}

}  // namespace

std::vector<uint8_t> with_tag(const ReceivedFrame& frame) {
  std::vector<uint8_t> bytes(frame.bytes, frame.bytes + frame.length);
  if (frame.has_tag && bytes.size() >= raps::kTpidOffset) {
    const uint8_t tag[4] = {raps::kEtherTypeVlan >> 8, raps::kEtherTypeVlan & 0xFF,
                            static_cast<uint8_t>(frame.tag >> 8), static_cast<uint8_t>(frame.tag)};
    bytes.insert(bytes.begin() + raps::kTpidOffset, std::begin(tag), std::end(tag));
  }
  return bytes;
}

Capture::Capture(const Topology& topology, const Network& network, int directory) {
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    NodeCapture capture;
    std::vector<std::string> names;
    for (LinkIndex link = 0; link < topology.links.size(); ++link) {
      for (size_t end = 0; end < 2; ++end) {
        const LinkEnd& link_end = topology.links[link].ends[end];
        if (link_end.node != node || !topology.ring_of_link(link)) {
          continue;
        }
        names.push_back(port_interface(link_end.port));
        network.node(node).run([&] {
          capture.ports.push_back(std::make_unique<PacketSocket>(PacketSocketOptions{
              network.link_interface(link, end), ETH_P_ALL, true, raps_filter(), kBufferBytes}));
        });
      }
    }
    if (names.empty()) {
      continue;
    }
    const std::string path = topology.nodes[node].name + ".pcapng";
    UniqueFd file(openat(directory, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file.is_open()) {
      throw system_error(path);
    }
    capture.file = std::make_unique<PcapngFile>(
        std::move(file), "erpslab, node " + topology.nodes[node].name, names);
    nodes_.push_back(std::move(capture));
  }
  thread_ = std::thread([this] { loop(); });
}

Capture::~Capture() {
  stopping_ = true;
  if (thread_.joinable()) {
    thread_.join();
  }
}

void Capture::stop() {
  stopping_ = true;
  if (thread_.joinable()) {
    thread_.join();
  }
  if (failure_) {
    std::rethrow_exception(failure_);
  }
}

void Capture::loop() {
  try {
    bool last = false;
    while (!last) {
      last = stopping_;  // read once more what came before the end was asked for
      for (NodeCapture& node : nodes_) {
        drain(node);
      }
      if (!last) {
        sleep_ms(kDrainEveryMs);
      }
    }
  } catch (...) {
    failure_ = std::current_exception();
  }
}

void Capture::drain(NodeCapture& node) {
  std::vector<CapturedFrame> frames;
  for (size_t i = 0; i < node.ports.size(); ++i) {
    node.ports[i]->drain([&](const ReceivedFrame& frame) {
      frames.push_back({static_cast<uint32_t>(i), frame.real_ns, frame.outgoing, with_tag(frame)});
    });
  }
  std::stable_sort(
      frames.begin(), frames.end(),
      [](const CapturedFrame& a, const CapturedFrame& b) { return a.real_ns < b.real_ns; });
  for (const CapturedFrame& frame : frames) {
    node.file->write(frame);
  }
}

}  // namespace erps::lab
