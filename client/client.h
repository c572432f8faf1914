// Typed requests to the module over its management queue.
//
// Each call is one round trip: it opens the queue, puts the request, announces it, and polls for
// the reply in short steps until the timeout. A request that was not answered is taken off the
// queue again, and a reply that comes after all is thrown away by a later call or by the
// destructor.
//
// Threading: one thread at a time per object; any number of objects and processes. Errors:
// ClientError when the module could not be asked, Refused when it answered with a return code other
// than 0. Logs nothing.
#pragma once

#include <stdint.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "client/management_queue.h"
#include "client/ring_status.h"

namespace erps::client {

inline constexpr std::chrono::milliseconds kDefaultTimeout{2000};

struct NewRing {
  uint32_t ring = 0;
  // The module takes port 1 for the one at the RPL, which no request can change.
  uint32_t port0 = 0;
  uint32_t port1 = 0;
  uint32_t control_vlan = 0;
  uint32_t node_role = 0;  // NodeRole
  uint32_t ring_role = 0;  // kMajorRing or kSubRing
};

struct NewSubRing {
  uint32_t major_ring = 0;
  uint32_t ring = 0;
  uint32_t port = 0;
  uint32_t node_role = 0;             // NodeRole
  uint32_t interconnection_role = 0;  // InterconnectionRole
};

class Client {
 public:
  explicit Client(std::chrono::milliseconds timeout = kDefaultTimeout) : timeout_(timeout) {}
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  // Rings. Values are sent as they are: ranges are the caller's to check (client/limits.h).
  void add_ring(const NewRing& ring);
  void delete_ring(uint32_t ring);
  void enable_ring(uint32_t ring);
  void disable_ring(uint32_t ring);
  void set_ring_role(uint32_t ring, uint32_t ring_role);
  // The module answers this one with the return code of whatever it was asked before, so the ring
  // is read back: true when it has the role now. Throws Refused when there is no such ring.
  bool modify_ring_role(uint32_t ring, uint32_t ring_role);
  void set_revertive(uint32_t ring, bool revertive);
  void attach_sub_ring(const NewSubRing& ring);
  // The node ID must be the address that the node sends from; see the note in docs/erpsctl.md.
  void set_node_id(uint32_t ring, const MacAddress& node_id);

  // Reading. Nothing when there is no ring with this ID.
  std::optional<RingStatus> read_ring(uint32_t ring);
  // The rings with IDs 1 to 239 in ascending order; the protocol has no request that lists, so this
  // is a round trip for each ID.
  std::vector<RingStatus> read_rings();
  bool any_ring_enabled();

  // Times, for all rings of the node; a change applies from the next start of the timer.
  void set_guard_ms(uint32_t ms);  // also sets WTB to this + 5000 ms
  void set_wtr_ms(uint32_t ms);
  void set_holdoff_ms(uint32_t ms);
  uint32_t guard_ms();
  uint32_t wtr_minutes();  // whole minutes, rounded down, whatever was written
  uint32_t holdoff_ms();
  TimerSettings timer_settings();

  // Operator commands. The module also answers "done" when the ring is disabled or a request of a
  // higher priority is in force: read the ring before and after to know.
  void forced_switch(uint32_t ring, uint32_t port);
  void manual_switch(uint32_t ring, uint32_t port);
  void clear(uint32_t ring);

  // For diagnosis.
  void set_port_state(uint32_t port, uint32_t state);  // PortState
  void add_capture_rule(const MacAddress& destination);
  void delete_capture_rule();
  void set_debug_switch(uint32_t value);

 private:
  struct Reply {
    QueuedMessage message;
    size_t length = 0;
    uint32_t code() const;
    uint32_t data_length() const;
    const uint8_t* data() const;
  };
  struct Request;
  class Ticket;

  Reply ask(const Request& request);
  void command(const Request& request);
  uint32_t read_number(const Request& request);
  void check_data(const Request& request, const Reply& reply, size_t expected) const;
  void discard_late_replies(const ManagementQueue& queue) noexcept;

  std::chrono::milliseconds timeout_;
  std::vector<long> abandoned_;  // reply types that may still come
};

}  // namespace erps::client
