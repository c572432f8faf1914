// One input's life with the module: rings as its first bytes choose them, then what its other bytes
// say, each followed by the checks. The module comes out as it went in.
//
// A target calls these in whatever order its input asks for; each takes its own arguments from the
// input.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/event_queue.h"
#include "tests/fuzz/input.h"
#include "tests/fuzz/platform.h"

namespace erps::fuzz {

class Session {
 public:
  explicit Session(Input& input);
  // Stops and deletes every ring as an operator would; none may refuse.
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Frames: of a few bytes that a sound one is built around, the same with patches and a length of
  // its own, and as they stand in the input.
  void short_frame();
  void patched_frame();
  void raw_frame();

  // Requests: a command with arguments, and as they stand in the input.
  void request();
  void raw_request();

  void link_change();
  void time_passes();
  // Which calls of the platform fail from now on, or none.
  void platform_fails();
  // The module's own events wait from now on, or no longer.
  void hold_events() { held_ = !held_; }

 private:
  void deliver(uint32_t port, std::vector<uint8_t> frame, uint16_t announced);
  void serve(Message request, long announced_type);
  void handle(const ERPS_EVENT_MSG_T& event);
  void handle_own_events();
  std::vector<uint8_t> next_frame();

  Input& input_;
  Platform& platform_;
  bool held_ = false;
};

}  // namespace erps::fuzz
