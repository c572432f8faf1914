#include "erps/mgmt/capture_rules.h"

#include "erps/ring/ring_list.h"
#include "erps/runtime/log.h"
#include "platform/field_processor.h"

namespace {

constexpr uint32_t kEntityId = 19;

// Codes of the field processor interface.
constexpr uint32_t kActionCopyToProcessor = 30;
constexpr uint32_t kActionPriority = 2;
constexpr uint32_t kActionNoSwitching = 53;
constexpr uint32_t kQualifyIngressPorts = 13;
constexpr uint32_t kQualifyDestination = 7;
constexpr uint32_t kQualifyEtherType = 29;

// The address of all R-APS messages; the last byte, the ring ID, is left out of the comparison.
constexpr uint8_t erps_raps_redir_mac[kMacLength] = {0x01, 0x19, 0xA7, 0x00, 0x00, 0x00};
constexpr uint8_t kDestinationMask[kMacLength] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};

constexpr uint16_t kEtherTypeCfm = 0x8902;
constexpr uint16_t kEtherTypeMask = 0xFFFF;

// Ports 1 to 63 as a set of 256 bits.
constexpr uint32_t kPortSet[8] = {0xFFFFFFFE, 0xFFFFFFFF};
constexpr uint32_t kPortSetMask[8] = {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF,
                                      0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF};

// The log prints bytes as signed numbers: 0x80 and above come out as eight digits.
int signed_byte(uint8_t byte) {
  return static_cast<int8_t>(byte);
}

void add_actions(adp_fp_rule_t* rule) {
  const uint32_t copy_data = 0;
  const uint32_t copy_parameter = 3;
  const uint32_t priority = 6;
  adp_fp_add_entity_action(rule, kActionCopyToProcessor, &copy_data, sizeof copy_data,
                           &copy_parameter, sizeof copy_parameter);
  adp_fp_add_entity_action(rule, kActionPriority, &priority, sizeof priority, nullptr, 0);
  adp_fp_add_entity_action(rule, kActionNoSwitching, nullptr, 0, nullptr, 0);
}

void add_qualifiers(adp_fp_rule_t* rule, const uint8_t mac[6]) {
  adp_fp_add_entity_qualify(rule, kQualifyIngressPorts, kPortSet, sizeof kPortSet, kPortSetMask,
                            sizeof kPortSetMask);
  adp_fp_add_entity_qualify(rule, kQualifyDestination, mac, kMacLength, kDestinationMask,
                            sizeof kDestinationMask);
  adp_fp_add_entity_qualify(rule, kQualifyEtherType, &kEtherTypeCfm, sizeof kEtherTypeCfm,
                            &kEtherTypeMask, sizeof kEtherTypeMask);
}

}  // namespace

int32_t erps_add_acl_rule(const uint8_t mac[6]) {
  adp_fp_rule_t rule{};
  rule.entity_id = kEntityId;
  ERPS_DEBUG_AT("mac:%02x:%02x:%02x:%02x:%02x:%02x\n", signed_byte(mac[0]), signed_byte(mac[1]),
                signed_byte(mac[2]), signed_byte(mac[3]), signed_byte(mac[4]), signed_byte(mac[5]));
  ERPS_DEBUG("mac:%02x:%02x:%02x:%02x:%02x:%02x\n", signed_byte(mac[0]), signed_byte(mac[1]),
             signed_byte(mac[2]), signed_byte(mac[3]), signed_byte(mac[4]), signed_byte(mac[5]));
  add_actions(&rule);
  add_qualifiers(&rule, mac);
  return adp_fp_add_entity_rule(rule);
}

int32_t erps_del_acl_rule() {
  return adp_fp_delete_entity_rule(kEntityId, 0, 0);
}

int32_t erps_debug_acl_add(const uint8_t mac[6]) {
  return erps_add_acl_rule(mac);
}

int32_t erps_debug_acl_del() {
  return erps_del_acl_rule();
}

int32_t erps_raps_redir_cpu(uint32_t on) {
  return (on & 0xFF) == 0 ? erps_del_acl_rule() : erps_add_acl_rule(erps_raps_redir_mac);
}

uint32_t erps_non_ring_enable() {
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    if (ring->enable == 1) {
      return 0;
    }
  }
  return 1;
}

int32_t switch_enable_erps(uint32_t on) {
  if (erps_non_ring_enable() == 1) {
    erps_raps_redir_cpu(on != 0 ? 1 : 0);
  }
  return 0;
}
