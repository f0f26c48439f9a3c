#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace ombrix::platform::detail {

/// Identifies the file that a path leads to; once it is removed, a new file may get the same
/// identity.
struct FileIdentity {
  dev_t device = 0;
  ino_t file = 0;

  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

/// Empty where there is no file.
inline std::optional<FileIdentity> identityOf(const std::string& path) noexcept {
  struct stat status{};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

}  // namespace ombrix::platform::detail
