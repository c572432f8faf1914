// What the module receives for each typed call, and what the caller gets back.
#include <gtest/gtest.h>
#include <stddef.h>
#include <string.h>

#include <ostream>
#include <set>

#include "client/client.h"
#include "client/error.h"
#include "client/words.h"
#include "tests/client/fake_module.h"
#include "tests/client/ipc_namespace.h"

namespace erps::test {
namespace {

using client::Client;
using client::MacAddress;
using client::Refused;
using client::RingStatus;

class ClientRequests : public testing::Test {
 protected:
  void SetUp() override { REQUIRE_IPC_NAMESPACE(); }
};

struct Call {
  const char* name;
  void (*call)(Client&);
  uint8_t command;
  std::array<uint32_t, 6> arguments;
};

void PrintTo(const Call& param, std::ostream* out) {
  *out << param.name;
}

class CallBytes : public testing::TestWithParam<Call> {
 protected:
  void SetUp() override { REQUIRE_IPC_NAMESPACE(); }
};

TEST_P(CallBytes, ArriveAsTheModuleReadsThem) {
  const Call& expected = GetParam();
  FakeModule module;
  module.add(7, 1, 2);
  module.change(7, [](FakeRing& ring) { ring.words[mgmt::kEnabled] = 0; });
  Client client;
  expected.call(client);
  const std::vector<FakeModule::Seen> seen = module.seen();
  ASSERT_FALSE(seen.empty());
  EXPECT_EQ(seen[0].text.cmd, expected.command);
  EXPECT_EQ(seen[0].length, sizeof(mgmt::RequestText));
  for (size_t i = 0; i < expected.arguments.size(); ++i) {
    EXPECT_EQ(seen[0].text.arg[i], expected.arguments[i]) << "argument " << i;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, CallBytes,
    testing::Values(Call{"Enable", [](Client& c) { c.enable_ring(7); }, 0, {7, 1}},
                    Call{"Disable", [](Client& c) { c.disable_ring(7); }, 0, {7, 0}},
                    Call{"Add",
                         [](Client& c) {
                           c.add_ring({.ring = 9,
                                       .port0 = 3,
                                       .port1 = 4,
                                       .control_vlan = 100,
                                       .node_role = client::kOwner,
                                       .ring_role = client::kSubRing});
                         },
                         2,
                         {9, 3, 4, 100, 1, 1}},
                    Call{"Read", [](Client& c) { c.read_ring(7); }, 3, {7}},
                    Call{"AnyEnabled", [](Client& c) { c.any_ring_enabled(); }, 4, {}},
                    Call{"Delete", [](Client& c) { c.delete_ring(7); }, 5, {7}},
                    Call{"RingRole", [](Client& c) { c.set_ring_role(7, 1); }, 7, {7, 1}},
                    Call{"Revertive", [](Client& c) { c.set_revertive(7, true); }, 9, {7, 0}},
                    Call{"NonRevertive", [](Client& c) { c.set_revertive(7, false); }, 9, {7, 1}},
                    Call{"SetGuard", [](Client& c) { c.set_guard_ms(700); }, 13, {700}},
                    Call{"GetGuard", [](Client& c) { c.guard_ms(); }, 14, {}},
                    Call{"SetWtr", [](Client& c) { c.set_wtr_ms(5000); }, 15, {5000}},
                    Call{"GetWtr", [](Client& c) { c.wtr_minutes(); }, 16, {}},
                    Call{"SetHoldoff", [](Client& c) { c.set_holdoff_ms(100); }, 19, {100}},
                    Call{"GetHoldoff", [](Client& c) { c.holdoff_ms(); }, 20, {}},
                    Call{"ManualSwitch", [](Client& c) { c.manual_switch(7, 2); }, 21, {7, 2}},
                    Call{"ForcedSwitch", [](Client& c) { c.forced_switch(7, 2); }, 23, {7, 2}},
                    Call{"Clear", [](Client& c) { c.clear(7); }, 25, {7}},
                    Call{"AttachSubRing",
                         [](Client& c) {
                           c.attach_sub_ring({.major_ring = 7,
                                              .ring = 8,
                                              .port = 3,
                                              .node_role = client::kNoRplRole,
                                              .interconnection_role = client::kWatching});
                         },
                         30,
                         {7, 8, 3, 4, 1}},
                    Call{"ModifyRole", [](Client& c) { c.modify_ring_role(7, 1); }, 31, {7, 1}},
                    Call{"PortState", [](Client& c) { c.set_port_state(3, 1); }, 33, {3, 1}},
                    Call{"CaptureDelete", [](Client& c) { c.delete_capture_rule(); }, 35, {}},
                    Call{"DebugSwitch", [](Client& c) { c.set_debug_switch(1); }, 36, {1}}),
    [](const testing::TestParamInfo<Call>& param) { return param.param.name; });

TEST_F(ClientRequests, AnnouncementIsAnEventOfEightWordsWithTheMessageType) {
  FakeModule module;
  Client().guard_ms();
  ASSERT_EQ(module.events().size(), 1u);
  const ERPS_EVENT_MSG_T event = module.events()[0];
  EXPECT_EQ(event.event_class, 3u);
  EXPECT_EQ(event.type, 4u);
  EXPECT_NE(event.sender, 0u);
  EXPECT_EQ(static_cast<long>(event.payload), module.seen()[0].type);
}

TEST_F(ClientRequests, MessageTypesAreBelowTheReplyBitAndDifferEachTime) {
  FakeModule module;
  constexpr size_t kRequests = 200;
  Client client;
  for (size_t i = 0; i < kRequests; ++i) {
    client.guard_ms();
  }
  std::set<long> types;
  for (const FakeModule::Seen& request : module.seen()) {
    EXPECT_GT(request.type, 0);
    EXPECT_LT(request.type, 0x40000000);
    types.insert(request.type);
  }
  EXPECT_EQ(types.size(), kRequests);
}

TEST_F(ClientRequests, NodeIdTravelsBehindTheRingId) {
  FakeModule module;
  module.add(7, 1, 2);
  Client().set_node_id(7, MacAddress{2, 0x11, 0x22, 0x33, 0x44, 0x55});
  EXPECT_EQ(module.seen()[0].text.arg[0], 7u);
  const std::array<uint8_t, 6> expected{2, 0x11, 0x22, 0x33, 0x44, 0x55};
  EXPECT_EQ(module.ring(7)->node_id, expected);
}

TEST_F(ClientRequests, CaptureAddressTravelsAtTheFirstArgument) {
  FakeModule module;
  Client().add_capture_rule(MacAddress{1, 0x19, 0xa7, 0, 0, 5});
  const FakeModule::Seen seen = module.seen()[0];
  EXPECT_EQ(seen.text.cmd, 34);
  const uint8_t expected[6] = {1, 0x19, 0xa7, 0, 0, 5};
  EXPECT_EQ(memcmp(&seen.text.arg[0], expected, sizeof expected), 0);
}

TEST_F(ClientRequests, RefusalCarriesTheCodeAndItsSentence) {
  FakeModule module;
  module.add(7, 1, 2);
  try {
    Client().delete_ring(7);
    FAIL() << "deleting an enabled ring succeeded";
  } catch (const Refused& refused) {
    EXPECT_EQ(refused.code(), 2u);
    EXPECT_STREQ(refused.what(), "delete ring 7: the ring is enabled; disable it first (code 2)");
  }
}

TEST_F(ClientRequests, UnknownCommandAndUnknownCodeAreRefusals) {
  FakeModule module;
  module.answer(mgmt::kClear, [](const FakeModule::Seen&, uint8_t* text, size_t* length) {
    text[offsetof(mgmt::ReplyText, ret_code)] = 0xFF;
    *length = 12;
    return true;
  });
  module.answer(mgmt::kSetEnable, [](const FakeModule::Seen&, uint8_t* text, size_t* length) {
    text[offsetof(mgmt::ReplyText, ret_code)] = mgmt::ret_code_of(77);
    *length = 12;
    return true;
  });
  Client client;
  try {
    client.clear(1);
    FAIL();
  } catch (const Refused& refused) {
    EXPECT_STREQ(refused.what(), "clear ring 1: the module does not know this command (code 1)");
  }
  try {
    client.enable_ring(1);
    FAIL();
  } catch (const Refused& refused) {
    EXPECT_STREQ(refused.what(), "enable ring 1: the module gave an unknown reason (code 77)");
  }
}

TEST_F(ClientRequests, StaleDataOfAnEarlierReplyIsNoPartOfACommandsAnswer) {
  FakeModule module;
  module.add(7, 1, 2);
  Client client;
  ASSERT_TRUE(client.read_ring(7));  // 96 bytes stay in the module's reply buffer
  client.set_wtr_ms(60000);          // its reply is 108 bytes long all the same
  EXPECT_EQ(client.wtr_minutes(), 1u);
  EXPECT_FALSE(client.read_ring(8));
}

TEST_F(ClientRequests, WtrIsWrittenInMillisecondsAndReadInWholeMinutes) {
  FakeModule module;
  Client client;
  client.set_wtr_ms(59999);
  EXPECT_EQ(client.wtr_minutes(), 0u);
  client.set_wtr_ms(300000);
  EXPECT_EQ(client.wtr_minutes(), 5u);
}

TEST_F(ClientRequests, RingsAreListedInAscendingOrderWellWithinASecond) {
  FakeModule module;
  module.add(239, 5, 6);
  module.add(1, 1, 2);
  module.add(100, 3, 4);
  const auto start = std::chrono::steady_clock::now();
  const std::vector<RingStatus> rings = Client().read_rings();
  const auto took = std::chrono::steady_clock::now() - start;
  ASSERT_EQ(rings.size(), 3u);
  EXPECT_EQ(rings[0].ring_id, 1u);
  EXPECT_EQ(rings[1].ring_id, 100u);
  EXPECT_EQ(rings[2].ring_id, 239u);
  EXPECT_EQ(module.seen().size(), 239u);
  EXPECT_LT(took, std::chrono::milliseconds(1000));
}

TEST_F(ClientRequests, AnyRingEnabledFollowsTheByte) {
  FakeModule module;
  EXPECT_FALSE(Client().any_ring_enabled());
  module.add(7, 1, 2);
  EXPECT_TRUE(Client().any_ring_enabled());
}

TEST_F(ClientRequests, ModifiedRoleIsReadBack) {
  FakeModule module;
  module.add(7, 1, 2);
  EXPECT_FALSE(Client().modify_ring_role(7, 1)) << "the ring is enabled: nothing may change";
  module.change(7, [](FakeRing& ring) { ring.words[mgmt::kEnabled] = 0; });
  EXPECT_TRUE(Client().modify_ring_role(7, 1));
  EXPECT_THROW(Client().modify_ring_role(8, 1), Refused);
}

TEST_F(ClientRequests, AnAnswerThatTakesItsTimeIsWaitedFor) {
  FakeModule module;
  module.answer(mgmt::kGetGuardTime, [](const FakeModule::Seen&, uint8_t* text, size_t* length) {
    const timespec slow{0, 60'000'000};
    nanosleep(&slow, nullptr);
    const uint8_t reply[16] = {mgmt::kGetGuardTime, 0, 0, 0, 4, 0, 0, 0, 0, 0, 0, 2, 0xBC};
    memcpy(text, reply, sizeof reply);
    *length = sizeof reply;
    return true;
  });
  EXPECT_EQ(Client().guard_ms(), 700u);
}

}  // namespace
}  // namespace erps::test
