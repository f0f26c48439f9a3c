#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/LockWait.hpp"

namespace ombrix::platform::detail {

enum class CoordinationAccess : std::uint8_t { shared, exclusive };

/// Access to one path, held by the thread that acquired it until the end of its scope. A thread
/// releases its accesses in the opposite order.
class CoordinationLock {
 public:
  /// Blocks until the access is granted, or the deadline has passed (`ETIMEDOUT`). A lock file that
  /// is replaced or removed meanwhile is opened again: only a lock on the present file counts.
  /// @param lockFile The file that holds the locks; it and its folder are made when missing.
  /// @param path The path with its links resolved.
  static FileResult<CoordinationLock> acquire(const std::string& lockFile, const std::string& path,
                                              CoordinationAccess access, LockDeadline deadline);

  CoordinationLock(CoordinationLock&& other) noexcept
      : ending_(std::exchange(other.ending_, Ending::nothing)) {}
  CoordinationLock& operator=(CoordinationLock&&) = delete;
  ~CoordinationLock();

 private:
  enum class Ending : std::uint8_t { nothing, pop, downgrade, release };

  explicit CoordinationLock(Ending ending) noexcept : ending_(ending) {}

  Ending ending_;
};

}  // namespace ombrix::platform::detail
