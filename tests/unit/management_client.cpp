#include "tests/unit/management_client.h"

#include <sched.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "erps/mgmt/message.h"

// The call itself: msgget is redirected to the recording platform, which writes down what the
// module does, not what the client does.
extern "C" int __real_msgget(key_t key, int flags);

namespace erps::test {
namespace {

constexpr size_t kMostText = 4096;

struct Message {
  long type;
  uint8_t text[kMostText];
};

}  // namespace

std::optional<std::string> enter_private_ipc_namespace() {
  static const int error = unshare(CLONE_NEWIPC) == 0 ? 0 : errno;
  if (error == 0) {
    return std::nullopt;
  }
  return std::string("no private IPC namespace (") + strerror(error) +
         "): run as root or with CAP_SYS_ADMIN";
}

int open_management_queue() {
  return __real_msgget(mgmt::kQueueKey, 0);
}

void remove_management_queue() {
  if (enter_private_ipc_namespace()) {
    return;  // it would be the machine's
  }
  const int id = open_management_queue();
  if (id >= 0) {
    msgctl(id, IPC_RMID, nullptr);
  }
}

std::vector<uint8_t> Reply::data() const {
  const size_t begin = 9;
  const size_t end = std::min<size_t>(text.size(), begin + data_len);
  return {text.begin() + begin, text.begin() + static_cast<std::ptrdiff_t>(end)};
}

std::vector<uint8_t> request_text(uint8_t cmd, std::initializer_list<uint32_t> arguments) {
  std::vector<uint8_t> text(8 + 4 * arguments.size(), 0);
  text[0] = cmd;
  size_t offset = 8;
  for (const uint32_t argument : arguments) {
    memcpy(&text[offset], &argument, sizeof argument);
    offset += sizeof argument;
  }
  return text;
}

bool send_request(long type, const std::vector<uint8_t>& text) {
  Message message{};
  message.type = type;
  std::copy(text.begin(), text.end(), message.text);
  return msgsnd(open_management_queue(), &message, text.size(), IPC_NOWAIT) == 0;
}

std::optional<Reply> take_reply(long type) {
  Message message{};
  const ssize_t length =
      msgrcv(open_management_queue(), &message, sizeof message.text, type, IPC_NOWAIT);
  if (length < 9) {
    return std::nullopt;
  }
  Reply reply;
  reply.cmd = message.text[0];
  memcpy(&reply.data_len, message.text + 4, sizeof reply.data_len);
  reply.ret_code = message.text[8];
  reply.text.assign(message.text, message.text + length);
  return reply;
}

size_t queued_messages() {
  msqid_ds status{};
  return msgctl(open_management_queue(), IPC_STAT, &status) == 0 ? status.msg_qnum : 0;
}

}  // namespace erps::test
