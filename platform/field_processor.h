// The packet classifier that steers R-APS frames to the processor.
//
// All calls are made from the protocol task. Result 0 means done, anything else failed.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// A rule under construction. The module clears it, writes entity_id and fills the rest only
// through the calls below; its layout behind entity_id is the host's own.
typedef struct {
  uint32_t entity_id;
  uint8_t opaque[6264];
} adp_fp_rule_t;

// Appends an action to the rule. data and parameter may be null with length 0; lengths in bytes,
// numbers in machine order. Actions in use: 30 (copy or redirect to the processor, parameter 3),
// 2 (priority, data 6), 53 (no data).
int adp_fp_add_entity_action(adp_fp_rule_t* rule, uint32_t action, const void* data,
                             uint32_t data_length, const void* parameter,
                             uint32_t parameter_length);

// Appends a match to the rule: value and mask of the same length in bytes. Qualifiers in use:
// 13 (set of ingress ports, 256 bits), 7 (destination MAC address), 29 (EtherType, machine order).
int adp_fp_add_entity_qualify(adp_fp_rule_t* rule, uint32_t qualifier, const void* value,
                              uint32_t value_length, const void* mask, uint32_t mask_length);

// Installs the rule. A rule with the same entity_id may already be installed; replacing it is the
// host's affair.
int adp_fp_add_entity_rule(adp_fp_rule_t rule);

// Removes the rule with this entity_id. arg1 and arg2 are always 0.
int adp_fp_delete_entity_rule(uint32_t entity_id, uint32_t arg1, uint32_t arg2);

#ifdef __cplusplus
}
#endif
