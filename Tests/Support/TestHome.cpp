#include "Support/TestHome.hpp"

#include <cstdlib>

#include "OmbrixPlatform/Logging/DDLog.hpp"

namespace ombrix::testing {

TestHome::TestHome() {
  const auto path = [&](const char* folder) { return (folder_.path() / folder).string(); };
  setenv("HOME", path("home").c_str(), 1);
  setenv("XDG_DATA_HOME", path("data").c_str(), 1);
  setenv("XDG_CACHE_HOME", path("cache").c_str(), 1);
  setenv("XDG_CONFIG_HOME", path("config").c_str(), 1);
  setenv("TMPDIR", folder_.path().c_str(), 1);
  setenv("LC_ALL", "en_US.UTF-8", 1);
  setenv("TZ", "UTC", 1);
  unsetenv("LANGUAGE");
  unsetenv("LC_MEASUREMENT");
}

TestHome::~TestHome() { platform::DDLog::removeAllLoggers(); }

}  // namespace ombrix::testing
