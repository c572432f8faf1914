#include <gtest/gtest.h>

#include "tests/host/network_namespace.h"

int main(int argc, char** argv) {
  erps::test::enter_network_namespace();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
