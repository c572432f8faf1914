// The node that a scenario plays on: a fresh module on the recording platform, driven only from
// outside, through events, management requests and time.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "tests/conformance/effects.h"
#include "tests/unit/fixture.h"

namespace erps::test {

// Steps:
//   ring 1 ports 1 2 [vlan 100] [owner|neighbour|plain|role N] [ring-role N]
//   sub-ring 2 of 1 port 3 [owner|neighbour|plain|role N] [watching|marking|inter N]
//   enable 1, disable 1, delete 1, read 1, revertive 1, non-revertive 1, clear 1
//   fs 1 port 2, ms 1 port 2, guard MS, wtr MS, holdoff MS
//   node 1 MAC, port 1 state 4, rule MAC, remove rule
//   command N [ARGUMENT...]       any command by its number
//   request N of L bytes          a request as long as that
//   client type N                 from now on, requests have this message type; replies show it
//   no request                    announced, but not on the queue
//   link 1 up|down|N              the platform's report; the port reads so from now on
//   physical 1 up|down|N          without a report
//   frame on 2: SF [RB] [DNF] [BPR] [by NODE] [ring N] [vlan N|untagged] [sub N] [source NODE]
//   bytes on 2: HEX               any frame
//   event N                       of the protocol task's queue, without payload
//   wait 5s, wait 300ms           the timer task walks once a second, or at the end
//   hold events, handle events    posted events wait until told; otherwise they are handled at once
//   broken X, mended X            state N, ask N, flush, transmit, link N, nic, reception, queue,
//                                 reply, capture, task NAME, memory N (the n-th allocation
//                                 from now)
//   switch says 1 is 4            what asking for a port's state gives, whatever was set
//   nic is MAC
//   start module, stop module, exit module, init module
class Stage {
 public:
  explicit Stage(bool traced);
  ~Stage();
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  // Throws std::runtime_error when the step is not understood.
  void perform(const std::string& step);

  // What was seen since the last call.
  std::vector<Effect> take_effects();

  // Compares "ring 1 is idle, local 0, ..." with what management reads. Empty when it holds.
  std::string mismatch(const std::string& state) const;

 private:
  using Words = std::vector<std::string>;

  bool manage(const Words& words);
  bool command_step(const Words& words);
  bool environment_step(const Words& words);
  void request(uint8_t cmd, const std::vector<uint32_t>& arguments,
               const std::vector<uint8_t>& tail = {});
  void announce();
  void frame_step(const Words& words, const std::string& step);
  void deliver(uint32_t port, const std::vector<uint8_t>& bytes);
  void link(uint32_t port, uint32_t value);
  void wait(const std::string& time);
  void set_broken(const Words& words, bool broken);
  void dispatch(uintptr_t type, uintptr_t payload);
  void handle_events();
  void collect();  // turns the journal into effects

  RecordingPlatform& platform_;
  ManagementClient client_;
  std::vector<Effect> effects_;
  bool holding_ = false;
  bool traced_;
};

}  // namespace erps::test
