// The management server: the System V message queue and the command table. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/mgmt/message.h"

struct ERPS_USER_REQ_T {
  long mtype;
  uint8_t text[erps::mgmt::kTextCapacity];
};

struct ERPS_USER_RSP_T {
  long mtype;
  erps::mgmt::ReplyText text;
};

// Identifier of the queue; -1 before erps_user_srv_init.
extern int erps_user_msgid;

// The one request and the one reply. The reply is never cleared: commands that return no data
// repeat the length and the bytes of the last one that did.
extern ERPS_USER_REQ_T erps_user_req;
extern ERPS_USER_RSP_T erps_user_rsp;

// Opens the queue, creating it if need be. 0, or -1 after a message on standard error.
int32_t erps_user_srv_init();

// Takes the request of this type off the queue, serves and answers it. 0 when it was answered or
// wants no answer, -1 when the queue failed.
int32_t erps_conf_manage(long message_type);
