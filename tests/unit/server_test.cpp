#include "erps/mgmt/server.h"

#include <sys/ipc.h>
#include <sys/msg.h>

#include <algorithm>
#include <cstring>

#include "erps/mgmt/handlers.h"
#include "erps/ring/ring_list.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/fixture.h"
#include "tests/unit/management_client.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr long kType = 5;
constexpr long kReplyType = 0x40000005;

class ServerTest : public ModuleTest {
 protected:
  void SetUp() override {
    const std::optional<std::string> refusal = enter_private_ipc_namespace();
    if (refusal) {
      GTEST_SKIP() << "MANAGEMENT QUEUE NOT TESTED: " << *refusal;
    }
    remove_management_queue();
    ASSERT_EQ(erps_user_srv_init(), 0);
  }

  void TearDown() override { remove_management_queue(); }

  // Sends a request, has it served and takes the answer.
  Reply ask(uint8_t cmd, std::initializer_list<uint32_t> arguments = {}) {
    return ask_text(request_text(cmd, arguments));
  }

  Reply ask_text(const std::vector<uint8_t>& text) {
    EXPECT_TRUE(send_request(kType, text));
    EXPECT_EQ(erps_conf_manage(kType), 0);
    const std::optional<Reply> reply = take_reply(kReplyType);
    EXPECT_TRUE(reply.has_value()) << "no reply to command " << int{text.at(0)};
    return reply.value_or(Reply());
  }

  // What the module wrote to standard error while serving; `result` of the call.
  static std::string serve_capturing(long type, int32_t* result) {
    testing::internal::CaptureStderr();
    *result = erps_conf_manage(type);
    return testing::internal::GetCapturedStderr();
  }
};

// --- The queue

TEST_F(ServerTest, QueueIsCreatedForAllUnderItsKey) {
  EXPECT_THAT(platform.calls({"msgget"}), ElementsAre("msgget(10552, 950)"));
  EXPECT_GE(erps_user_msgid, 0);
  EXPECT_EQ(erps_user_msgid, open_management_queue());
}

TEST_F(ServerTest, ExistingQueueIsUsedWithItsMessages) {
  const int first = erps_user_msgid;
  ASSERT_TRUE(send_request(kType, request_text(14, {})));
  EXPECT_EQ(erps_user_srv_init(), 0);
  EXPECT_EQ(erps_user_msgid, first);
  EXPECT_EQ(erps_conf_manage(kType), 0);
}

TEST_F(ServerTest, QueueThatCannotBeOpenedIsReported) {
  platform.fail_msgget(true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(erps_user_srv_init(), -1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), StartsWith("msgget_open user: "));
}

TEST_F(ServerTest, NothingIsReceivedFromAQueueThatWasNeverOpened) {
  erps_user_msgid = -1;
  int32_t result = 0;
  EXPECT_THAT(serve_capturing(kType, &result), StartsWith("msgrcv srv: "));
  EXPECT_EQ(result, -1);
}

TEST_F(ServerTest, MissingRequestIsReportedAndNotWaitedFor) {
  int32_t result = 0;
  EXPECT_THAT(serve_capturing(kType, &result), StartsWith("msgrcv srv: "));
  EXPECT_EQ(result, -1);
}

TEST_F(ServerTest, OnlyTheRequestOfThatTypeIsTaken) {
  ASSERT_TRUE(send_request(6, request_text(14, {})));
  int32_t result = 0;
  serve_capturing(kType, &result);
  EXPECT_EQ(result, -1);
  EXPECT_EQ(queued_messages(), 1U);
}

TEST_F(ServerTest, ExactlyOneRequestIsTakenForEachEvent) {
  ASSERT_TRUE(send_request(kType, request_text(14, {})));
  ASSERT_TRUE(send_request(kType, request_text(16, {})));
  EXPECT_EQ(erps_conf_manage(kType), 0);
  EXPECT_EQ(take_reply(kReplyType)->cmd, 14);
  EXPECT_EQ(queued_messages(), 1U);
  EXPECT_EQ(erps_conf_manage(kType), 0);
  EXPECT_EQ(take_reply(kReplyType)->cmd, 16);
}

// --- Replies

