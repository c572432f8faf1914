#include "erps/mgmt/server.h"

#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>

#include <array>

#include "erps/mgmt/handlers.h"
#include "erps/runtime/log.h"

using namespace erps::mgmt;

int erps_user_msgid = -1;
ERPS_USER_REQ_T erps_user_req = {};
ERPS_USER_RSP_T erps_user_rsp = {};

namespace {

constexpr int kQueueFlags = IPC_CREAT | 0666;

constexpr std::array<ERPS_HANDLER_T, kCommandCount> make_command_table() {
  std::array<ERPS_HANDLER_T, kCommandCount> table{};
  table[kSetEnable] = ium_srv_set_erps_enable;
  table[kAddRing] = ium_srv_set_erps_ring_id;
  table[kGetRing] = ium_srv_get_erps_ring_conf;
  table[kGetAnyRingEnabled] = ium_srv_get_erps_non_ring_enable;
  table[kDeleteRing] = ium_srv_del_erps_ring;
  table[kSetRingRole] = ium_srv_set_erps_ring_role;
  table[kSetRevertiveMode] = ium_srv_set_erps_revertive_mode;
  table[kSetGuardTime] = ium_srv_set_erps_guard_time;
  table[kGetGuardTime] = ium_srv_get_erps_guard_time;
  table[kSetWtrTime] = ium_srv_set_erps_WTR_time;
  table[kGetWtrTime] = ium_srv_get_erps_WTR_time;
  table[kSetHoldoffTime] = ium_srv_set_erps_holdoff_time;
  table[kGetHoldoffTime] = ium_srv_get_erps_holdoff_time;
  table[kManualSwitch] = ium_srv_set_erps_MS;
  table[kGetManualSwitch] = ium_srv_get_erps_MS;
  table[kForcedSwitch] = ium_srv_set_erps_FS;
  table[kGetForcedSwitch] = ium_srv_get_erps_FS;
  table[kClear] = ium_srv_set_erps_clear;
  table[kShowRingConf] = ium_srv_show_ring_conf;
  table[kAttachSubRing] = ium_srv_erps_inter_sub_ring_conf;
  table[kModifyRingRole] = ium_srv_erps_modify_ring_role_conf;
  table[kSetNodeId] = ium_srv_erps_set_src_mac;
  table[kSetPortState] = ium_srv_erps_set_port_state;
  table[kCaptureRuleAdd] = ium_srv_erps_acl_add;
  table[kCaptureRuleDelete] = ium_srv_erps_acl_del;
  table[kDebugSwitch] = ium_srv_erps_debug_switch;
  return table;
}

constexpr std::array<ERPS_HANDLER_T, kCommandCount> kCommandTable = make_command_table();

ERPS_HANDLER_T handler_of(uint8_t command) {
  return command < kCommandTable.size() ? kCommandTable[command] : nullptr;
}

}  // namespace

int32_t erps_user_srv_init() {
  erps_user_msgid = msgget(kQueueKey, kQueueFlags);
  if (erps_user_msgid < 0) {
    perror("msgget_open user");
    return -1;
  }
  return 0;
}

int32_t erps_conf_manage(long message_type) {
  // What a short request leaves out reads as zero, never as a part of the last one.
  memset(erps_user_req.text, 0, sizeof erps_user_req.text);
  if (msgrcv(erps_user_msgid, &erps_user_req, kTextCapacity, message_type, IPC_NOWAIT) < 0) {
    perror("msgrcv srv");
    return -1;
  }
  RequestText request;
  memcpy(&request, erps_user_req.text, sizeof request);
  erps_user_rsp.mtype = (message_type & kReplyTypeMask) | kReplyTypeFlag;
  erps_user_rsp.text.cmd = request.cmd;

  if (request.cmd == kNoReply) {
    return 0;
  }
  if (const ERPS_HANDLER_T handler = handler_of(request.cmd); handler != nullptr) {
    const int32_t result = handler(&request, &erps_user_rsp.text);
    if (result != 0) {
      return result;
    }
  } else {
    ERPS_ERROR("UNKONW STP USER MSG :cmd=%u \r\n", request.cmd);
    erps_user_rsp.text.ret_code = kUnknownCommand;
  }

  const size_t length = erps_user_rsp.text.data_len + kReplyOverhead;
  if (msgsnd(erps_user_msgid, &erps_user_rsp, length, IPC_NOWAIT) < 0) {
    perror("msgsnd user srv");
    return -1;
  }
  return 0;
}
