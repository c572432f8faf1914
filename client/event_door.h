// The queue on which a client tells the module that a request waits.
//
// Threading: any thread; nothing is kept between calls. Errors: ClientError with kNoDoor,
// kPermission, kDoorFull or kSystem. Logs nothing. Never blocks.
#pragma once

namespace erps::client {

// Announces the request with this System V message type. Nothing is announced when it throws.
void announce_request(long message_type);

}  // namespace erps::client
