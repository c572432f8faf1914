// The fixture of all unit tests of the module: a fresh recording platform, no rings, an empty timer
// list, default times; and helpers to make rings, frames and expectations.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "erps/raps/frame.h"
#include "erps/ring/ring.h"
#include "erps/runtime/event_queue.h"
#include "tests/unit/recording_platform.h"

namespace erps::test {

inline constexpr MacAddress kLocalNode = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};   // the platform's
inline constexpr MacAddress kRemoteNode = {0x00, 0xAA, 0x00, 0x00, 0x00, 0x07};  // higher

// What a test ring is made of; written with designated initialisers.
struct RingSpec {
  uint32_t id = 1;
  uint32_t port0 = 1;
  uint32_t port1 = 2;
  uint32_t vlan = 100;
  uint32_t node_role = kNoRplNode;
  uint32_t ring_role = kMajorRing;
};

// An R-APS frame as another node would send it, laid out here byte by byte on its own.
struct FrameSpec {
  uint8_t ring_id = 1;
  uint16_t vlan = 100;  // 0 untagged
  MacAddress source = kRemoteNode;
  uint8_t request = 0;  // request/state, 4 bits
  uint8_t sub_code = 0;
  bool rb = false;
  bool dnf = false;
  bool bpr = false;
  MacAddress node_id = kRemoteNode;

  std::vector<uint8_t> bytes() const;  // 55 bytes, untagged 51
  std::vector<uint8_t> pdu() const;    // the same from the CFM common header on: 37 bytes
};

std::vector<uint8_t> bytes_of(const uint8_t* data, size_t length);

class ModuleTest : public ::testing::Test {
 public:
  // Removes rings, timers and events, and takes every global back to its value at load.
  static void reset_module();

 protected:
  ModuleTest();
  ~ModuleTest() override;

  // --- Rings.
  ERPSM_T* make_ring(const RingSpec& spec = {});  // created, stopped; the journal is not cleared
  // Created and started, journal and events cleared.
  ERPSM_T* make_running_ring(const RingSpec& spec = {});
  static ERPS_PORT_T* port0(const ERPSM_T* ring) { return ring->port_list; }
  static ERPS_PORT_T* port1(const ERPSM_T* ring) { return ring->port_list->next; }
  // Ring IDs in list order.
  static std::vector<uint32_t> ring_ids();
  // Names of the running timers in list order.
  static std::vector<std::string> timers();
  static size_t timer_count();  // bounded; also valid while names are empty

  // --- Time and events.
  void pass_ms(uint64_t ms);            // moves the clock and lets the timer task walk once
  void handle_events();                 // dispatches what is queued, once through
  std::vector<uint32_t> event_types();  // takes the events and releases their buffers

  // --- Log.
  // Messages with exactly this text, at this level, under the module's own facility and label.
  int logged(int level, const std::string& text) const;
  // Debug messages "[function:<any line>]" + text; an empty name stands for any function.
  int logged_at(const std::string& function, const std::string& text) const;
  // Messages of any level that contain the text.
  int logged_part(const std::string& text) const;

  RecordingPlatform& platform;
};

}  // namespace erps::test
