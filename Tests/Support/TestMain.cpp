#include <gtest/gtest.h>

#include "Support/TestHome.hpp"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const ombrix::testing::TestHome home;
  return RUN_ALL_TESTS();
}
