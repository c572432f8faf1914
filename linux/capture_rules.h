// The capture rules that the module has asked for, and the mechanism that holds them.
//
// The node listens to R-APS exactly as long as a rule keeps them from the bridge: were a frame both
// flooded by the bridge and relayed by the module, each node would double it.
//
// Threading: any thread, one lock; the rules themselves come from the protocol task.
// Errors: choose() throws PlatformError when no mechanism works; the others return 0 or -1 and log.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "linux/capture_mechanism.h"
#include "linux/history.h"
#include "linux/ring_port.h"
#include "platform/field_processor.h"

namespace erps::linux_platform {

// Fills the part of a rule that is the host's; 0 done, -1 when the module asks for something that
// an R-APS capture rule does not have.
int add_rule_action(adp_fp_rule_t& rule, uint32_t action, const void* data, uint32_t data_length,
                    const void* parameter, uint32_t parameter_length);
int add_rule_qualifier(adp_fp_rule_t& rule, uint32_t qualifier, const void* value,
                       uint32_t value_length, const void* mask, uint32_t mask_length);

class CaptureRules {
 public:
  CaptureRules(const RingPorts& ports, std::string bridge, History& history)
      : ports_(ports), bridge_(std::move(bridge)), history_(history) {}

  // Probes the mechanisms, best first, on the ring ports and keeps the first that works.
  void choose();

  int add(const adp_fp_rule_t& rule);
  int remove(uint32_t entity_id);
  void remove_all();
  // Installs the rules again: an interface came back.
  void refresh();

  std::string mechanism() const;
  bool installed() const;
  std::string error() const;

 private:
  struct Rule {
    uint32_t entity_id;
    uint64_t ports;  // bit n: port n
    FrameMatch match;
  };

  int install();

  const RingPorts& ports_;
  const std::string bridge_;
  History& history_;
  mutable std::mutex mutex_;
  std::unique_ptr<CaptureMechanism> mechanism_;
  std::vector<Rule> rules_;
  bool installed_ = false;
  std::string error_;
};

}  // namespace erps::linux_platform
