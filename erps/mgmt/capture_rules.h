// The rule that brings R-APS frames to this module instead of having them switched. Protocol task
// only.
#pragma once

#include <stdint.h>

// Installs the rule for a destination address, whose last byte is not compared. Returns the
// platform's result.
int32_t erps_add_acl_rule(const uint8_t mac[6]);
int32_t erps_del_acl_rule();
int32_t erps_debug_acl_add(const uint8_t mac[6]);
int32_t erps_debug_acl_del();

// Turns the capture of all R-APS frames on (low eight bits of `on` not zero) or off.
int32_t erps_raps_redir_cpu(uint32_t on);

// 1 if no ring is enabled.
uint32_t erps_non_ring_enable();

// Turns the capture on or off, but only while no ring is enabled. Always 0.
int32_t switch_enable_erps(uint32_t on);
