#include "linux/ingress_classifier.h"

#include <arpa/inet.h>
#include <linux/pkt_sched.h>

#include <cerrno>
#include <cstring>

namespace erps::linux_platform {
namespace {

NetlinkRequest make_qdisc_request(uint16_t type, uint16_t flags, uint32_t ifindex) {
  NetlinkRequest request(type, flags);
  auto& header = request.add_header<tcmsg>();
  header.tcm_ifindex = static_cast<int>(ifindex);
  header.tcm_handle = TC_H_MAKE(TC_H_CLSACT, 0);
  header.tcm_parent = TC_H_CLSACT;
  mnl_attr_put_strz(request.get(), TCA_KIND, "clsact");
  return request;
}

}  // namespace

NetlinkRequest IngressClassifiers::make_filter_request(uint16_t type, uint16_t flags,
                                                       uint32_t ifindex, uint32_t preference,
                                                       uint16_t ether_type, const char* kind) {
  NetlinkRequest request(type, flags);
  auto& header = request.add_header<tcmsg>();
  header.tcm_ifindex = static_cast<int>(ifindex);
  header.tcm_parent = TC_H_MAKE(TC_H_CLSACT, TC_H_MIN_INGRESS);
  header.tcm_info = TC_H_MAKE(preference << 16, htons(ether_type));
  mnl_attr_put_strz(request.get(), TCA_KIND, kind);
  return request;
}

int IngressClassifiers::add(NetlinkRequest& request, uint32_t ifindex, uint32_t preference,
                            uint16_t ether_type, const char* kind) {
  NetlinkRequest qdisc = make_qdisc_request(RTM_NEWQDISC, NLM_F_CREATE | NLM_F_EXCL, ifindex);
  int error = socket_.transact(qdisc);
  if (error == 0) {
    own_qdiscs_.insert(ifindex);
  }
  if (error == 0 || error == EEXIST) {
    error = socket_.transact(request);
  }
  if (error == 0) {
    added_.push_back({ifindex, preference, ether_type, kind});
  }
  return error;
}

void IngressClassifiers::remove_stale(uint32_t ifindex, uint32_t preference, uint16_t ether_type,
                                      const char* kind) {
  NetlinkRequest request =
      make_filter_request(RTM_DELTFILTER, 0, ifindex, preference, ether_type, kind);
  socket_.transact(request);
}

void IngressClassifiers::remove_all(bool qdiscs) {
  for (const Added& filter : added_) {
    remove_stale(filter.ifindex, filter.preference, filter.ether_type, filter.kind);
  }
  added_.clear();
  if (!qdiscs) {
    return;
  }
  for (const uint32_t ifindex : own_qdiscs_) {
    NetlinkRequest request = make_qdisc_request(RTM_DELQDISC, 0, ifindex);
    socket_.transact(request);
  }
  own_qdiscs_.clear();
}

std::string IngressClassifiers::reason(int error) const {
  return *socket_.last_error_text() != '\0' ? socket_.last_error_text() : std::strerror(error);
}

}  // namespace erps::linux_platform
