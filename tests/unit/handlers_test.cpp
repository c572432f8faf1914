#include "erps/mgmt/handlers.h"

#include <cstring>
#include <initializer_list>

#include "erps/fsm/requests.h"
#include "erps/ring/ring_config.h"
#include "erps/ring/ring_list.h"
#include "erps/ring/ring_start.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint8_t kUntouched = 0xEE;

// Calls handlers with a reply whose bytes are all 0xEE, so that what they write can be told from
// what they leave.
class HandlersTest : public ModuleTest {
 protected:
  HandlersTest() { clear_reply(); }

  void clear_reply() { memset(&reply, kUntouched, sizeof reply); }

  static mgmt::RequestText request(std::initializer_list<uint32_t> arguments) {
    mgmt::RequestText text{};
    size_t i = 0;
    for (const uint32_t argument : arguments) {
      text.arg[i++] = argument;
    }
    return text;
  }

  // Calls the handler, which must return 0, and gives back the return code.
  uint8_t call(ERPS_HANDLER_T handler, std::initializer_list<uint32_t> arguments = {}) {
    clear_reply();
    const mgmt::RequestText text = request(arguments);
    EXPECT_EQ(handler(&text, &reply), 0);
    return reply.ret_code;
  }

  bool data_untouched() const {
    for (const uint8_t byte : reply.data) {
      if (byte != kUntouched) {
        return false;
      }
    }
    return reply.data_len == 0xEEEEEEEE;
  }

  // A write: this code, no data written.
  void expect_code(uint8_t code, ERPS_HANDLER_T handler,
                   std::initializer_list<uint32_t> arguments = {}) {
    EXPECT_EQ(call(handler, arguments), code);
    EXPECT_TRUE(data_untouched());
  }

  // A read of one number.
  void expect_number(uint32_t value, ERPS_HANDLER_T handler) {
    EXPECT_EQ(call(handler), 0);
    EXPECT_EQ(reply.data_len, 4U);
    EXPECT_EQ(bytes_of(reply.data, 5),
              (std::vector<uint8_t>{
                  static_cast<uint8_t>(value >> 24), static_cast<uint8_t>(value >> 16),
                  static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value), kUntouched}));
  }

  mgmt::ReplyText reply{};
};

TEST_F(HandlersTest, EnableStartsAndStopsTheRing) {
  ERPSM_T* ring = make_ring();
  expect_code(0, ium_srv_set_erps_enable, {1, 1});
  EXPECT_EQ(ring->enable, 1);
  EXPECT_EQ(logged_at("ium_srv_set_erps_enable", "ring 1 enable 1 \n"), 1);
  expect_code(0, ium_srv_set_erps_enable, {1, 9});
  EXPECT_EQ(ring->enable, 0);
  EXPECT_EQ(logged_at("ium_srv_set_erps_enable", "ring 1 enable 9 \n"), 1);
  expect_code(0xFD, ium_srv_set_erps_enable, {2, 1});
}

TEST_F(HandlersTest, AddPassesAllSixArguments) {
  expect_code(0, ium_srv_set_erps_ring_id, {7, 11, 12, 300, 2, 1});
  const ERPSM_T* ring = erpsapi_erpsm_find(7);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(port0(ring)->port_id, 11U);
  EXPECT_EQ(port1(ring)->port_id, 12U);
  EXPECT_EQ(ring->vlan_id, 300U);
  EXPECT_EQ(ring->node_role, 2U);
  EXPECT_EQ(ring->ring_role, 1U);
  EXPECT_EQ(logged_at("ium_srv_set_erps_ring_id",
                      "ring_id = 7 erps_primary_port = 11 erps_second_port = 12 vlan id = 300 "
                      "node_role =2 ring_role = 1\n"),
            1);
}

