// Sending frames in tests: which ports they left through, and their bytes.
#pragma once

#include <vector>

#include "erps/raps/transmit.h"
#include "tests/unit/protocol_fixture.h"

namespace erps::test {

class TransmitTest : public ProtocolTest {
 protected:
  static std::vector<uint32_t> ports_of(const std::vector<SentFrame>& frames) {
    std::vector<uint32_t> ports;
    ports.reserve(frames.size());
    for (const SentFrame& frame : frames) {
      ports.push_back(frame.port);
    }
    return ports;
  }

  // Sends a new message and tells the ports it went to.
  std::vector<uint32_t> ports_of_new_message(ERPSM_T* ring) {
    platform.clear_journal();
    erps_Tx_R_APS(ring, kSf, 0, 0, 4);
    return ports_of(platform.sent_frames());
  }

  // The same for a repetition.
  std::vector<uint32_t> ports_of_repeat(ERPSM_T* ring) {
    platform.clear_journal();
    const TimerLock lock;
    EXPECT_EQ(erps_tx_raps_pkt(ring, ring->tx_frame, ring->tx_frame_len), 0U);
    return ports_of(platform.sent_frames());
  }

  std::vector<std::vector<uint8_t>> sent_bytes() {
    std::vector<std::vector<uint8_t>> frames;
    for (const SentFrame& frame : platform.sent_frames()) {
      frames.push_back(frame.bytes);
    }
    return frames;
  }
};

}  // namespace erps::test
