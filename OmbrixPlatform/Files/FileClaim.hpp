#pragma once

#include <memory>
#include <string>
#include <utility>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/OutputStream.hpp"

namespace ombrix::platform {

/// Keeps a file for its holder among all that claim it, also of other processes, for as long as it
/// lives; who does not claim it is not kept off. Network disks without such locks keep nobody off.
class FileClaim {
 public:
  /// @param path Its file, which is made where there is none.
  /// @return EWOULDBLOCK where somebody else has it, or has just renamed or removed it.
  static FileResult<FileClaim> take(const std::string& path);

 private:
  explicit FileClaim(std::unique_ptr<OutputStream> file) : file_(std::move(file)) {}

  std::unique_ptr<OutputStream> file_;
};

}  // namespace ombrix::platform
