// Walks netlink attributes; libmnl's own loops are macros that only C compiles.
#pragma once

#include <libmnl/libmnl.h>

namespace erps::linux_platform {

template <typename Visitor>
void for_each_attribute(const void* first, size_t length, Visitor visit) {
  const auto* end = static_cast<const char*>(first) + length;
  const auto* attribute = static_cast<const nlattr*>(first);
  while (mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char*>(attribute)))) {
    visit(attribute);
    attribute = mnl_attr_next(attribute);
  }
}

// The attributes of a message behind its fixed header of `header_bytes`.
template <typename Visitor>
void for_each_attribute_of(const nlmsghdr* message, size_t header_bytes, Visitor visit) {
  const size_t aligned = MNL_ALIGN(header_bytes);
  const size_t payload = mnl_nlmsg_get_payload_len(message);
  if (payload > aligned) {
    for_each_attribute(mnl_nlmsg_get_payload_offset(message, header_bytes), payload - aligned,
                       visit);
  }
}

template <typename Visitor>
void for_each_nested(const nlattr* nest, Visitor visit) {
  for_each_attribute(mnl_attr_get_payload(nest), mnl_attr_get_payload_len(nest), visit);
}

}  // namespace erps::linux_platform
