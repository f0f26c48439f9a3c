#include <gtest/gtest.h>

#include <cstdlib>

#include "OmbrixPlatform/Logging/DDLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

/// Every test program runs in English with home, data and cache folders of its own, whatever the
/// environment it was started from.
int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  const ombrix::testing::ScopedDir home;
  const auto path = [&](const char* folder) { return (home.path() / folder).string(); };
  setenv("HOME", path("home").c_str(), 1);
  setenv("XDG_DATA_HOME", path("data").c_str(), 1);
  setenv("XDG_CACHE_HOME", path("cache").c_str(), 1);
  setenv("XDG_CONFIG_HOME", path("config").c_str(), 1);
  setenv("TMPDIR", home.path().c_str(), 1);
  setenv("LC_ALL", "en_US.UTF-8", 1);
  setenv("TZ", "UTC", 1);
  unsetenv("LANGUAGE");
  const int result = RUN_ALL_TESTS();
  // Ends log files before their folder goes, which they would otherwise make anew on exit.
  ombrix::platform::DDLog::removeAllLoggers();
  return result;
}
