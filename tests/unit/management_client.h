// The client's end of the management queue, in an IPC namespace of this test process.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace erps::test {

// Moves the process into an IPC namespace of its own, once, so that no queue of the machine is
// touched. Returns why not, or nothing.
std::optional<std::string> enter_private_ipc_namespace();

struct Reply {
  uint8_t cmd = 0;
  uint32_t data_len = 0;
  uint8_t ret_code = 0;
  std::vector<uint8_t> text;  // everything that arrived behind the type

  std::vector<uint8_t> data() const;  // data_len bytes
};

// Opens the queue with the module's key; -1 when there is none.
int open_management_queue();
void remove_management_queue();

// Text of a request: the command and its 32-bit arguments.
std::vector<uint8_t> request_text(uint8_t cmd, std::initializer_list<uint32_t> arguments);

// False when the queue refused the message.
bool send_request(long type, const std::vector<uint8_t>& text);

// Takes a reply without waiting.
std::optional<Reply> take_reply(long type);

// Messages on the queue.
size_t queued_messages();

}  // namespace erps::test
