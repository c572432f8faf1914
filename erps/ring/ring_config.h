// Configuration of rings on behalf of the management handlers. Protocol task only.
//
// Results are those of erps/mgmt/message.h: 0 done, 3 no such ring, and so on. No setter checks the
// range of its value.
#pragma once

#include <stdint.h>

uint32_t erps_add_ring(uint32_t ring_id, uint32_t port0, uint32_t port1, uint32_t vlan_id,
                       uint32_t node_role, uint32_t ring_role);
uint32_t erps_add_inter_sub_ring(uint32_t major_ring_id, uint32_t sub_ring_id,
                                 uint32_t sub_ring_port, uint32_t node_role,
                                 uint32_t inter_node_role);
uint32_t erps_master_ring_conf_check(uint32_t ring_id, uint32_t port0, uint32_t port1,
                                     uint32_t vlan_id);
uint32_t erps_check_sub_ring_conf(uint32_t major_ring_id, uint32_t sub_ring_id,
                                  uint32_t sub_ring_port);
uint32_t erps_set_del_ring(uint32_t ring_id);
uint32_t erps_set_ring_enable(uint32_t ring_id, uint32_t enable);

// Writes the 96 bytes of configuration and state (RingConfWord in message.h) and their length.
uint32_t erps_get_ring_conf(uint32_t ring_id, uint8_t* reply, uint32_t* length);

// 1 when no ring is enabled, 0 when one is.
uint32_t erps_get_non_ring_enable();

// Without a result: an unknown ring changes nothing.
void erps_set_node_role(uint32_t ring_id, uint32_t node_role, uint32_t rpl_on_port0);
void erps_set_vlan_id(uint32_t ring_id, uint32_t vlan_id);
void erps_set_interconnect_ring_id(uint32_t ring_id, uint32_t partner_ring_id);
void erps_set_interconnect_attribute(uint32_t ring_id, uint32_t partner_ring_id,
                                     uint32_t inter_node_role);

uint32_t erps_set_ring_revertive(uint32_t ring_id, uint32_t non_revertive);
uint32_t erps_set_ring_role(uint32_t ring_id, uint32_t ring_role);
uint32_t erps_modify_ring_role(uint32_t ring_id, uint32_t ring_role);
uint32_t erps_set_mac_addr(uint32_t ring_id, const uint8_t mac[6]);

// Times in ms, for all rings.
uint32_t erps_get_guard_timer();
void erps_set_guard_timer(uint32_t time_ms);  // the WTB time becomes this + 5000
uint32_t erps_get_wtr_timer();
void erps_set_wtr_timer(uint32_t time_ms);
void erps_set_wtb_timer(uint32_t time_ms);
uint32_t erps_get_holdoff_time();
void erps_set_holdoff_timer(uint32_t time_ms);

// Hands a port state to the switch. Always 0.
uint32_t erps_set_port_state(uint32_t port_id, uint32_t state);
