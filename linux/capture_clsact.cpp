#include <linux/if_ether.h>
#include <linux/pkt_cls.h>

#include "linux/capture_mechanism.h"
#include "linux/ingress_classifier.h"

namespace erps::linux_platform {
namespace {

// Drops with a classic BPF program in the interface's "clsact" qdisc, which runs behind the packet
// sockets and before the bridge.
class ClsactCapture final : public CaptureMechanism {
 public:
  std::string name() const override { return "clsact BPF"; }

  std::string probe(const std::vector<CaptureEntry>& entries) override {
    for (const CaptureEntry& entry : entries) {
      classifiers_.remove_stale(entry.ifindex, kDropPreference, ETH_P_ALL, "bpf");
    }
    std::string error = install(entries);
    remove();
    return error;
  }

  std::string install(const std::vector<CaptureEntry>& entries) override {
    classifiers_.remove_all(false);
    uint32_t preference = kDropPreference;
    for (const CaptureEntry& entry : entries) {
      if (const int error = add(entry, preference++); error != 0) {
        const std::string reason = classifiers_.reason(error);
        remove();
        return "interface " + entry.interface + ": " + reason;
      }
    }
    return {};
  }

  void remove() override { classifiers_.remove_all(true); }

 private:
  int add(const CaptureEntry& entry, uint32_t preference) {
    const FilterProgram program =
        make_filter(entry.match, TC_ACT_SHOT, static_cast<uint32_t>(TC_ACT_UNSPEC));
    NetlinkRequest request = IngressClassifiers::make_filter_request(
        RTM_NEWTFILTER, NLM_F_CREATE | NLM_F_EXCL, entry.ifindex, preference, ETH_P_ALL, "bpf");
    nlattr* options = mnl_attr_nest_start(request.get(), TCA_OPTIONS);
    mnl_attr_put_u16(request.get(), TCA_BPF_OPS_LEN, static_cast<uint16_t>(program.size()));
    mnl_attr_put(request.get(), TCA_BPF_OPS, program.size() * sizeof(sock_filter), program.data());
    mnl_attr_put_u32(request.get(), TCA_BPF_FLAGS, TCA_BPF_FLAG_ACT_DIRECT);
    mnl_attr_nest_end(request.get(), options);
    return classifiers_.add(request, entry.ifindex, preference, ETH_P_ALL, "bpf");
  }

  IngressClassifiers classifiers_;
};

}  // namespace

std::unique_ptr<CaptureMechanism> make_clsact_capture() {
  return std::make_unique<ClsactCapture>();
}

}  // namespace erps::linux_platform