TEST_F(ServerTest, ReplyTypeIsMadeOfTheAnnouncedType) {
  ASSERT_TRUE(send_request(5, request_text(14, {})));
  EXPECT_EQ(erps_conf_manage(5), 0);
  EXPECT_TRUE(take_reply(0x40000005).has_value());

  ASSERT_TRUE(send_request(0x12345, request_text(14, {})));
  EXPECT_EQ(erps_conf_manage(0x12345), 0);
  EXPECT_TRUE(take_reply(0x40012345).has_value());

  ASSERT_TRUE(send_request(0x80000007L, request_text(14, {})));
  EXPECT_EQ(erps_conf_manage(0x80000007L), 0);
  EXPECT_TRUE(take_reply(0x40000007).has_value());
}

TEST_F(ServerTest, ReplyEchoesTheCommandAndIsDataPlusTwelveBytesLong) {
  const Reply reply = ask(14);
  EXPECT_EQ(reply.cmd, 14);
  EXPECT_EQ(reply.ret_code, 0);
  EXPECT_EQ(reply.data_len, 4U);
  EXPECT_EQ(reply.text.size(), 16U);
  EXPECT_EQ(reply.data(), (std::vector<uint8_t>{0, 0, 1, 0xF4}));
}

TEST_F(ServerTest, FirstReplyWithoutDataIsTwelveBytesLong) {
  const Reply reply = ask(13, {500});
  EXPECT_EQ(reply.data_len, 0U);
  EXPECT_EQ(reply.text.size(), 12U);
}

