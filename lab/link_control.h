// Makes and changes the network interfaces of one network namespace through rtnetlink.
//
// Belongs to the namespace that it was created in, whichever thread calls it later. Threading: one
// thread at a time. Errors: LabError with the kernel's own words where it has some. Logs nothing.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lab/mac_address.h"

struct mnl_socket;
struct nlmsghdr;

namespace erps::lab {

struct NewInterface {
  std::string name;
  uint32_t index = 0;  // different for every interface of the laboratory
  MacAddress address;  // zero: the kernel draws one
};

class LinkControl {
 public:
  LinkControl();
  ~LinkControl();
  LinkControl(const LinkControl&) = delete;
  LinkControl& operator=(const LinkControl&) = delete;

  // A bridge without STP and without multicast snooping.
  void create_bridge(const NewInterface& bridge);
  // A pair of interfaces, one here and one in another network namespace, both down.
  void create_pair(const NewInterface& here, const NewInterface& there, int there_namespace);
  void enslave(uint32_t index, uint32_t bridge_index);
  // No address of its own, so that the interface sends nothing by itself.
  void silence_ipv6(uint32_t index);
  void set_up(uint32_t index, bool up);

 private:
  nlmsghdr* begin(uint32_t index, int change_flags, uint16_t type, uint16_t flags);
  void ask(nlmsghdr* message, const std::string& what);

  mnl_socket* socket_ = nullptr;
  uint32_t sequence_ = 0;
  std::unique_ptr<char[]> buffer_;
};

}  // namespace erps::lab
