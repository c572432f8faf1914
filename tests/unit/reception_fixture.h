// Receiving frames in tests.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "erps/raps/receive.h"
#include "tests/unit/protocol_fixture.h"

namespace erps::test {

inline constexpr uint32_t kShortestBuffer = 55;  // what reception may read of any frame

// A received frame with its descriptor, in the memory that belongs to it.
class Received {
 public:
  Received(const FrameSpec& spec, uint32_t port) : bytes_(spec.bytes()) {
    descriptor_ = {bytes_.data(), spec.ring_id, spec.vlan, bytes_.data() + 18, 55, port};
  }
  Received(const Received&) = delete;
  Received& operator=(const Received&) = delete;

  ERPS_RX_PDU_T* descriptor() { return &descriptor_; }
  uint8_t request_byte() const { return bytes_.at(22); }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  ERPS_RX_PDU_T descriptor_{};
};

class ReceptionTest : public ProtocolTest {
 protected:
  // Delivers the first `length` bytes of a frame in a buffer that ends where reading must end.
  static uint32_t deliver_bytes(uint32_t port, std::vector<uint8_t> bytes, uint32_t length) {
    bytes.resize(length);
    bytes.resize(std::max(length, kShortestBuffer), 0);
    bytes.shrink_to_fit();
    return erps_packet_process(port, bytes.data(), length);
  }
  static uint32_t deliver(uint32_t port, const FrameSpec& frame) {
    const std::vector<uint8_t> bytes = frame.bytes();
    return deliver_bytes(port, bytes, static_cast<uint32_t>(bytes.size()));
  }

  // Delivers to a ring directly, for the result that ring selection does not pass on.
  static uint32_t deliver_to(ERPSM_T* ring, ERPS_PORT_T* port, const FrameSpec& frame) {
    Received received(frame, port->port_id);
    return ERPS_port_rx_pdu(ring, received.descriptor(), port);
  }

  // The given log texts came in this order, others between them or not.
  void expect_logged_in_order(const std::vector<std::string>& texts) {
    size_t next = 0;
    for (const LogLine& line : platform.log()) {
      if (next < texts.size() && line.text.find(texts[next]) != std::string::npos) {
        ++next;
      }
    }
    EXPECT_EQ(next, texts.size()) << "missing or too early: "
                                  << (next < texts.size() ? texts[next] : std::string());
  }
};

}  // namespace erps::test