TEST_F(ServerTest, UnwrittenReplyBytesAreZero) {
  const Reply reply = ask(4);
  EXPECT_EQ(reply.text, (std::vector<uint8_t>{4, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ServerTest, WriteAfterAReadRepeatsItsLengthAndBytes) {
  ask(13, {0x0A0B});
  EXPECT_EQ(ask(14).data(), (std::vector<uint8_t>{0, 0, 0x0A, 0x0B}));
  const Reply reply = ask(15, {60'000});
  EXPECT_EQ(reply.cmd, 15);
  EXPECT_EQ(reply.ret_code, 0);
  EXPECT_EQ(reply.data_len, 4U);
  EXPECT_EQ(reply.data(), (std::vector<uint8_t>{0, 0, 0x0A, 0x0B}));
  EXPECT_EQ(reply.text.size(), 16U);
}

TEST_F(ServerTest, ShorterReadLeavesTheBytesOfTheLongerOneBehindItsData) {
  ask(2, {1, 1, 2, 100, 4, 0});
  EXPECT_EQ(ask(3, {1}).data_len, 96U);
  const Reply reply = ask(14);
  EXPECT_EQ(reply.text.size(), 16U);
  EXPECT_EQ(reply.text[13], 0);  // second word of the configuration: state init
  const Reply write = ask(13, {500});
  EXPECT_EQ(write.data_len, 4U);
}

TEST_F(ServerTest, FailedReadOfAConfigurationSetsTheLengthToZero) {
  EXPECT_EQ(ask(14).data_len, 4U);
  const Reply reply = ask(3, {99});
  EXPECT_EQ(reply.ret_code, 0xFD);
  EXPECT_EQ(reply.data_len, 0U);
  EXPECT_EQ(reply.text.size(), 12U);
  EXPECT_EQ(ask(13, {500}).text.size(), 12U);
}

TEST_F(ServerTest, CommandsWithoutOperationRepeatTheWholeLastReply) {
  EXPECT_EQ(ask(5, {99}).ret_code, 0xFD);
  ask(14);
  EXPECT_EQ(ask(5, {99}).ret_code, 0xFD);
  for (const uint8_t cmd : {22, 24, 27}) {
    const Reply reply = ask(cmd, {1, 2});
    EXPECT_EQ(reply.cmd, cmd);
    EXPECT_EQ(reply.ret_code, 0xFD);
    EXPECT_EQ(reply.data(), (std::vector<uint8_t>{0, 0, 1, 0xF4}));
  }
}

TEST_F(ServerTest, RoleModificationRepeatsTheLastReturnCode) {
  ask(2, {1, 1, 2, 100, 4, 0});
  EXPECT_EQ(ask(5, {99}).ret_code, 0xFD);
  EXPECT_EQ(ask(31, {1, 1}).ret_code, 0xFD);
  EXPECT_EQ(erpsapi_erpsm_find(1)->ring_role, 1U);
  EXPECT_EQ(ask(7, {1, 0}).ret_code, 0);
  EXPECT_EQ(ask(31, {99, 1}).ret_code, 0);
}

// --- Commands

TEST_F(ServerTest, UnknownCommandsAreAnsweredWithFFAndLogged) {
  std::vector<int> unknown = {1, 6, 8, 10, 11, 12, 17, 18, 26, 28, 29};
  for (int cmd = 38; cmd <= 255; ++cmd) {
    unknown.push_back(cmd);
  }
  for (const int cmd : unknown) {
    platform.clear_journal();
    const Reply reply = ask(static_cast<uint8_t>(cmd));
    EXPECT_EQ(reply.cmd, cmd);
    EXPECT_EQ(reply.ret_code, 0xFF) << "command " << cmd;
    EXPECT_EQ(logged(3, "UNKONW STP USER MSG :cmd=" + std::to_string(cmd) + " \r\n"), 1)
        << "command " << cmd;
  }
}

TEST_F(ServerTest, UnknownCommandRepeatsTheDataOfTheLastReply) {
  ask(14);
  const Reply reply = ask(1);
  EXPECT_EQ(reply.data_len, 4U);
  EXPECT_EQ(reply.data(), (std::vector<uint8_t>{0, 0, 1, 0xF4}));
}

TEST_F(ServerTest, EveryListedCommandIsKnown) {
  for (const uint8_t cmd : {0,  2,  3,  4,  5,  7,  9,  13, 14, 15, 16, 19, 20,
                            21, 22, 23, 24, 25, 27, 30, 31, 32, 33, 34, 35, 36}) {
    ask(cmd, {200, 0, 0, 0, 0, 0});
    EXPECT_EQ(logged_part("UNKONW"), 0) << "command " << int{cmd};
  }
}

TEST_F(ServerTest, SilentCommandIsTakenAndNotAnswered) {
  ASSERT_TRUE(send_request(kType, request_text(37, {1})));
  EXPECT_EQ(erps_conf_manage(kType), 0);
  EXPECT_EQ(queued_messages(), 0U);
  EXPECT_THAT(platform.log(), IsEmpty());
}

TEST_F(ServerTest, SilentCommandLeavesItsCommandCodeInNoLaterReply) {
  ask(14);
  ASSERT_TRUE(send_request(kType, request_text(37, {})));
  EXPECT_EQ(erps_conf_manage(kType), 0);
  EXPECT_EQ(ask(16).cmd, 16);
}

TEST_F(ServerTest, RingIsConfiguredThroughTheQueueFromAddToDelete) {
  EXPECT_EQ(ask(2, {1, 1, 2, 100, 1, 0}).ret_code, 0);
  EXPECT_EQ(ask(4).data(), (std::vector<uint8_t>{0}));
  EXPECT_EQ(ask(0, {1, 1}).ret_code, 0);
  EXPECT_EQ(ask(4).data(), (std::vector<uint8_t>{1}));
  EXPECT_EQ(ask(5, {1}).ret_code, 0xFE);
  EXPECT_EQ(ask(23, {1, 99}).ret_code, 0xE9);
  EXPECT_EQ(ask(23, {7, 1}).ret_code, 0xFD);
  EXPECT_EQ(ask(3, {1}).data().at(7), 5);  // pending
  EXPECT_EQ(ask(0, {1, 0}).ret_code, 0);
  EXPECT_EQ(ask(23, {1, 99}).ret_code, 0);  // stopped: accepted, nothing done
  EXPECT_EQ(ask(5, {1}).ret_code, 0);
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(ServerTest, MissingCaptureRuleIsDeletedWithSuccess) {
  platform.set_rule_results(0, 0, 0, -1);
  EXPECT_EQ(ask(35).ret_code, 0);
}

TEST_F(ServerTest, CaptureRuleForOneRingStillIgnoresTheLastByte) {
  std::vector<uint8_t> text = request_text(34, {0, 0});
  const uint8_t mac[6] = {0x01, 0x19, 0xA7, 0x00, 0x00, 0x05};
  std::copy(std::begin(mac), std::end(mac), text.begin() + 8);
  EXPECT_EQ(ask_text(text).ret_code, 0);
  EXPECT_THAT(
      platform.calls({"adp_fp_add_entity_qualify"}),
      ::testing::Contains("adp_fp_add_entity_qualify(7, 0119a7000005, 6, ffffffffff00, 6)"));
}

TEST_F(ServerTest, NodeAddressStandsAtTextByteTwelve) {
  ask(2, {1, 1, 2, 100, 4, 0});
  std::vector<uint8_t> text = request_text(32, {1, 0, 0});
  const uint8_t mac[6] = {2, 3, 4, 5, 6, 7};
  std::copy(std::begin(mac), std::end(mac), text.begin() + 12);
  EXPECT_EQ(ask_text(text).ret_code, 0);
  EXPECT_EQ(bytes_of(erpsapi_erpsm_find(1)->local_node_id, 6), bytes_of(mac, 6));
}

// --- Lengths

TEST_F(ServerTest, ArgumentsThatARequestDoesNotHaveAreZero) {
  ask(2, {0xFFFFFFFF, 0x11111111, 0x22222222, 0x33333333, 4, 1});
  ask(5, {0xFFFFFFFF});
  std::vector<uint8_t> text = request_text(2, {9, 1});  // second port, VLAN, roles missing
  EXPECT_EQ(ask_text(text).ret_code, 0);
  const ERPSM_T* ring = erpsapi_erpsm_find(9);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(port0(ring)->port_id, 1U);
  EXPECT_EQ(port1(ring)->port_id, 0U);
  EXPECT_EQ(ring->vlan_id, 0U);
  EXPECT_EQ(ring->node_role, 0U);
  EXPECT_EQ(ring->ring_role, 0U);
}

TEST_F(ServerTest, RequestOfOneByteHasZeroArguments) {
  ask(13, {0xFFFFFFFF});
  EXPECT_EQ(ask_text({13}).ret_code, 0);
  EXPECT_EQ(guard_timer_time, 0U);
}

TEST_F(ServerTest, PartOfAnArgumentCountsAndTheRestIsZero) {
  ask(13, {0xFFFFFFFF});
  EXPECT_EQ(ask_text({13, 0, 0, 0, 0, 0, 0, 0, 0x2A, 0x01}).ret_code, 0);
  EXPECT_EQ(guard_timer_time, 0x012AU);
}

TEST_F(ServerTest, EmptyRequestIsCommandZeroForRingZero) {
  ask(13, {0xFFFFFFFF});
  EXPECT_EQ(ask_text(std::vector<uint8_t>{0}).ret_code, 0xFD);
  ASSERT_TRUE(send_request(kType, {}));
  EXPECT_EQ(erps_conf_manage(kType), 0);
  EXPECT_EQ(take_reply(kReplyType)->cmd, 0);
}

TEST_F(ServerTest, LongestRequestIsServedAndHarmsNothing) {
  std::vector<uint8_t> text(1024, 0xFF);
  text[0] = 14;
  const Reply reply = ask_text(text);
  EXPECT_EQ(reply.cmd, 14);
  EXPECT_EQ(reply.text.size(), 16U);
  EXPECT_EQ(reply.data(), (std::vector<uint8_t>{0, 0, 1, 0xF4}));
  EXPECT_EQ(ask(16).data(), (std::vector<uint8_t>{0, 0, 0, 5}));
}

TEST_F(ServerTest, LongerRequestIsAnErrorAndStaysOnTheQueue) {
  ASSERT_TRUE(send_request(kType, std::vector<uint8_t>(1025, 14)));
  int32_t result = 0;
  EXPECT_THAT(serve_capturing(kType, &result), StartsWith("msgrcv srv: "));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(queued_messages(), 1U);
}

TEST_F(ServerTest, ReplyThatDoesNotFitIsDroppedAndReported) {
  ASSERT_TRUE(send_request(kType, request_text(13, {750})));
  msqid_ds settings{};
  ASSERT_EQ(msgctl(erps_user_msgid, IPC_STAT, &settings), 0);
  settings.msg_qbytes = 8;
  ASSERT_EQ(msgctl(erps_user_msgid, IPC_SET, &settings), 0);
  int32_t result = 0;
  EXPECT_THAT(serve_capturing(kType, &result), StartsWith("msgsnd user srv: "));
  EXPECT_EQ(result, -1);
  EXPECT_EQ(queued_messages(), 0U);
  EXPECT_EQ(guard_timer_time, 750U);  // served all the same
}

}  // namespace
}  // namespace erps::test
