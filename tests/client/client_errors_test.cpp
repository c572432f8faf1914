// Every way in which a request can fail to be answered has an error of its own, and leaves nothing
// behind on the queues.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <ostream>
#include <string>

#include "client/client.h"
#include "client/error.h"
#include "tests/client/fake_module.h"
#include "tests/client/ipc_namespace.h"

namespace erps::test {
namespace {

using client::Client;
using client::ClientError;
using client::ErrorKind;
using std::chrono::milliseconds;

class ClientErrors : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_IPC_NAMESPACE(); }
};

struct Failure {
  ErrorKind kind;
  std::string text;
};

// The error of a call that has to fail.
Failure failure_of(const std::function<void()>& call) {
  try {
    call();
  } catch (const ClientError& error) {
    return {error.kind(), error.what()};
  }
  ADD_FAILURE() << "the call did not fail";
  return {ErrorKind::kSystem, ""};
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

bool no_reply(const FakeModule::Seen&, uint8_t*, size_t*) {
  return false;
}

// Time enough for the stand-in to take a request on a busy machine.
constexpr milliseconds kTakenWithin{400};

// Runs the call as a user without any privilege; its error kind, or -1 when it did not fail.
int kind_for_stranger(const std::function<void()>& call) {
  constexpr uid_t kNobody = 65534;
  const pid_t child = fork();
  if (child == 0) {
    if (setresgid(kNobody, kNobody, kNobody) != 0 || setresuid(kNobody, kNobody, kNobody) != 0) {
      _exit(200);
    }
    try {
      call();
    } catch (const ClientError& error) {
      _exit(static_cast<int>(error.kind()));
    }
    _exit(201);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(ClientErrors, WithoutManagementQueueTheDaemonIsNotRunning) {
  const Failure failure = failure_of([] { Client().guard_ms(); });
  EXPECT_EQ(failure.kind, ErrorKind::kNoDaemon);
  EXPECT_EQ(failure.text,
            "the management queue (key 10552) does not exist: the daemon is not running");
  EXPECT_EQ(msgget(mgmt::kQueueKey, 0), -1) << "the client created the queue";
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(ClientErrors, StrangerMayNotUseTheManagementQueue) {
  FakeModule module;
  EXPECT_EQ(kind_for_stranger([] { Client().guard_ms(); }),
            static_cast<int>(ErrorKind::kPermission));
}

TEST_F(ClientErrors, StrangerMayNotAnnounceAndHisRequestIsTakenBack) {
  FakeModule module({.queue_mode = 0666});
  EXPECT_EQ(kind_for_stranger([] { Client().guard_ms(); }),
            static_cast<int>(ErrorKind::kPermission));
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

TEST_F(ClientErrors, WithoutEventQueueTheModuleIsNotStarted) {
  FakeModule module({.door = false});
  const Failure failure = failure_of([] { Client().guard_ms(); });
  EXPECT_EQ(failure.kind, ErrorKind::kNoDoor);
  EXPECT_EQ(failure.text,
            "the event queue /erps_event_queue does not exist: the module is not started");
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

TEST_F(ClientErrors, EventQueueThatStaysFullIsToldAndTheRequestTakenBack) {
  FakeModule module({.serve = false, .door_depth = 1});
  const mqd_t door = mq_open(mgmt::kEventQueueName, O_WRONLY);
  ASSERT_NE(door, static_cast<mqd_t>(-1));
  const char other[sizeof(ERPS_EVENT_MSG_T)] = {};
  ASSERT_EQ(mq_send(door, other, sizeof other, 0), 0);
  mq_close(door);

  const Failure failure = failure_of([] { Client(milliseconds(100)).guard_ms(); });
  EXPECT_EQ(failure.kind, ErrorKind::kDoorFull);
  EXPECT_TRUE(contains(failure.text, "/erps_event_queue stays full")) << failure.text;
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

TEST_F(ClientErrors, ManagementQueueThatStaysFullIsToldAndNothingAnnounced) {
  FakeModule module({.serve = false});
  msqid_ds state{};
  ASSERT_EQ(msgctl(module.queue_id(), IPC_STAT, &state), 0);
  const char filler[1024] = {};
  for (size_t used = 0; used + sizeof filler <= state.msg_qbytes; used += sizeof filler) {
    module.put(7, filler, sizeof filler);
  }
  const Failure failure = failure_of([] { Client(milliseconds(100)).guard_ms(); });
  EXPECT_EQ(failure.kind, ErrorKind::kQueueFull);
  EXPECT_TRUE(contains(failure.text, "stays full")) << failure.text;
  EXPECT_EQ(module.events_on_door(), 0u);
}

TEST_F(ClientErrors, UntouchedRequestTimesOutAndIsWithdrawn) {
  FakeModule module({.serve = false});
  const auto start = std::chrono::steady_clock::now();
  const Failure failure = failure_of([] { Client(milliseconds(50)).enable_ring(3); });
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(failure.kind, ErrorKind::kTimeout);
  EXPECT_EQ(failure.text,
            "enable ring 3: no reply within 50 ms; the module did not take the request, which was "
            "withdrawn");
  EXPECT_GE(took, milliseconds(50));
  EXPECT_LT(took, milliseconds(1000));
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

TEST_F(ClientErrors, TakenRequestWithoutReplyTimesOutAndSaysThatItMayStillBeDone) {
  FakeModule module;
  module.answer(mgmt::kSetEnable, no_reply);
  const Failure failure = failure_of([] { Client(kTakenWithin).enable_ring(3); });
  EXPECT_EQ(failure.kind, ErrorKind::kTimeout);
  EXPECT_EQ(
      failure.text,
      "enable ring 3: no reply within 400 ms; the module took the request and may still carry "
      "it out");
}

TEST_F(ClientErrors, LateReplyIsThrownAwayByTheNextRequestAndNotTakenForItsReply) {
  FakeModule module;
  module.answer(mgmt::kGetGuardTime, no_reply);
  Client client(kTakenWithin);
  EXPECT_EQ(failure_of([&] { client.guard_ms(); }).kind, ErrorKind::kTimeout);

  const uint8_t late[16] = {mgmt::kGetGuardTime, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 0, 99};
  module.put(module.seen().back().type | mgmt::kReplyTypeFlag, late, sizeof late);
  ASSERT_EQ(module.messages_on_queue(), 1u);
  module.answer(mgmt::kGetGuardTime, nullptr);
  EXPECT_EQ(client.guard_ms(), 500u);
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

TEST_F(ClientErrors, LateReplyIsThrownAwayByTheDestructor) {
  FakeModule module;
  module.answer(mgmt::kGetGuardTime, no_reply);
  {
    Client client(kTakenWithin);
    EXPECT_EQ(failure_of([&] { client.guard_ms(); }).kind, ErrorKind::kTimeout);
    const uint8_t late[16] = {mgmt::kGetGuardTime};
    module.put(module.seen().back().type | mgmt::kReplyTypeFlag, late, sizeof late);
  }
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

TEST_F(ClientErrors, DaemonThatStopsWhileTheReplyIsAwaited) {
  FakeModule module;
  const int queue = module.queue_id();
  module.answer(mgmt::kGetGuardTime, [queue](const FakeModule::Seen&, uint8_t*, size_t*) {
    msgctl(queue, IPC_RMID, nullptr);
    return false;
  });
  const Failure failure = failure_of([] { Client().guard_ms(); });
  EXPECT_EQ(failure.kind, ErrorKind::kDaemonStopped);
  EXPECT_EQ(failure.text, "the management queue (key 10552) was removed: the daemon stopped");
}

struct Malformed {
  const char* name;
  size_t length;
  uint8_t command;
  uint32_t data_length;
  const char* expected;
};

void PrintTo(const Malformed& param, std::ostream* out) {
  *out << param.name;
}

class MalformedReplies : public testing::TestWithParam<Malformed> {
 protected:
  void SetUp() override { REQUIRE_IPC_NAMESPACE(); }
};

TEST_P(MalformedReplies, IsRefusedWithWhatIsWrong) {
  const Malformed& reply = GetParam();
  FakeModule module;
  module.answer(mgmt::kGetGuardTime, [&](const FakeModule::Seen&, uint8_t* text, size_t* length) {
    memset(text, 0, mgmt::kTextCapacity);
    text[0] = reply.command;
    memcpy(text + offsetof(mgmt::ReplyText, data_len), &reply.data_length,
           sizeof reply.data_length);
    *length = reply.length;
    return true;
  });
  const Failure failure = failure_of([] { Client().guard_ms(); });
  EXPECT_EQ(failure.kind, ErrorKind::kMalformedReply);
  EXPECT_EQ(failure.text, reply.expected);
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    All, MalformedReplies,
    testing::Values(
        Malformed{"WithoutReturnCode", 8, mgmt::kGetGuardTime, 4,
                  "read the guard time: malformed reply: only 8 bytes long"},
        Malformed{"ToAnotherCommand", 16, mgmt::kGetWtrTime, 4,
                  "read the guard time: malformed reply: it answers command 16, not 14"},
        Malformed{"WithTooMuchDataAnnounced", 16, mgmt::kGetGuardTime, 5,
                  "read the guard time: malformed reply: 5 bytes of data announced and 7 there, "
                  "where 4 were due"},
        Malformed{"WithDataCutOff", 12, mgmt::kGetGuardTime, 4,
                  "read the guard time: malformed reply: 4 bytes of data announced and 3 there, "
                  "where 4 were due"}),
    [](const testing::TestParamInfo<Malformed>& param) { return param.param.name; });

TEST_F(ClientErrors, ReplyLongerThanAnyReplyIsRefusedAndTakenOffTheQueue) {
  FakeModule module({.serve = true});
  const int queue = module.queue_id();
  module.answer(mgmt::kGetGuardTime, [queue](const FakeModule::Seen& request, uint8_t*, size_t*) {
    struct {
      long type;
      char text[mgmt::kTextCapacity + 1];
    } message{};
    message.type = request.type | mgmt::kReplyTypeFlag;
    msgsnd(queue, &message, sizeof message.text, IPC_NOWAIT);
    return false;
  });
  const Failure failure = failure_of([] { Client().guard_ms(); });
  EXPECT_EQ(failure.kind, ErrorKind::kMalformedReply);
  EXPECT_EQ(failure.text, "malformed reply: longer than 1024 bytes");
  EXPECT_EQ(module.messages_on_queue(), 0u);
}

TEST_F(ClientErrors, StatusOfAnotherRingIsRefused) {
  FakeModule module;
  module.add(5, 1, 2);
  module.change(5, [](FakeRing& ring) { ring.words[mgmt::kRingId] = 6; });
  const Failure failure = failure_of([] { Client().read_ring(5); });
  EXPECT_EQ(failure.kind, ErrorKind::kMalformedReply);
  EXPECT_EQ(failure.text, "read ring 5: malformed reply: it is about ring 6");
}

}  // namespace
}  // namespace erps::test
