#include "erps/raps/ranking.h"

#include <string.h>

#include "erps/fsm/requests.h"
#include "erps/raps/frame.h"
#include "erps/runtime/log.h"

namespace raps = erps::raps;

namespace {
uint32_t request_of(uint32_t request, uint32_t rb) {
  switch (request) {
    case raps::kNr:
      return rb != 0 ? REQUEST_RAPS_NR_RB : REQUEST_RAPS_NR;
    case raps::kMs:
      return REQUEST_RAPS_MS;
    case raps::kSf:
      return REQUEST_RAPS_SF;
    case raps::kFs:
      return REQUEST_RAPS_FS;
    default:
      return REQUEST_NONE;
  }
}
}  // namespace

uint32_t get_raps_priority(uint32_t request, uint32_t rb) {
  const uint32_t msg = request_of(request, rb);
  ERPS_DEBUG_AT("exit msg = %d \n", msg);
  return msg;
}

const char* erps_get_raps_string(uint32_t request, uint32_t rb) {
  return raps::request_name(request, rb);
}

uint32_t erps_proc_repeat_ms_cmd(const ERPSM_T* ring, const ERPS_PORT_T* port, const uint8_t* pdu) {
  const raps::PduView message(pdu);
  const bool repeated = message.request() == raps::kMs && ring->State == STATE_MANUAL &&
                        ring->current_priority == REQUEST_RAPS_MS &&
                        port->rx_bpr == message.bpr() &&
                        memcmp(port->rx_node_id, message.node_id(), kMacLength) == 0;
  return repeated ? kRxRepeatedMs : 0;
}
