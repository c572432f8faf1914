// A stand-in for the module's management server: the two queues and a thread that answers.
//
// It keeps rings well enough for a client's tests, and any command's answer can be replaced. Like
// the real one it has a single reply buffer that commands without data leave alone.
#pragma once

#include <mqueue.h>
#include <stdint.h>

#include <array>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "client/management_queue.h"
#include "erps/mgmt/message.h"
#include "platform/event_queue.h"

namespace erps::test {

struct FakeRing {
  std::array<uint32_t, 24> words{};
  std::array<uint8_t, 6> node_id{2, 0, 0, 0, 0, 1};
};

class FakeModule {
 public:
  struct Seen {
    long type;
    mgmt::RequestText text;
    size_t length;
  };
  // What to do in place of the built-in answer: write the reply and its length in bytes; false
  // sends none.
  using Answer = std::function<bool(const Seen& request, uint8_t* text, size_t* length)>;

  struct Options {
    bool serve = true;  // false: the queues are there, nobody takes anything
    bool door = true;   // false: no event queue
    bool queue = true;  // false: no management queue
    long door_depth = 10;
    bool adopt_queue = false;  // true: opens the management queue as the real module does
    int queue_mode = 0600;
    mode_t door_mode = 0600;
  };

  FakeModule() : FakeModule(Options{}) {}
  explicit FakeModule(const Options& options);
  ~FakeModule();
  FakeModule(const FakeModule&) = delete;
  FakeModule& operator=(const FakeModule&) = delete;

  void answer(mgmt::Command command, Answer answer);
  void add(uint32_t ring, uint32_t port0, uint32_t port1);
  // Changes a ring under the lock.
  void change(uint32_t ring, const std::function<void(FakeRing&)>& change);
  std::vector<Seen> seen();
  std::vector<ERPS_EVENT_MSG_T> events();
  std::optional<FakeRing> ring(uint32_t id);
  uint32_t guard_ms();
  uint32_t wtr_ms();
  uint32_t holdoff_ms();

  int queue_id() const { return queue_; }
  size_t messages_on_queue() const;
  size_t events_on_door() const;
  void remove_queue();
  // Puts a message of any type on the queue.
  void put(long type, const void* text, size_t length);
  // Takes one message of a type, as a server that is slow would.
  bool take(long type, Seen* request);

 private:
  void run();
  void serve(long type);
  void built_in(const Seen& request);
  void set_number(uint32_t value);
  void set_ring(const FakeRing& ring);
  void set_code(uint32_t code);
  uint32_t do_switch(const mgmt::RequestText& request, uint32_t code, uint32_t state);

  int queue_ = -1;
  bool owns_queue_ = true;
  mqd_t door_ = static_cast<mqd_t>(-1);
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::map<uint32_t, FakeRing> rings_;
  std::map<uint8_t, Answer> answers_;
  std::vector<Seen> seen_;
  std::vector<ERPS_EVENT_MSG_T> events_;
  uint32_t guard_ms_ = 500, wtr_ms_ = 300000, holdoff_ms_ = 0;
  uint8_t reply_[mgmt::kTextCapacity] = {};
  std::thread thread_;
};

}  // namespace erps::test
