#include "OmbrixPlatform/Values/FatalError.hpp"

#include <gtest/gtest.h>

#include <cstdio>

namespace ombrix::platform {
namespace {

// Catches a stop that is swallowed, or hooks that run after the abort.
TEST(FatalErrorTests, RunsHooksThenAbortsWithTheMessage) {
  EXPECT_DEATH(
      {
        addFatalErrorHook(+[]() noexcept { std::fputs("flushed\n", stderr); });
        fatalError("key != NULL");
      },
      "flushed\n.*Fatal error: key != NULL \\(.*FatalErrorTests.cpp:");
}

// Catches an endless loop when a hook meets a fatal error of its own.
TEST(FatalErrorTests, AHookThatFailsStillEndsTheProgram) {
  EXPECT_DEATH(
      {
        addFatalErrorHook(+[]() noexcept { fatalError("inner"); });
        fatalError("outer");
      },
      "Fatal error: inner");
}

}  // namespace
}  // namespace ombrix::platform
