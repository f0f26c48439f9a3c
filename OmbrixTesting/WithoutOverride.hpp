#pragma once

#include <cstdint>

namespace ombrix::testing {

/// Makes file permissions count for this thread during its scope, also for root, who otherwise may
/// read and write everything and give files away: a test of a folder without permission then runs
/// for every user. Threads that start meanwhile are held to them, too.
class WithoutOverride {
 public:
  WithoutOverride();
  ~WithoutOverride();
  WithoutOverride(const WithoutOverride&) = delete;
  WithoutOverride& operator=(const WithoutOverride&) = delete;

 private:
  std::uint32_t effective_ = 0;
};

}  // namespace ombrix::testing
