#include <gtest/gtest.h>

#include <cstdlib>

#include "Support/TestHome.hpp"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  // An emulated program cannot start itself again, which "threadsafe" does.
  if (std::getenv("GTEST_DEATH_TEST_STYLE") == nullptr) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  }
  const ombrix::testing::TestHome home;
  return RUN_ALL_TESTS();
}
