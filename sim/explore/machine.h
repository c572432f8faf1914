// One copy of the module that plays every node of a network in turn: its memory is exchanged.
//
// A node's memory is the module's writable variables, the node's heap and what the platform keeps
// for it. An operation is one step of the module from rest to rest: the handling of one event, or
// one walk of its timers. The same operation on the same memory gives the same memory and the same
// frames, always: nothing else reaches the module.
//
// The module's clock stands still between its ticks but for this: what happens to a node happens
// either right after its tick or right before its next one. Every period that is no whole number of
// seconds is over after the shorter number of ticks in the one case and after the longer one in the
// other. When a tick is done, all that is remembered of time is made one second younger: states
// that differ in the time of day alone are the same.
//
// Threading: one machine at a time in a process, one thread. Errors: SimError for what cannot be
// set up; what the module must not do is told in the outcome.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/event_queue.h"
#include "platform/task.h"
#include "sim/explore/node_memory.h"
#include "sim/explore/resting_task.h"
#include "sim/management.h"
#include "sim/module_copy.h"
#include "sim/module_records.h"
#include "sim/topology.h"

namespace erps::sim::explore {

// Which half of a node's second: right behind its tick, or right before the next one.
enum class Half : uint8_t { kFirst, kSecond };

inline constexpr size_t kMostPorts = 8;  // numbers 1 to 7

// A node's memory, in words.
using Image = std::vector<uint64_t>;

struct SentFrame {
  uint32_t port = 0;
  std::vector<uint8_t> bytes;
};

struct Outcome {
  std::vector<SentFrame> sent;
  std::string violation;  // what the module must not do, or empty
};

class Machine {
 public:
  Machine(const std::string& module_path, const std::vector<NodePlan>& plans);
  ~Machine();
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // The memory of the node that the machine plays now.
  void save(Image& image) const;
  void load(const Image& image);

  // Operations. carriers: bit p set where port p has a carrier. Booting replaces the memory by that
  // of a node that starts and is configured.
  Outcome boot(NodeIndex node, uint32_t carriers);
  Outcome frame(uint32_t port, const std::vector<uint8_t>& bytes, Half half);
  Outcome carrier(uint32_t port, bool up, Half half);
  Outcome own_event(Half half);  // the first of those that wait
  Outcome tick();
  // refused is set when the module does not accept it.
  Outcome command(const Request& request, Half half, bool& refused);

  // Of the node as it is in memory.
  NodeIndex node() const { return platform_->node; }
  uint32_t own_events() const { return platform_->waiting; }
  uint32_t forwarding_ports() const { return platform_->forwarding; }  // bit p: port p
  uint32_t open_ports() const { return platform_->forwarding & platform_->carriers; }
  ModuleRecords records() const { return {addresses_, clock_us(Half::kFirst)}; }

  // For the module's calls.
  static Machine& running();
  struct Platform {
    uint64_t node;
    uint32_t forwarding;
    uint32_t carriers;
    uint32_t captures;
    uint32_t locked;
    uint32_t queue_open;
    uint32_t waiting;  // of own:
    std::array<ERPS_EVENT_MSG_T, 16> own;
    NodeMemory memory;
  };
  struct Packet {  // as platform/packet_buffer.h lays it out
    uint64_t unused = 0;
    uint32_t handle = 1;
    uint16_t unused_too = 0;
    uint16_t length = 0;
    uint32_t port = 0;
    const std::vector<uint8_t>* bytes = nullptr;
  };
  Platform& platform() { return *platform_; }
  const NodePlan& plan() const { return plans_.at(platform_->node); }
  Packet* packet() { return packet_given_ ? &packet_ : nullptr; }
  void packet_back();
  int64_t now_us() const { return now_us_; }
  int start_task(erps_task_desc& description);
  int next_event(ERPS_EVENT_MSG_T& event);
  void sleep();
  void send(uint32_t port, const uint8_t* bytes, size_t length);
  const Request& request() const { return request_; }
  void answer(const uint8_t* text, size_t length);
  void violate(const std::string& text);

 private:
  struct LinkRecord {
    uint32_t unused = 0;
    uint16_t interface = 0;
    uint16_t state = 0;
  };

  static int64_t clock_us(Half half);
  Outcome handle(const ERPS_EVENT_MSG_T& event, Half half);
  Outcome finish(uint32_t seconds);
  void configure();

  const std::vector<NodePlan> plans_;
  ModuleCopy module_;
  RecordAddresses addresses_;
  uint64_t* variables_ = nullptr;
  size_t variable_words_ = 0;
  Image initial_variables_;
  std::unique_ptr<Platform> platform_;
  std::array<RestingTask, 2> tasks_;  // the protocol's, the timers'
  size_t started_ = 0;
  int64_t now_us_ = 0;
  ERPS_EVENT_MSG_T event_{};
  LinkRecord link_;
  Packet packet_;
  bool packet_given_ = false;
  Request request_{};
  uint8_t ret_code_ = 0;
  bool answered_ = false;
  Outcome outcome_;
};

// The functions that the module's imports are led to.
void* machine_import(std::string_view name);

}  // namespace erps::sim::explore
