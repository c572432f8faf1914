#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/pkt_sched.h>

#include <cerrno>
#include <cstring>
#include <set>

#include "linux/capture_mechanism.h"
#include "linux/netlink_socket.h"

namespace erps::linux_platform {
namespace {

// Our own among the classifiers of an interface; ahead of the numbers that the kernel gives out.
constexpr uint32_t kFirstPreference = 0x0E89;

// Drops with a classic BPF program in the interface's "clsact" qdisc, which runs behind the packet
// sockets and before the bridge.
class ClsactCapture final : public CaptureMechanism {
 public:
  const char* name() const override { return "clsact BPF"; }

  std::string probe(const std::vector<CaptureEntry>& entries) override {
    for (const CaptureEntry& entry : entries) {
      remove_filter(entry.ifindex, kFirstPreference);
    }
    const std::string error = install(entries);
    remove();
    return error;
  }

  std::string install(const std::vector<CaptureEntry>& entries) override {
    remove_filters();
    uint32_t preference = kFirstPreference;
    for (const CaptureEntry& entry : entries) {
      int error = add_qdisc(entry.ifindex);
      if (error == 0) {
        own_qdiscs_.insert(entry.ifindex);
      }
      if (error == 0 || error == EEXIST) {
        error = add_filter(entry, preference);
      }
      if (error != 0) {
        const std::string reason =
            *socket_.last_error_text() != '\0' ? socket_.last_error_text() : std::strerror(error);
        remove();
        return "interface " + entry.interface + ": " + reason;
      }
      filters_.push_back({entry.ifindex, preference++});
    }
    return {};
  }

  void remove() override {
    remove_filters();
    for (const uint32_t ifindex : own_qdiscs_) {
      NetlinkRequest request(RTM_DELQDISC, 0);
      fill_qdisc(request, ifindex);
      socket_.transact(request);
    }
    own_qdiscs_.clear();
  }

 private:
  struct Filter {
    uint32_t ifindex;
    uint32_t preference;
  };

  static void fill_qdisc(NetlinkRequest& request, uint32_t ifindex) {
    auto& header = request.add_header<tcmsg>();
    header.tcm_ifindex = static_cast<int>(ifindex);
    header.tcm_handle = TC_H_MAKE(TC_H_CLSACT, 0);
    header.tcm_parent = TC_H_CLSACT;
    mnl_attr_put_strz(request.get(), TCA_KIND, "clsact");
  }

  static void fill_filter(NetlinkRequest& request, uint32_t ifindex, uint32_t preference) {
    auto& header = request.add_header<tcmsg>();
    header.tcm_ifindex = static_cast<int>(ifindex);
    header.tcm_parent = TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_INGRESS);
    header.tcm_info = TC_H_MAKE(preference << 16, htons(ETH_P_ALL));
    mnl_attr_put_strz(request.get(), TCA_KIND, "bpf");
  }

  int add_qdisc(uint32_t ifindex) {
    NetlinkRequest request(RTM_NEWQDISC, NLM_F_CREATE | NLM_F_EXCL);
    fill_qdisc(request, ifindex);
    return socket_.transact(request);
  }

  int add_filter(const CaptureEntry& entry, uint32_t preference) {
    const FilterProgram program =
        make_filter(entry.match, TC_ACT_SHOT, static_cast<uint32_t>(TC_ACT_UNSPEC));
    NetlinkRequest request(RTM_NEWTFILTER, NLM_F_CREATE | NLM_F_EXCL);
    fill_filter(request, entry.ifindex, preference);
    nlattr* options = mnl_attr_nest_start(request.get(), TCA_OPTIONS);
    mnl_attr_put_u16(request.get(), TCA_BPF_OPS_LEN, static_cast<uint16_t>(program.size()));
    mnl_attr_put(request.get(), TCA_BPF_OPS, program.size() * sizeof(sock_filter), program.data());
    mnl_attr_put_u32(request.get(), TCA_BPF_FLAGS, TCA_BPF_FLAG_ACT_DIRECT);
    mnl_attr_nest_end(request.get(), options);
    return socket_.transact(request);
  }

  void remove_filter(uint32_t ifindex, uint32_t preference) {
    NetlinkRequest request(RTM_DELTFILTER, 0);
    fill_filter(request, ifindex, preference);
    socket_.transact(request);
  }

  void remove_filters() {
    for (const Filter& filter : filters_) {
      remove_filter(filter.ifindex, filter.preference);
    }
    filters_.clear();
  }

  NetlinkSocket socket_;
  std::vector<Filter> filters_;
  std::set<uint32_t> own_qdiscs_;
};

}  // namespace

std::unique_ptr<CaptureMechanism> make_clsact_capture() {
  return std::make_unique<ClsactCapture>();
}

}  // namespace erps::linux_platform
