#include <gtest/gtest.h>

#include "app/memory.h"

int main(int argc, char** argv) {
  tavora::InstallMemoryGuards();
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
