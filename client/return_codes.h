// What each return code of the module means, as sentences for operators.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "erps/mgmt/message.h"

namespace erps::client {

struct ReturnCode {
  uint32_t code;
  const char* sentence;
};

inline constexpr uint32_t kUnknownCommandCode = 1;  // what ret_code 0xFF stands for

// One row a code, in ascending order.
inline constexpr ReturnCode kReturnCodes[] = {
    {mgmt::kDone, "done"},
    {kUnknownCommandCode, "the module does not know this command"},
    {mgmt::kRingRunning, "the ring is enabled; disable it first"},
    {mgmt::kNoSuchRing, "there is no ring with this ID"},
    {mgmt::kRingRunningNoChange, "the ring is enabled and cannot be changed; disable it first"},
    {mgmt::kVlanInUse, "the control VLAN is used by another ring"},
    {mgmt::kSamePorts, "both ring ports are the same port"},
    {mgmt::kPortInUse, "a port already belongs to another ring"},
    {mgmt::kSameRingIds, "major ring and sub-ring have the same ID"},
    {mgmt::kNotThisMajorRing,
     "the ring to attach is a major ring, or is attached to another major ring"},
    {mgmt::kNoMemory, "the ring could not be created: out of memory"},
    {mgmt::kNoSuchPort, "the port is not a port of this ring"},
    {mgmt::kNoMajorRing, "there is no major ring with this ID"},
    {mgmt::kSubRingRoleFixed, "the role of a sub-ring at an interconnection node is fixed"},
    {mgmt::kSubRingRoleNotSettable,
     "the role of a sub-ring at an interconnection node is not settable"},
    {mgmt::kCaptureFailed, "R-APS frames could not be captured"},
};

// The sentence for a code, or null when no such code is known.
constexpr const char* return_code_sentence(uint32_t code) {
  for (const ReturnCode& row : kReturnCodes) {
    if (row.code == code) {
      return row.sentence;
    }
  }
  return nullptr;
}

// From the ret_code byte of a reply back to the code: the byte is its negation.
constexpr uint32_t code_of_ret_code(uint8_t ret_code) {
  return (0u - ret_code) & 0xFFu;
}

constexpr bool return_codes_ascend() {
  for (size_t i = 1; i < sizeof kReturnCodes / sizeof kReturnCodes[0]; ++i) {
    if (kReturnCodes[i - 1].code >= kReturnCodes[i].code) {
      return false;
    }
  }
  return true;
}
static_assert(return_codes_ascend());
static_assert(code_of_ret_code(mgmt::kUnknownCommand) == kUnknownCommandCode);
static_assert(code_of_ret_code(mgmt::ret_code_of(mgmt::kCaptureFailed)) == mgmt::kCaptureFailed);

}  // namespace erps::client
