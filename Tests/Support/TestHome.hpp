#pragma once

#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::testing {

/// Gives the process English texts, the time zone UTC, and home, data, cache and configuration
/// folders of its own, whatever environment it was started from. Make one first in `main`.
class TestHome {
 public:
  TestHome();
  /// Ends the log files, which would otherwise make their folder again on exit.
  ~TestHome();
  TestHome(const TestHome&) = delete;
  TestHome& operator=(const TestHome&) = delete;

 private:
  ScopedDir folder_;
};

}  // namespace ombrix::testing
