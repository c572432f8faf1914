#include "sim/checks/raps_dissector.h"

#include <algorithm>
#include <array>

namespace erps::sim {

namespace {

// Ethernet: two addresses, perhaps an IEEE 802.1Q tag, the type.
constexpr size_t kAddresses = 12;
constexpr size_t kTag = 4;
constexpr size_t kType = 2;
// The CFM header of Y.1731, the R-APS information of G.8032, the End TLV.
constexpr size_t kHeader = 4;
constexpr size_t kInformation = 32;
constexpr size_t kEndTlvLength = 1;
constexpr size_t kPdu = kHeader + kInformation + kEndTlvLength;
constexpr size_t kIdentity = 8;  // request, status and node ID; the rest is reserved

constexpr std::array<uint8_t, 5> kRapsGroup{0x01, 0x19, 0xA7, 0x00, 0x00};
constexpr unsigned kLastRingId = 239;
constexpr unsigned kLastVlan = 4094;

unsigned word(std::span<const uint8_t> frame, size_t at) {
  return unsigned{frame[at]} << 8U | frame[at + 1];
}

bool is_zero(std::span<const uint8_t> frame, size_t from, size_t to) {
  return std::all_of(frame.begin() + static_cast<std::ptrdiff_t>(from),
                     frame.begin() + static_cast<std::ptrdiff_t>(to),
                     [](uint8_t byte) { return byte == 0; });
}

// An address of one station.
bool is_station(std::span<const uint8_t> frame, size_t at) {
  return (frame[at] & 1U) == 0 && !is_zero(frame, at, at + 6);
}

FrameFault dissect_addresses(std::span<const uint8_t> frame) {
  if (!std::equal(kRapsGroup.begin(), kRapsGroup.end(), frame.begin())) {
    return FrameFault::kDestination;
  }
  if (frame[5] == 0 || frame[5] > kLastRingId) {
    return FrameFault::kRingId;
  }
  return is_station(frame, 6) ? FrameFault::kNone : FrameFault::kSource;
}

FrameFault dissect_header(std::span<const uint8_t> frame, size_t pdu) {
  // Bits 1 to 5 are the version: 1 since 2010; the level above them may be any.
  if ((frame[pdu] & 0x1FU) != 1) {
    return FrameFault::kVersion;
  }
  constexpr uint8_t kRaps = 40;
  if (frame[pdu + 1] != kRaps) {
    return FrameFault::kOpcode;
  }
  if (frame[pdu + 2] != 0) {
    return FrameFault::kFlags;
  }
  return frame[pdu + 3] == kInformation ? FrameFault::kNone : FrameFault::kTlvOffset;
}

FrameFault dissect_information(std::span<const uint8_t> frame, size_t information) {
  constexpr unsigned kNr = 0x0;
  constexpr unsigned kMs = 0x7;
  constexpr unsigned kSf = 0xB;
  constexpr unsigned kFs = 0xD;
  constexpr unsigned kEvent = 0xE;
  const unsigned request = frame[information] >> 4U;
  const unsigned sub_code = frame[information] & 0x0FU;
  const unsigned status = frame[information + 1];
  if (request != kNr && request != kMs && request != kSf && request != kFs && request != kEvent) {
    return FrameFault::kRequest;
  }
  constexpr unsigned kMark = 0xA;
  // Of an Event the sub-code says which one, and there is only the request to flush.
  if (sub_code != 0 && sub_code != kMark) {
    return FrameFault::kSubCode;
  }
  // RB, DNF, BPR, then five reserved bits. Only no request comes from an owner that blocks.
  const bool rb = (status & 0x80U) != 0;
  if ((status & 0x1FU) != 0 || (rb && request != kNr)) {
    return FrameFault::kStatus;
  }
  if (!is_station(frame, information + 2)) {
    return FrameFault::kNodeId;
  }
  if (!is_zero(frame, information + kIdentity, information + kInformation)) {
    return FrameFault::kReserved;
  }
  if (frame[information + kInformation] != 0) {
    return FrameFault::kEndTlv;
  }
  if (sub_code == 0) {
    return FrameFault::kNone;
  }
  return request == kEvent ? FrameFault::kMarkedEvent : FrameFault::kMarkedSubCode;
}

}  // namespace

FrameFault dissect(std::span<const uint8_t> frame) {
  constexpr unsigned kTpid = 0x8100;
  constexpr unsigned kCfm = 0x8902;
  if (frame.size() < kAddresses + kType + kPdu) {
    return FrameFault::kTooShort;
  }
  if (const FrameFault fault = dissect_addresses(frame); fault != FrameFault::kNone) {
    return fault;
  }
  size_t pdu = kAddresses + kType;
  if (word(frame, kAddresses) == kTpid) {
    pdu += kTag;
    const unsigned vlan = word(frame, kAddresses + 2) & 0x0FFFU;
    if (frame.size() < pdu + kPdu) {
      return FrameFault::kTooShort;
    }
    if (vlan == 0 || vlan > kLastVlan) {
      return FrameFault::kVlan;
    }
  }
  if (word(frame, pdu - kType) != kCfm) {
    return FrameFault::kEtherType;
  }
  if (const FrameFault fault = dissect_header(frame, pdu); fault != FrameFault::kNone) {
    return fault;
  }
  const FrameFault fault = dissect_information(frame, pdu + kHeader);
  const bool is_sound = fault == FrameFault::kNone || fault == FrameFault::kMarkedSubCode ||
                        fault == FrameFault::kMarkedEvent;
  return is_sound && !is_zero(frame, pdu + kPdu, frame.size()) ? FrameFault::kTrailer : fault;
}

const char* text_of(FrameFault fault) {
  switch (fault) {
    case FrameFault::kNone:
      return "nothing is wrong";
    case FrameFault::kTooShort:
      return "it is too short";
    case FrameFault::kDestination:
      return "its destination is not 01-19-A7-00-00-<ring ID>";
    case FrameFault::kRingId:
      return "its ring ID is not within 1 to 239";
    case FrameFault::kSource:
      return "its source is a group address or zero";
    case FrameFault::kVlan:
      return "its VLAN is not within 1 to 4094";
    case FrameFault::kEtherType:
      return "its EtherType is not 0x8902";
    case FrameFault::kVersion:
      return "its version is not 1";
    case FrameFault::kOpcode:
      return "its opcode is not 40";
    case FrameFault::kFlags:
      return "its flags are not 0";
    case FrameFault::kTlvOffset:
      return "its TLV offset is not 32";
    case FrameFault::kRequest:
      return "its request is none of FS, SF, MS, Event and NR";
    case FrameFault::kMarkedSubCode:
      return "its sub-code is 1010, the mark of an interconnection node";
    case FrameFault::kMarkedEvent:
      return "its sub-code is 1010, the mark of an interconnection node, on an Event";
    case FrameFault::kSubCode:
      return "its sub-code is not 0";
    case FrameFault::kStatus:
      return "its status has reserved bits, or RB outside of NR";
    case FrameFault::kNodeId:
      return "its node ID is a group address or zero";
    case FrameFault::kReserved:
      return "its reserved octets are not 0";
    case FrameFault::kEndTlv:
      return "it has no End TLV";
    case FrameFault::kTrailer:
      return "something follows the End TLV";
  }
  return "";
}

}  // namespace erps::sim
