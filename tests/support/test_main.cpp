#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "host/host.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // Listing tests needs no display.
  if (!::testing::GTEST_FLAG(list_tests)) {
    std::string error;
    if (!ph::EnsureDisplay(&error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return 1;
    }
  }
  return RUN_ALL_TESTS();
}
