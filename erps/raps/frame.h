// The R-APS frame of ITU-T G.8032 clause 10: offsets, a builder and a reader.
//
//   offset          size  content
//   0                 6   destination 01-19-A7-00-00-<ring ID>
//   6                 6   source address
//   12                4   IEEE 802.1Q tag, priority 7 (only with a control VLAN)
//   L-2               2   EtherType 0x8902
//   L+0               1   MEL (3 bits) 0, version (5 bits) 1
//   L+1               1   opcode 40
//   L+2               1   flags 0
//   L+3               1   TLV offset 32
//   L+4               1   request/state (4 bits), sub-code (4 bits)
//   L+5               1   status: RB, DNF, BPR, 5 bits 0
//   L+6               6   node ID
//   L+12             24   reserved 0
//   L+36              1   End TLV 0
//
// L is 18 with a tag and 14 without. Header only: tools that decode what passes include it too.
#pragma once

#include <stdint.h>
#include <string.h>

namespace erps::raps {

inline constexpr uint32_t kMacLength = 6;
inline constexpr uint32_t kDestinationOffset = 0;
inline constexpr uint32_t kRingIdOffset = 5;  // last byte of the destination address
inline constexpr uint32_t kSourceOffset = 6;
inline constexpr uint32_t kTpidOffset = 12;
inline constexpr uint32_t kTciOffset = 14;
inline constexpr uint32_t kUntaggedPdu = 14;
inline constexpr uint32_t kTaggedPdu = 18;

// Offsets from the start of the CFM common header.
inline constexpr uint32_t kRequestOffset = 4;
inline constexpr uint32_t kStatusOffset = 5;
inline constexpr uint32_t kNodeIdOffset = 6;
inline constexpr uint32_t kPduLength = 37;
inline constexpr uint32_t kInfoLength = 32;  // R-APS specific information, from kRequestOffset

inline constexpr uint32_t kUntaggedLength = kUntaggedPdu + kPduLength;
inline constexpr uint32_t kTaggedLength = kTaggedPdu + kPduLength;
static_assert(kUntaggedLength == 51 && kTaggedLength == 55);

inline constexpr uint16_t kEtherTypeVlan = 0x8100;
inline constexpr uint16_t kEtherTypeCfm = 0x8902;
inline constexpr uint16_t kTciPriority7 = 0xE000;
inline constexpr uint8_t kDestinationPrefix[5] = {0x01, 0x19, 0xA7, 0x00, 0x00};

inline constexpr uint8_t kStatusRb = 0x80;   // RPL blocked
inline constexpr uint8_t kStatusDnf = 0x40;  // do not flush
inline constexpr uint8_t kStatusBpr = 0x20;  // blocked port reference

// Sub-code of a message that has passed a major-ring interconnection node which only marks.
inline constexpr uint8_t kInterconnectionMark = 0x0A;

// Values of the request/state field.
enum Request : uint8_t {
  kNr = 0,
  kMs = 7,
  kSf = 11,
  kFs = 13,
  kEvent = 14,
};

// Text of a request for logs and displays; only the low eight bits of the request count.
inline const char* request_name(uint32_t request, uint32_t rb) {
  switch (request & 0xFF) {
    case kNr:
      return rb == 0 ? "NR" : "NR_RB";
    case kMs:
      return "RAPS_MS";
    case kSf:
      return "RAPS_SF";
    case kFs:
      return "RAPS_FS";
    case kEvent:
      return "RAPS_EVENT";
    default:
      return "Unknown";
  }
}

// The CFM PDU of an R-APS message, at least kPduLength readable bytes.
class PduView {
 public:
  explicit PduView(const uint8_t* pdu) : pdu_(pdu) {}

  uint8_t request_byte() const { return pdu_[kRequestOffset]; }
  uint8_t request() const { return static_cast<uint8_t>(pdu_[kRequestOffset] >> 4); }
  uint8_t sub_code() const { return pdu_[kRequestOffset] & 0x0F; }
  uint8_t status() const { return pdu_[kStatusOffset]; }
  uint8_t rb() const { return (pdu_[kStatusOffset] & kStatusRb) != 0 ? 1 : 0; }
  uint8_t dnf() const { return (pdu_[kStatusOffset] & kStatusDnf) != 0 ? 1 : 0; }
  uint8_t bpr() const { return (pdu_[kStatusOffset] & kStatusBpr) != 0 ? 1 : 0; }
  const uint8_t* node_id() const { return pdu_ + kNodeIdOffset; }
  const uint8_t* info() const { return pdu_ + kRequestOffset; }

 private:
  const uint8_t* pdu_;
};

struct Message {
  uint32_t ring_id;        // its low eight bits become part of the destination address
  uint32_t vlan_id;        // control VLAN, 0 untagged; ORed into the tag without masking
  uint8_t request;         // request/state, low four bits
  uint8_t rb, dnf, bpr;    // bit 0 counts
  const uint8_t* source;   // six bytes
  const uint8_t* node_id;  // six bytes
};

// Writes the frame and returns its length: kTaggedLength, or kUntaggedLength with vlan_id 0.
// `frame` has room for kTaggedLength bytes.
inline uint32_t build(const Message& message, uint8_t* frame) {
  static constexpr uint8_t kPduTemplate[kPduLength] = {0x01, 0x28, 0x00, 0x20};
  memcpy(frame + kDestinationOffset, kDestinationPrefix, sizeof kDestinationPrefix);
  frame[kRingIdOffset] = static_cast<uint8_t>(message.ring_id);
  memcpy(frame + kSourceOffset, message.source, kMacLength);

  uint32_t pdu = kUntaggedPdu;
  if (message.vlan_id != 0) {
    const uint32_t tci = kTciPriority7 | message.vlan_id;
    frame[kTpidOffset] = kEtherTypeVlan >> 8;
    frame[kTpidOffset + 1] = kEtherTypeVlan & 0xFF;
    frame[kTciOffset] = static_cast<uint8_t>(tci >> 8);
    frame[kTciOffset + 1] = static_cast<uint8_t>(tci);
    pdu = kTaggedPdu;
  }
  frame[pdu - 2] = kEtherTypeCfm >> 8;
  frame[pdu - 1] = kEtherTypeCfm & 0xFF;
  memcpy(frame + pdu, kPduTemplate, kPduLength);
  frame[pdu + kRequestOffset] = static_cast<uint8_t>(message.request << 4);
  frame[pdu + kStatusOffset] = static_cast<uint8_t>(((message.rb & 1) != 0 ? kStatusRb : 0) |
                                                    ((message.dnf & 1) != 0 ? kStatusDnf : 0) |
                                                    ((message.bpr & 1) != 0 ? kStatusBpr : 0));
  memcpy(frame + pdu + kNodeIdOffset, message.node_id, kMacLength);
  return pdu + kPduLength;
}

}  // namespace erps::raps
