// The switch: port states, the forwarding database, frames, link state, the node's address.
//
// Implemented by whoever hosts the module. Every call may be made from the protocol task;
// adp_transmit_frame is made from the timer task too, with the timer lock held, so it must not
// block. Result 0 means done and anything else failed, unless a declaration says otherwise.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Sets the protection state of a ring port: 4 forwarding, 1 discarding. A discarding port passes no
// traffic in either direction and learns no address; frames that the module itself sends and
// receives still pass. Calling it again with the same state is harmless.
int adp_set_port_erps_state(uint32_t port_id, uint32_t state);

// Reads the protection state last asked for into *state: 4 forwarding, 1 discarding.
// *state is untouched when the call fails.
int adp_get_port_erps_state(uint32_t port_id, uint32_t* state);

// Forgets the addresses learnt on one port. kind is always 2: the dynamically learnt ones.
int adp_del_mac_addr_by_intf(uint32_t port_id, uint32_t kind);

// Sends one frame as it stands (header, tag if any, no FCS) out of one port, whatever its
// protection state. length in bytes. The frame stays the caller's and is not kept after the call.
// arg2 is always 0, arg4 always 3. Never blocks: a frame that cannot be sent now is lost.
int adp_transmit_frame(const uint8_t* frame, uint16_t length, uint32_t arg2, uint32_t port_id,
                       uint32_t arg4);

// Fetches the frame that a packet event announced. handle comes from the event's packet buffer;
// the frame is written into the caller's buffer of `capacity` bytes with its VLAN tag in place.
// *length receives the frame's true length in bytes (at most capacity), *vlan its VLAN ID (0 when
// untagged), *ingress_port the port it arrived on. On failure the outputs are untouched.
int adp_receive_frame(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                      uint16_t* vlan, uint32_t* ingress_port);

// Reads a property of a port into *value. Attribute 11, the only one asked for, is the link state:
// 1 up, 0 down. *value is untouched when the call fails.
int adp_get_phy_port_attr(uint32_t port_id, uint32_t attribute, uint32_t* value);

// Reads the node's MAC address into mac: node ID and source address of every ring at once.
// nic is always "eth0" and index 0; a host that has one identity may ignore both.
int get_nic_address(const char* nic, int index, uint8_t mac[6]);

#ifdef __cplusplus
}
#endif
