#include "tests/unit/fixture.h"

#include <cstring>

#include "erps/link/link_state.h"
#include "erps/mgmt/handlers.h"
#include "erps/mgmt/server.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_list.h"
#include "erps/ring/ring_records.h"
#include "erps/ring/ring_start.h"
#include "erps/runtime/event_loop.h"
#include "erps/timer/protocol_timers.h"
#include "erps/timer/timer_task.h"

namespace erps::test {
namespace {

constexpr size_t kMostTimers = 10'000;  // a list longer than this is a loop

bool carries_buffer(const ERPS_EVENT_MSG_T& event) {
  return event.type == ERPS_EVENT_T_TOPO_CHANGE || event.type == ERPS_EVENT_T_NOTIFY_SUB_RING;
}

void release(const std::vector<ERPS_EVENT_MSG_T>& events) {
  for (const ERPS_EVENT_MSG_T& event : events) {
    if (carries_buffer(event)) {
      erps_pkt_buf_free(payload_of(event));
    }
  }
}

}  // namespace

std::vector<uint8_t> FrameSpec::pdu() const {
  std::vector<uint8_t> pdu(37, 0);
  pdu[0] = 0x01;  // MEL 0, version 1
  pdu[1] = 40;    // R-APS
  pdu[3] = 32;    // TLV offset
  pdu[4] = static_cast<uint8_t>((request << 4) | (sub_code & 0x0F));
  pdu[5] = static_cast<uint8_t>((rb ? 0x80 : 0) | (dnf ? 0x40 : 0) | (bpr ? 0x20 : 0));
  memcpy(&pdu[6], node_id.data(), node_id.size());
  return pdu;
}

std::vector<uint8_t> FrameSpec::bytes() const {
  std::vector<uint8_t> frame;
  frame.reserve(64);
  frame = {0x01, 0x19, 0xA7, 0x00, 0x00, ring_id};
  frame.insert(frame.end(), source.begin(), source.end());
  if (vlan != 0) {
    frame.push_back(0x81);
    frame.push_back(0x00);
    frame.push_back(static_cast<uint8_t>(0xE0 | (vlan >> 8)));
    frame.push_back(static_cast<uint8_t>(vlan & 0xFF));
  }
  frame.push_back(0x89);
  frame.push_back(0x02);
  const std::vector<uint8_t> rest = pdu();
  frame.insert(frame.end(), rest.begin(), rest.end());
  return frame;
}

std::vector<uint8_t> bytes_of(const uint8_t* data, size_t length) {
  return {data, data + length};
}

ModuleTest::ModuleTest() : platform(RecordingPlatform::instance()) {
  platform.reset();
  erps_task_desc task{};
  erps_timer_task_init(&task);
  reset_module();
  erps_event_queue = platform.receiver_handle();
  platform.clear_journal();
}

ModuleTest::~ModuleTest() {
  reset_module();
}

void ModuleTest::reset_module() {
  RecordingPlatform& recorder = RecordingPlatform::instance();
  recorder.fail_allocation(0);
  recorder.forget_actions();  // what they refer to is gone when a test's body has ended
  while (ERPSM_T* ring = erps_get_list_head()) {
    const ERPSM_T* next = ring->next;
    erps_ring_remove(ring);
    if (erps_get_list_head() != next) {
      ADD_FAILURE() << "the ring list does not shrink";
      break;
    }
  }
  release(recorder.take_events());
  erps_task_desc task{};
  erps_timer_task_init(&task);
  guard_timer_time = 500;
  WTR_timer_time = 300000;
  WTB_timer_time = 5500;
  holdoff_timer_time = 0;
  for (uint32_t id = 1; id <= kHoldoffEntries; ++id) {
    erps_set_holdoff_interface(id, 0);
  }
  memset(g_erps_src_mac, 0, kMacLength);
  g_erps_debug = 0;
  erps_event_queue = nullptr;
  erps_timer_event_queue = nullptr;
  erps_user_msgid = -1;
  memset(&erps_user_req, 0, sizeof erps_user_req);
  memset(&erps_user_rsp, 0, sizeof erps_user_rsp);
}

ERPSM_T* ModuleTest::make_ring(const RingSpec& spec) {
  return erps_ring_create(spec.id, spec.port0, spec.port1, spec.vlan, spec.node_role,
                          spec.ring_role);
}

ERPSM_T* ModuleTest::make_running_ring(const RingSpec& spec) {
  ERPSM_T* ring = make_ring(spec);
  if (ring != nullptr) {
    erps_start_func(ring, "test");
    release(platform.take_events());
    platform.clear_journal();
  }
  return ring;
}

std::vector<uint32_t> ModuleTest::ring_ids() {
  std::vector<uint32_t> ids;
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    ids.push_back(ring->ring_id);
  }
  return ids;
}

std::vector<std::string> ModuleTest::timers() {
  std::vector<std::string> names;
  const TimerLock lock;
  for (const ERPS_TIMER_LINK_T* link = g_erps_timer_list.next;
       link != &g_erps_timer_list && names.size() < kMostTimers; link = link->next) {
    names.emplace_back(static_cast<const ERPS_TIMER_T*>(link)->name);
  }
  return names;
}

size_t ModuleTest::timer_count() {
  return timers().size();
}

void ModuleTest::pass_ms(uint64_t ms) {
  platform.advance_ms(ms);
  erps_timer_walk();
}

void ModuleTest::handle_events() {
  for (const ERPS_EVENT_MSG_T& event : platform.take_events()) {
    erps_dispatch_event(&event);
  }
}

std::vector<uint32_t> ModuleTest::event_types() {
  const std::vector<ERPS_EVENT_MSG_T> events = platform.take_events();
  std::vector<uint32_t> types;
  types.reserve(events.size());
  for (const ERPS_EVENT_MSG_T& event : events) {
    types.push_back(static_cast<uint32_t>(event.type));
  }
  release(events);
  return types;
}

int ModuleTest::logged(int level, const std::string& text) const {
  int count = 0;
  for (const LogLine& line : platform.log()) {
    if (line.level == level && line.text == text && line.facility == 30 && line.label == "erps") {
      ++count;
    }
  }
  return count;
}

int ModuleTest::logged_at(const std::string& function, const std::string& text) const {
  int count = 0;
  for (const LogLine& line : platform.log()) {
    const size_t colon = line.text.find(':');
    const size_t close = line.text.find(']');
    if (line.level != 7 || line.facility != 30 || line.text.rfind('[', 0) != 0 ||
        colon == std::string::npos || close == std::string::npos || close < colon + 2 ||
        line.text.find_first_not_of("0123456789", colon + 1) != close) {
      continue;
    }
    const bool named = function.empty() || line.text.compare(1, colon - 1, function) == 0;
    count += named && line.text.compare(close + 1, std::string::npos, text) == 0 ? 1 : 0;
  }
  return count;
}

int ModuleTest::logged_part(const std::string& text) const {
  int count = 0;
  for (const LogLine& line : platform.log()) {
    count += line.text.find(text) != std::string::npos ? 1 : 0;
  }
  return count;
}

}  // namespace erps::test
