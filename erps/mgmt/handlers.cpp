#include "erps/mgmt/handlers.h"

#include "erps/fsm/commands.h"
#include "erps/mgmt/capture_rules.h"
#include "erps/ring/ring_config.h"
#include "erps/runtime/log.h"

using namespace erps::mgmt;

uint32_t g_erps_debug = 0;

namespace {

constexpr uint32_t kMillisecondsPerMinute = 60000;

void set_result(ReplyText* reply, uint32_t result) {
  reply->ret_code = ret_code_of(result);
}

// A MAC address argument: raw bytes in place of argument words.
const uint8_t* mac_at(const RequestText* request, size_t offset) {
  return reinterpret_cast<const uint8_t*>(request) + offset;
}

int32_t reply_number(ReplyText* reply, uint32_t value) {
  reply->data[0] = static_cast<uint8_t>(value >> 24);
  reply->data[1] = static_cast<uint8_t>(value >> 16);
  reply->data[2] = static_cast<uint8_t>(value >> 8);
  reply->data[3] = static_cast<uint8_t>(value);
  reply->data_len = sizeof value;
  set_result(reply, kDone);
  return 0;
}

}  // namespace

int32_t ium_srv_set_erps_enable(const RequestText* request, ReplyText* reply) {
  ERPS_DEBUG_AT("ring %d enable %d \n", request->arg[0], request->arg[1]);
  set_result(reply, erps_set_ring_enable(request->arg[0], request->arg[1]));
  return 0;
}

int32_t ium_srv_set_erps_ring_id(const RequestText* request, ReplyText* reply) {
  const uint32_t* arg = request->arg;
  ERPS_DEBUG_AT(
      "ring_id = %d erps_primary_port = %d erps_second_port = %d vlan id = %d node_role =%d "
      "ring_role = %d\n",
      arg[0], arg[1], arg[2], arg[3], arg[4], arg[5]);
  set_result(reply, erps_add_ring(arg[0], arg[1], arg[2], arg[3], arg[4], arg[5]));
  return 0;
}

int32_t ium_srv_get_erps_ring_conf(const RequestText* request, ReplyText* reply) {
  reply->data_len = 0;
  set_result(reply, erps_get_ring_conf(request->arg[0], reply->data, &reply->data_len));
  return 0;
}

int32_t ium_srv_get_erps_non_ring_enable(const RequestText* /*request*/, ReplyText* reply) {
  reply->data[0] = erps_get_non_ring_enable() == 0 ? 1 : 0;
  reply->data_len = 1;
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_del_erps_ring(const RequestText* request, ReplyText* reply) {
  set_result(reply, erps_set_del_ring(request->arg[0]));
  return 0;
}

int32_t ium_srv_set_erps_ring_role(const RequestText* request, ReplyText* reply) {
  set_result(reply, erps_set_ring_role(request->arg[0], request->arg[1]));
  return 0;
}

int32_t ium_srv_set_erps_revertive_mode(const RequestText* request, ReplyText* reply) {
  set_result(reply, erps_set_ring_revertive(request->arg[0], request->arg[1]));
  return 0;
}

int32_t ium_srv_set_erps_guard_time(const RequestText* request, ReplyText* reply) {
  erps_set_guard_timer(request->arg[0]);
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_get_erps_guard_time(const RequestText* /*request*/, ReplyText* reply) {
  return reply_number(reply, erps_get_guard_timer());
}

int32_t ium_srv_set_erps_WTR_time(const RequestText* request, ReplyText* reply) {
  erps_set_wtr_timer(request->arg[0]);
  set_result(reply, kDone);
  return 0;
}

// Written in milliseconds, read back in whole minutes.
int32_t ium_srv_get_erps_WTR_time(const RequestText* /*request*/, ReplyText* reply) {
  return reply_number(reply, erps_get_wtr_timer() / kMillisecondsPerMinute);
}

int32_t ium_srv_set_erps_holdoff_time(const RequestText* request, ReplyText* reply) {
  erps_set_holdoff_timer(request->arg[0]);
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_get_erps_holdoff_time(const RequestText* /*request*/, ReplyText* reply) {
  return reply_number(reply, erps_get_holdoff_time());
}

int32_t ium_srv_set_erps_MS(const RequestText* request, ReplyText* reply) {
  set_result(reply, erps_cmd_ms_pro(request->arg[0], request->arg[1]));
  return 0;
}

int32_t ium_srv_get_erps_MS(const RequestText* /*request*/, ReplyText* /*reply*/) {
  return 0;
}

int32_t ium_srv_set_erps_FS(const RequestText* request, ReplyText* reply) {
  set_result(reply, erps_cmd_fs_pro(request->arg[0], request->arg[1]));
  return 0;
}

int32_t ium_srv_get_erps_FS(const RequestText* /*request*/, ReplyText* /*reply*/) {
  return 0;
}

int32_t ium_srv_set_erps_clear(const RequestText* request, ReplyText* reply) {
  set_result(reply, erps_cmd_clear_pro(request->arg[0]));
  return 0;
}

int32_t ium_srv_show_ring_conf(const RequestText* /*request*/, ReplyText* /*reply*/) {
  return 0;
}

int32_t ium_srv_erps_inter_sub_ring_conf(const RequestText* request, ReplyText* reply) {
  const uint32_t* arg = request->arg;
  ERPS_DEBUG_AT("MASTER :%d , Sub : %d, node_role : %d inter node role = %d\n", arg[0], arg[1],
                arg[3], arg[4]);
  set_result(reply, erps_add_inter_sub_ring(arg[0], arg[1], arg[2], arg[3], arg[4]));
  return 0;
}

// Leaves ret_code as the last reply had it.
int32_t ium_srv_erps_modify_ring_role_conf(const RequestText* request, ReplyText* /*reply*/) {
  ERPS_DEBUG_AT("ring id = %d, ring_role = %d\n", request->arg[0], request->arg[1]);
  erps_modify_ring_role(request->arg[0], request->arg[1]);
  return 0;
}

int32_t ium_srv_erps_set_src_mac(const RequestText* request, ReplyText* reply) {
  const uint8_t* mac = mac_at(request, kMacAtArgument1);
  ERPS_DEBUG_AT("mac = %02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
  set_result(reply, erps_set_mac_addr(request->arg[0], mac));
  return 0;
}

int32_t ium_srv_erps_set_port_state(const RequestText* request, ReplyText* reply) {
  ERPS_DEBUG_AT("port = %d\t port_state = %d\n", request->arg[0], request->arg[1]);
  erps_set_port_state(request->arg[0], request->arg[1]);
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_erps_acl_add(const RequestText* request, ReplyText* reply) {
  const uint8_t* mac = mac_at(request, kMacAtArgument0);
  ERPS_DEBUG_AT("mac = %02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2], mac[3], mac[4],
                mac[5]);
  erps_debug_acl_add(mac);
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_erps_acl_del(const RequestText* /*request*/, ReplyText* reply) {
  erps_debug_acl_del();
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_erps_debug_switch(const RequestText* request, ReplyText* reply) {
  g_erps_debug = request->arg[0];
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_set_erps_node_role(const RequestText* request, ReplyText* reply) {
  erps_set_node_role(request->arg[0], request->arg[1], request->arg[2]);
  set_result(reply, kDone);
  return 0;
}

int32_t ium_srv_set_erps_control_vlan(const RequestText* request, ReplyText* reply) {
  ERPS_DEBUG_AT("ring_id %d vlan %d \n", request->arg[0], request->arg[1]);
  erps_set_vlan_id(request->arg[0], request->arg[1]);
  set_result(reply, kDone);
  return 0;
}
