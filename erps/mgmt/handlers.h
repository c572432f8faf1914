// The service handlers: one for each management command. Protocol task only.
//
// Each reads its arguments from the request, calls one operation and fills ret_code and, for reads,
// data_len and data. All return 0.
#pragma once

#include <stdint.h>

#include "erps/mgmt/message.h"

using ERPS_HANDLER_T = int32_t (*)(const erps::mgmt::RequestText* request,
                                   erps::mgmt::ReplyText* reply);

// Set by command 36, for the host's debugger.
extern uint32_t g_erps_debug;

#define ERPS_DECLARE_HANDLER(name) \
  int32_t name(const erps::mgmt::RequestText* request, erps::mgmt::ReplyText* reply)

ERPS_DECLARE_HANDLER(ium_srv_set_erps_enable);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_ring_id);
ERPS_DECLARE_HANDLER(ium_srv_get_erps_ring_conf);
ERPS_DECLARE_HANDLER(ium_srv_get_erps_non_ring_enable);
ERPS_DECLARE_HANDLER(ium_srv_del_erps_ring);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_ring_role);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_revertive_mode);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_guard_time);
ERPS_DECLARE_HANDLER(ium_srv_get_erps_guard_time);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_WTR_time);
ERPS_DECLARE_HANDLER(ium_srv_get_erps_WTR_time);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_holdoff_time);
ERPS_DECLARE_HANDLER(ium_srv_get_erps_holdoff_time);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_MS);
ERPS_DECLARE_HANDLER(ium_srv_get_erps_MS);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_FS);
ERPS_DECLARE_HANDLER(ium_srv_get_erps_FS);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_clear);
ERPS_DECLARE_HANDLER(ium_srv_show_ring_conf);
ERPS_DECLARE_HANDLER(ium_srv_erps_inter_sub_ring_conf);
ERPS_DECLARE_HANDLER(ium_srv_erps_modify_ring_role_conf);
ERPS_DECLARE_HANDLER(ium_srv_erps_set_src_mac);
ERPS_DECLARE_HANDLER(ium_srv_erps_set_port_state);
ERPS_DECLARE_HANDLER(ium_srv_erps_acl_add);
ERPS_DECLARE_HANDLER(ium_srv_erps_acl_del);
ERPS_DECLARE_HANDLER(ium_srv_erps_debug_switch);

// No command selects these two.
ERPS_DECLARE_HANDLER(ium_srv_set_erps_node_role);
ERPS_DECLARE_HANDLER(ium_srv_set_erps_control_vlan);

#undef ERPS_DECLARE_HANDLER
