#include "erps/runtime/host_hooks.h"

#include "erps/runtime/export.h"

extern "C" {

ERPS_EXPORT int erps_check_mstp_config_and_save(uint32_t /*port_id*/) {
  return 0;
}

ERPS_EXPORT void erps_packet_unregister() {}
}
