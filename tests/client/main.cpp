#include <gtest/gtest.h>

#include "tests/client/ipc_namespace.h"

int main(int argc, char** argv) {
  erps::test::enter_ipc_namespace();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
