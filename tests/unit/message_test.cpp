#include "erps/mgmt/message.h"

#include <gtest/gtest.h>

#include <cstring>

namespace erps::mgmt {
namespace {

TEST(MessageTest, QueueAndEventNumbers) {
  EXPECT_EQ(kQueueKey, 0x2938);
  EXPECT_STREQ(kEventQueueName, "/erps_event_queue");
  EXPECT_EQ(kEventClass, 3U);
  EXPECT_EQ(kEventTypeConf, 4U);
}

TEST(MessageTest, RequestArgumentsStartAtTextByteEight) {
  const uint8_t text[32] = {23, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0,
                            3,  0, 0, 0, 4, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0};
  RequestText request;
  static_assert(sizeof request == sizeof text);
  memcpy(&request, text, sizeof text);
  EXPECT_EQ(request.cmd, kForcedSwitch);
  for (uint32_t i = 0; i < kArgumentCount; ++i) {
    EXPECT_EQ(request.arg[i], i + 1);  // machine order
  }
}

TEST(MessageTest, ReplyFieldsStandAtTheirBytes) {
  EXPECT_EQ(offsetof(ReplyText, cmd), 0U);
  EXPECT_EQ(offsetof(ReplyText, data_len), 4U);
  EXPECT_EQ(offsetof(ReplyText, ret_code), 8U);
  EXPECT_EQ(offsetof(ReplyText, data), 9U);
  EXPECT_EQ(sizeof(ReplyText), 1024U);
}

TEST(MessageTest, ReturnCodeIsTheNegatedResultInEightBits) {
  EXPECT_EQ(ret_code_of(kDone), 0);
  EXPECT_EQ(ret_code_of(kRingRunning), 0xFE);
  EXPECT_EQ(ret_code_of(kNoSuchRing), 0xFD);
  EXPECT_EQ(ret_code_of(kNoSuchPort), 0xE9);
  EXPECT_EQ(ret_code_of(256), 0);
  EXPECT_EQ(ret_code_of(257), 0xFF);
}

TEST(MessageTest, ReplyTypeKeepsTheLowBitsOfTheRequestType) {
  EXPECT_EQ((5L & kReplyTypeMask) | kReplyTypeFlag, 0x40000005L);
  EXPECT_EQ((0x80000001L & kReplyTypeMask) | kReplyTypeFlag, 0x40000001L);
}

TEST(MessageTest, CommandAndResultCodes) {
  EXPECT_EQ(kSetEnable, 0);
  EXPECT_EQ(kAddRing, 2);
  EXPECT_EQ(kGetRing, 3);
  EXPECT_EQ(kGetAnyRingEnabled, 4);
  EXPECT_EQ(kDeleteRing, 5);
  EXPECT_EQ(kSetRingRole, 7);
  EXPECT_EQ(kSetRevertiveMode, 9);
  EXPECT_EQ(kSetGuardTime, 13);
  EXPECT_EQ(kGetGuardTime, 14);
  EXPECT_EQ(kSetWtrTime, 15);
  EXPECT_EQ(kGetWtrTime, 16);
  EXPECT_EQ(kSetHoldoffTime, 19);
  EXPECT_EQ(kGetHoldoffTime, 20);
  EXPECT_EQ(kManualSwitch, 21);
  EXPECT_EQ(kForcedSwitch, 23);
  EXPECT_EQ(kClear, 25);
  EXPECT_EQ(kShowRingConf, 27);
  EXPECT_EQ(kAttachSubRing, 30);
  EXPECT_EQ(kModifyRingRole, 31);
  EXPECT_EQ(kSetNodeId, 32);
  EXPECT_EQ(kSetPortState, 33);
  EXPECT_EQ(kCaptureRuleAdd, 34);
  EXPECT_EQ(kCaptureRuleDelete, 35);
  EXPECT_EQ(kDebugSwitch, 36);
  EXPECT_EQ(kNoReply, 37);
  EXPECT_EQ(kCommandCount, 38);

  EXPECT_EQ(kRingRunningNoChange, 4U);
  EXPECT_EQ(kVlanInUse, 9U);
  EXPECT_EQ(kSamePorts, 11U);
  EXPECT_EQ(kPortInUse, 12U);
  EXPECT_EQ(kSameRingIds, 14U);
  EXPECT_EQ(kNotThisMajorRing, 18U);
  EXPECT_EQ(kNoMemory, 22U);
  EXPECT_EQ(kNoMajorRing, 24U);
  EXPECT_EQ(kSubRingRoleFixed, 25U);
  EXPECT_EQ(kSubRingRoleNotSettable, 27U);
  EXPECT_EQ(kCaptureFailed, 28U);
}

TEST(MessageTest, RingConfigurationEndsWithTheNodeId) {
  EXPECT_EQ(kRingConfBytes, 96U);
  EXPECT_EQ(kNodeId * 4, kRingConfNodeIdOffset);
}

}  // namespace
}  // namespace erps::mgmt
