#include "client/words.h"

#include <stddef.h>

namespace erps::client {

namespace {

struct Word {
  uint32_t number;
  const char* text;
};

constexpr Word kStates[] = {
    {kStateInit, "init"},
    {kStateIdle, "idle"},
    {kStateProtection, "protection"},
    {kStateManualSwitch, "manual-switch"},
    {kStateForcedSwitch, "forced-switch"},
    {kStatePending, "pending"},
};

constexpr Word kRequests[] = {
    {14, "clear"},       {13, "FS"},         {12, "R-APS(FS)"},  {11, "SF"},
    {10, "clear SF"},    {9, "R-APS(SF)"},   {8, "R-APS(MS)"},   {7, "MS"},
    {6, "WTR expires"},  {5, "WTR running"}, {4, "WTB expires"}, {3, "WTB running"},
    {2, "R-APS(NR,RB)"}, {1, "R-APS(NR)"},   {0, "none"},
};

constexpr Word kNodeRoles[] = {{kOwner, "owner"}, {kNeighbour, "neighbour"}, {kNoRplRole, "none"}};

constexpr Word kRingRoles[] = {
    {kMajorRing, "major"},
    {kSubRing, "sub-ring"},
    {kSubRingAtInterconnection, "sub-ring at an interconnection node"},
};
constexpr size_t kSettableRingRoles = 2;

constexpr Word kPortStates[] = {
    {kPortForwarding, "forwarding"}, {kPortBlocked, "blocked"}, {0, "not set"}};

constexpr Word kInterconnectionRoles[] = {{kWatching, "watching"}, {kMarking, "marking"}};

template <size_t N>
std::string name_in(const Word (&words)[N], uint32_t number) {
  for (const Word& word : words) {
    if (word.number == number) {
      return word.text;
    }
  }
  return "unknown (" + std::to_string(number) + ")";
}

std::optional<uint32_t> number_in(const Word* words, size_t count, std::string_view text) {
  for (size_t i = 0; i < count; ++i) {
    if (text == words[i].text) {
      return words[i].number;
    }
  }
  return std::nullopt;
}

}  // namespace

std::string state_name(uint32_t state) {
  return name_in(kStates, state);
}
std::string request_name(uint32_t request) {
  return name_in(kRequests, request);
}
std::string node_role_name(uint32_t role) {
  return name_in(kNodeRoles, role);
}
std::string ring_role_name(uint32_t role) {
  return name_in(kRingRoles, role);
}
std::string port_state_name(uint32_t state) {
  return name_in(kPortStates, state);
}
std::string interconnection_role_name(uint32_t role) {
  return name_in(kInterconnectionRoles, role == kWatching ? kWatching : kMarking);
}

std::optional<uint32_t> node_role_of(std::string_view word) {
  return number_in(kNodeRoles, std::size(kNodeRoles), word);
}
std::optional<uint32_t> ring_role_of(std::string_view word) {
  return number_in(kRingRoles, kSettableRingRoles, word);
}
std::optional<uint32_t> interconnection_role_of(std::string_view word) {
  return number_in(kInterconnectionRoles, std::size(kInterconnectionRoles), word);
}

}  // namespace erps::client