TEST_F(HandlersTest, AddReturnsEachRefusal) {
  make_running_ring();
  expect_code(0xFE, ium_srv_set_erps_ring_id, {1, 3, 4, 200, 4, 0});
  expect_code(static_cast<uint8_t>(-11), ium_srv_set_erps_ring_id, {2, 3, 3, 200, 4, 0});
  expect_code(static_cast<uint8_t>(-9), ium_srv_set_erps_ring_id, {2, 3, 4, 100, 4, 0});
  expect_code(static_cast<uint8_t>(-12), ium_srv_set_erps_ring_id, {2, 2, 4, 200, 4, 0});
  platform.fail_allocation(1);
  expect_code(static_cast<uint8_t>(-22), ium_srv_set_erps_ring_id, {2, 3, 4, 200, 4, 0});
}

TEST_F(HandlersTest, DeleteReturnsItsResult) {
  ERPSM_T* ring = make_running_ring();
  expect_code(0xFE, ium_srv_del_erps_ring, {1});
  expect_code(0xFD, ium_srv_del_erps_ring, {2});
  erps_stop_func(ring);
  expect_code(0, ium_srv_del_erps_ring, {1});
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(HandlersTest, RingRoleReturnsItsResult) {
  ERPSM_T* ring = make_ring();
  expect_code(0, ium_srv_set_erps_ring_role, {1, 1});
  EXPECT_EQ(ring->ring_role, 1U);
  expect_code(0xFD, ium_srv_set_erps_ring_role, {2, 1});
  erps_start_func(ring, "");
  expect_code(0xFC, ium_srv_set_erps_ring_role, {1, 0});
  erps_stop_func(ring);
  ring->ring_role = kSubRing;
  expect_code(static_cast<uint8_t>(-27), ium_srv_set_erps_ring_role, {1, 0});
}

TEST_F(HandlersTest, RevertiveModeReturnsItsResult) {
  const ERPSM_T* ring = make_ring();
  expect_code(0, ium_srv_set_erps_revertive_mode, {1, 1});
  EXPECT_EQ(ring->non_revertive, 1);
  expect_code(0xFD, ium_srv_set_erps_revertive_mode, {2, 1});
}

TEST_F(HandlersTest, TimesAreSetWithoutChecks) {
  expect_code(0, ium_srv_set_erps_guard_time, {700});
  EXPECT_EQ(guard_timer_time, 700U);
  EXPECT_EQ(WTB_timer_time, 5700U);
  expect_code(0, ium_srv_set_erps_WTR_time, {0});
  EXPECT_EQ(WTR_timer_time, 0U);
  expect_code(0, ium_srv_set_erps_holdoff_time, {4'000'000'000U});
  EXPECT_EQ(holdoff_timer_time, 4'000'000'000U);
}

TEST_F(HandlersTest, TimesAreReadMostSignificantByteFirst) {
  guard_timer_time = 0x01020304;
  expect_number(0x01020304, ium_srv_get_erps_guard_time);
  holdoff_timer_time = 0xFFFEFDFC;
  expect_number(0xFFFEFDFC, ium_srv_get_erps_holdoff_time);
}

TEST_F(HandlersTest, WaitToRestoreIsReadInWholeMinutes) {
  expect_number(5, ium_srv_get_erps_WTR_time);
  erps_set_wtr_timer(59'999);
  expect_number(0, ium_srv_get_erps_WTR_time);
  erps_set_wtr_timer(60'000);
  expect_number(1, ium_srv_get_erps_WTR_time);
  erps_set_wtr_timer(119'999);
  expect_number(1, ium_srv_get_erps_WTR_time);
  erps_set_wtr_timer(0xFFFFFFFF);
  expect_number(71'582, ium_srv_get_erps_WTR_time);
}

TEST_F(HandlersTest, ForcedSwitchReturnsItsResult) {
  ERPSM_T* ring = make_ring();
  expect_code(0, ium_srv_set_erps_FS, {1, 99});  // stopped: accepted, nothing done
  EXPECT_EQ(ring->request_port, 0U);
  erps_start_func(ring, "");
  expect_code(0xE9, ium_srv_set_erps_FS, {1, 99});
  expect_code(0xFD, ium_srv_set_erps_FS, {3, 1});
  EXPECT_EQ(ring->State, STATE_PENDING);
  expect_code(0, ium_srv_set_erps_FS, {1, 1});
  EXPECT_EQ(ring->State, STATE_FORCED);
}

TEST_F(HandlersTest, ManualSwitchReturnsItsResult) {
  ERPSM_T* ring = make_running_ring();
  expect_code(0xE9, ium_srv_set_erps_MS, {1, 99});
  expect_code(0xFD, ium_srv_set_erps_MS, {3, 1});
  expect_code(0, ium_srv_set_erps_MS, {1, 2});
  EXPECT_EQ(ring->State, STATE_MANUAL);
  EXPECT_EQ(ring->request_port, 2U);
}

TEST_F(HandlersTest, ClearReturnsItsResult) {
  ERPSM_T* ring = make_running_ring();
  expect_code(0xFD, ium_srv_set_erps_clear, {3});
  expect_code(0, ium_srv_set_erps_clear, {1});
  EXPECT_EQ(ring->State, STATE_PENDING);
  call(ium_srv_set_erps_FS, {1, 1});
  expect_code(0, ium_srv_set_erps_clear, {1});
  EXPECT_EQ(ring->State, STATE_PENDING);
}

TEST_F(HandlersTest, SubRingIsAttachedWithItsFiveArguments) {
  make_ring({.id = 1});
  expect_code(0, ium_srv_erps_inter_sub_ring_conf, {1, 2, 30, 1, 1});
  const ERPSM_T* sub = erpsapi_erpsm_find(2);
  ASSERT_NE(sub, nullptr);
  EXPECT_EQ(port0(sub)->port_id, 30U);
  EXPECT_EQ(sub->node_role, 1U);
  EXPECT_EQ(erpsapi_erpsm_find(1)->inter_node_role, 1U);
  EXPECT_EQ(logged_at("ium_srv_erps_inter_sub_ring_conf",
                      "MASTER :1 , Sub : 2, node_role : 1 inter node role = 1\n"),
            1);
  expect_code(0xFD, ium_srv_erps_inter_sub_ring_conf, {9, 3, 31, 1, 1});
  expect_code(static_cast<uint8_t>(-14), ium_srv_erps_inter_sub_ring_conf, {1, 1, 31, 1, 1});
}

TEST_F(HandlersTest, ModifiedRingRoleLeavesTheReturnCodeAlone) {
  const ERPSM_T* ring = make_ring();
  expect_code(kUntouched, ium_srv_erps_modify_ring_role_conf, {1, 1});
  EXPECT_EQ(ring->ring_role, 1U);
  EXPECT_EQ(logged_at("ium_srv_erps_modify_ring_role_conf", "ring id = 1, ring_role = 1\n"), 1);
  expect_code(kUntouched, ium_srv_erps_modify_ring_role_conf, {5, 1});  // refused: 3
}

TEST_F(HandlersTest, NodeIdIsTakenFromTextByteTwelve) {
  ERPSM_T* ring = make_ring();
  mgmt::RequestText text = request({1});
  const uint8_t mac[6] = {0x02, 0x13, 0x24, 0x35, 0x46, 0x57};
  memcpy(reinterpret_cast<uint8_t*>(&text) + 12, mac, sizeof mac);
  EXPECT_EQ(ium_srv_erps_set_src_mac(&text, &reply), 0);
  EXPECT_EQ(reply.ret_code, 0);
  EXPECT_TRUE(data_untouched());
  EXPECT_EQ(bytes_of(ring->local_node_id, 6), bytes_of(mac, 6));
  EXPECT_EQ(logged_at("ium_srv_erps_set_src_mac", "mac = 02:13:24:35:46:57\n"), 1);
  erps_start_func(ring, "");
  EXPECT_EQ(ium_srv_erps_set_src_mac(&text, &reply), 0);
  EXPECT_EQ(reply.ret_code, 0xFC);
  expect_code(0xFD, ium_srv_erps_set_src_mac, {2});
}

TEST_F(HandlersTest, PortStateIsHandedToTheSwitch) {
  platform.set_port_state_result(8, -1);
  expect_code(0, ium_srv_erps_set_port_state, {8, 1});
  EXPECT_THAT(platform.calls(), ElementsAre("adp_set_port_erps_state(8, 1)"));
  EXPECT_EQ(logged_at("ium_srv_erps_set_port_state", "port = 8\t port_state = 1\n"), 1);
  EXPECT_EQ(logged(7, "erps_set_port_state  !~\n"), 1);
}

TEST_F(HandlersTest, CaptureRuleIsAddedForTheAddressAtTextByteEight) {
  platform.set_rule_results(0, 0, -1, -1);
  mgmt::RequestText text = request({});
  const uint8_t mac[6] = {0x01, 0x19, 0x27, 0x00, 0x00, 0x05};
  memcpy(reinterpret_cast<uint8_t*>(&text) + 8, mac, sizeof mac);
  EXPECT_EQ(ium_srv_erps_acl_add(&text, &reply), 0);
  EXPECT_EQ(reply.ret_code, 0);
  EXPECT_TRUE(data_untouched());
  EXPECT_THAT(
      platform.calls({"adp_fp_add_entity_qualify"}),
      ::testing::Contains("adp_fp_add_entity_qualify(7, 011927000005, 6, ffffffffff00, 6)"));
  EXPECT_EQ(logged_at("ium_srv_erps_acl_add", "mac = 01:19:27:00:00:05\n"), 1);
}

TEST_F(HandlersTest, CaptureRuleIsDeletedWhateverThePlatformReports) {
  platform.set_rule_results(0, 0, 0, -1);
  expect_code(0, ium_srv_erps_acl_del);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_fp_delete_entity_rule(19, 0, 0)"));
}

TEST_F(HandlersTest, DebugSwitchIsStored) {
  expect_code(0, ium_srv_erps_debug_switch, {0xDEADBEEF});
  EXPECT_EQ(g_erps_debug, 0xDEADBEEF);
}

TEST_F(HandlersTest, RingConfigurationIsReadIntoTheReply) {
  make_ring({.id = 258});
  EXPECT_EQ(call(ium_srv_get_erps_ring_conf, {258}), 0);
  EXPECT_EQ(reply.data_len, 96U);
  EXPECT_EQ(bytes_of(reply.data, 4), (std::vector<uint8_t>{0, 0, 1, 2}));
}

TEST_F(HandlersTest, ConfigurationOfAnAbsentRingHasNoData) {
  EXPECT_EQ(call(ium_srv_get_erps_ring_conf, {4}), 0xFD);
  EXPECT_EQ(reply.data_len, 0U);
}

TEST_F(HandlersTest, AnyRingEnabledIsOneByte) {
  make_ring();
  EXPECT_EQ(call(ium_srv_get_erps_non_ring_enable), 0);
  EXPECT_EQ(reply.data_len, 1U);
  EXPECT_EQ(reply.data[0], 0);
  EXPECT_EQ(reply.data[1], kUntouched);
  make_running_ring({.id = 2, .port0 = 3, .port1 = 4});
  call(ium_srv_get_erps_non_ring_enable);
  EXPECT_EQ(reply.data[0], 1);
}

TEST_F(HandlersTest, HandlersWithoutOperationLeaveTheReplyAsItIs) {
  for (const ERPS_HANDLER_T handler :
       {ium_srv_get_erps_MS, ium_srv_get_erps_FS, ium_srv_show_ring_conf}) {
    expect_code(kUntouched, handler, {1, 2});
  }
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(HandlersTest, NodeRoleHandlerMovesTheRplMarker) {
  const ERPSM_T* ring = make_ring();
  expect_code(0, ium_srv_set_erps_node_role, {1, 1, 1});
  EXPECT_EQ(ring->node_role, kRplOwner);
  EXPECT_EQ(port0(ring)->port_role, 1U);
  expect_code(0, ium_srv_set_erps_node_role, {9, 1, 1});
}

TEST_F(HandlersTest, ControlVlanHandlerStoresTheVlan) {
  const ERPSM_T* ring = make_ring();
  expect_code(0, ium_srv_set_erps_control_vlan, {1, 222});
  EXPECT_EQ(ring->vlan_id, 222U);
  EXPECT_EQ(logged_at("ium_srv_set_erps_control_vlan", "ring_id 1 vlan 222 \n"), 1);
  expect_code(0, ium_srv_set_erps_control_vlan, {9, 222});
}

}  // namespace
}  // namespace erps::test
