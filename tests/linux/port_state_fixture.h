// What tests of port states and of what goes with them start from.
#pragma once

#include <linux/if_bridge.h>

#include "platform/switch_adaptation.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {

class PortStateTest : public PlatformTest {
 protected:
  // Both ports forwarding, in force.
  void open_both() {
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
    ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
    ASSERT_EQ(kernel_link("p1").port_state, BR_STATE_FORWARDING);
    ASSERT_EQ(kernel_link("p2").port_state, BR_STATE_FORWARDING);
  }

  // Handles one event of the node's own, as the protocol task would, and calls `handler` in it.
  template <typename Handler>
  void in_event(Handler handler) {
    ASSERT_TRUE(send(10));
    const auto event = receive();
    ASSERT_TRUE(event);
    handler();
  }
  // Goes back for the next event; whatever waits is not fetched.
  void finish_event() {
    in_event([] {});
  }
};

}  // namespace erps::linux_platform::test
