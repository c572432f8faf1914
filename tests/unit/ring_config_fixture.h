// What the tests of ring configuration share.
#pragma once

#include <string>

#include "erps/ring/ring_config.h"
#include "erps/ring/ring_list.h"
#include "tests/unit/fixture.h"

namespace erps::test {

class RingConfigTest : public ModuleTest {
 protected:
  static ERPSM_T* find(uint32_t id) { return erpsapi_erpsm_find(id); }

  // A major ring 1 on ports 1 and 2, VLAN 100, and a sub-ring 2 on port 3 attached to it.
  void attach_sub_ring() {
    ASSERT_EQ(erps_add_ring(1, 1, 2, 100, kNoRplNode, kMajorRing), 0U);
    ASSERT_EQ(erps_add_inter_sub_ring(1, 2, 3, kNoRplNode, kWatching), 0U);
  }

  int announced(const std::string& operation) const { return logged(7, operation + "  !~\n"); }
};

}  // namespace erps::test
