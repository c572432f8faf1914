// The packet buffer that a received-frame event carries.
//
// Layout that the module reads: a 32-bit frame handle at byte 8 and a 16-bit frame length in bytes
// at byte 14, both in machine order.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Gives the buffer back to the host, which sent it with the event. Called once for each packet
// event, by the protocol task, also when the frame was rejected.
void skpack_release(void* packet);

#ifdef __cplusplus
}
#endif
