// Hooks that the host may call or look up. They are empty and kept for its sake.
#pragma once

#include <stdint.h>

extern "C" {

// Called for each ring port when the ring starts. Gives 0.
int erps_check_mstp_config_and_save(uint32_t port_id);

void erps_packet_unregister();
}
