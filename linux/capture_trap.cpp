#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/tc_act/tc_gact.h>

#include "linux/capture_mechanism.h"
#include "linux/ingress_classifier.h"

namespace erps::linux_platform {
namespace {

// Switch hardware forwards by itself: a flower classifier with the action "trap" makes it hand
// R-APS frames to the processor instead. The software bridge would still flood what arrives there,
// so the software mechanism stays in force behind it.
class TrapCapture final : public CaptureMechanism {
 public:
  explicit TrapCapture(std::unique_ptr<CaptureMechanism> software)
      : software_(std::move(software)) {}

  std::string name() const override { return "tc flower trap, " + software_->name(); }

  // The software mechanism has been probed by whoever hands it over.
  std::string probe(const std::vector<CaptureEntry>& entries) override {
    uint32_t preference = kTrapPreference;
    for (const CaptureEntry& entry : entries) {
      for (const uint16_t outer : {entry.match.ether_type, uint16_t{ETH_P_8021Q}}) {
        classifiers_.remove_stale(entry.ifindex, preference++, outer, "flower");
      }
      preference = kTrapPreference;
    }
    std::string error = trap(entries);
    classifiers_.remove_all(true);
    return error;
  }

  std::string install(const std::vector<CaptureEntry>& entries) override {
    std::string error = software_->install(entries);
    if (error.empty()) {
      error = trap(entries);
    }
    return error;
  }

  void remove() override {
    classifiers_.remove_all(true);
    software_->remove();
  }

  std::unique_ptr<CaptureMechanism> give_back_software() override { return std::move(software_); }

 private:
  std::string trap(const std::vector<CaptureEntry>& entries) {
    classifiers_.remove_all(false);
    for (const CaptureEntry& entry : entries) {
      uint32_t preference = kTrapPreference;
      for (const uint16_t outer : {entry.match.ether_type, uint16_t{ETH_P_8021Q}}) {
        if (const int error = add(entry, preference++, outer); error != 0) {
          const std::string reason = classifiers_.reason(error);
          classifiers_.remove_all(true);
          return "interface " + entry.interface + ": " + reason;
        }
      }
    }
    return {};
  }

  // `outer` is the first EtherType of the frame: that of R-APS itself or that of a VLAN tag.
  int add(const CaptureEntry& entry, uint32_t preference, uint16_t outer) {
    NetlinkRequest request = IngressClassifiers::make_filter_request(
        RTM_NEWTFILTER, NLM_F_CREATE | NLM_F_EXCL, entry.ifindex, preference, outer, "flower");
    nlmsghdr* message = request.get();
    nlattr* options = mnl_attr_nest_start(message, TCA_OPTIONS);
    mnl_attr_put_u16(message, TCA_FLOWER_KEY_ETH_TYPE, htons(outer));
    if (outer != entry.match.ether_type) {
      mnl_attr_put_u16(message, TCA_FLOWER_KEY_VLAN_ETH_TYPE, htons(entry.match.ether_type));
    }
    mnl_attr_put(message, TCA_FLOWER_KEY_ETH_DST, entry.match.destination.size(),
                 entry.match.destination.data());
    mnl_attr_put(message, TCA_FLOWER_KEY_ETH_DST_MASK, entry.match.mask.size(),
                 entry.match.mask.data());
    // Hardware or nothing: a device without it refuses.
    mnl_attr_put_u32(message, TCA_FLOWER_FLAGS, TCA_CLS_FLAGS_SKIP_SW);
    put_trap_action(message);
    mnl_attr_nest_end(message, options);
    return classifiers_.add(request, entry.ifindex, preference, outer, "flower");
  }

  static void put_trap_action(nlmsghdr* message) {
    nlattr* actions = mnl_attr_nest_start(message, TCA_FLOWER_ACT);
    nlattr* first = mnl_attr_nest_start(message, 1);
    mnl_attr_put_strz(message, TCA_ACT_KIND, "gact");
    nlattr* options = mnl_attr_nest_start(message, TCA_ACT_OPTIONS);
    tc_gact parameters{};
    parameters.action = TC_ACT_TRAP;
    mnl_attr_put(message, TCA_GACT_PARMS, sizeof parameters, &parameters);
    mnl_attr_nest_end(message, options);
    mnl_attr_nest_end(message, first);
    mnl_attr_nest_end(message, actions);
  }

  std::unique_ptr<CaptureMechanism> software_;
  IngressClassifiers classifiers_;
};

}  // namespace

std::unique_ptr<CaptureMechanism> make_trap_capture(std::unique_ptr<CaptureMechanism> software) {
  return std::make_unique<TrapCapture>(std::move(software));
}

}  // namespace erps::linux_platform
