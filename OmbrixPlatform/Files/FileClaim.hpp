#pragma once

#include <memory>
#include <string>
#include <utility>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"

namespace ombrix::platform {

/// Reserves a file among all that claim it, also in other processes, as long as this object lives.
/// It does not keep others away that do not claim the file, nor anyone on network disks without
/// such locks.
class FileClaim {
 public:
  /// @param path The file, which is made if it is missing.
  /// @return EWOULDBLOCK if somebody else has claimed it, or has just renamed or removed it.
  static FileResult<FileClaim> take(const std::string& path);

 private:
  explicit FileClaim(std::unique_ptr<OutputStream> file) : file_(std::move(file)) {}

  std::unique_ptr<OutputStream> file_;
};

}  // namespace ombrix::platform
