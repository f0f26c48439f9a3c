#include "OmbrixPlatform/Values/FatalError.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

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

// Catches a second thread that ends the program while the first one still flushes.
TEST(FatalErrorTests, ASecondThreadDoesNotCutTheHooksShort) {
  EXPECT_DEATH(
      {
        addFatalErrorHook(+[]() noexcept {
          std::atomic<pid_t> id = 0;
          std::thread([&id] {
            id = ::gettid();
            fatalError("second");
          }).detach();
          std::string state;
          while (state != "S") {  // it waits
            std::ifstream stat("/proc/self/task/" + std::to_string(id) + "/stat");
            stat >> state >> state >> state;
          }
          std::fputs("flushed\n", stderr);
        });
        fatalError("first");
      },
      "second.*\n.*flushed\n.*first");
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
