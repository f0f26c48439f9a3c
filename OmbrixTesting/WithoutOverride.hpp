#pragma once

#include <cstdint>

namespace ombrix::testing {

/// Makes file permissions apply to this thread during its scope, even for root, who otherwise may
/// read and write everything and change owners: a test of a folder without permission then works
/// for every user. Threads started meanwhile are restricted, too.
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
