#pragma once

#include <cstddef>
#include <filesystem>

#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::testing {

/// A small in-memory file system, seen by the thread that made it and those it starts: a real full
/// disk. Needs root, or the right to user namespaces while no other thread runs; skip the test if
/// `isMounted` is false. Unmounted at the end of the scope.
class SmallDisk {
 public:
  /// @param bytes  its size, rounded up to whole pages
  explicit SmallDisk(std::size_t bytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  [[nodiscard]] bool isMounted() const noexcept { return isMounted_; }
  [[nodiscard]] const ScopedDir& folder() const noexcept { return folder_; }

  /// Writes a file that leaves the given space free, replacing the one it wrote before.
  void fillUp(std::size_t bytesLeft) const;

 private:
  ScopedDir folder_;
  bool isMounted_ = false;
};

}  // namespace ombrix::testing
