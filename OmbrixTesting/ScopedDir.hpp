#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace ombrix::testing {

/// A new empty folder that is removed with all its contents at the end of the scope.
class ScopedDir {
 public:
  ScopedDir();
  ~ScopedDir();
  ScopedDir(const ScopedDir&) = delete;
  ScopedDir& operator=(const ScopedDir&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  /// Writes a file below the folder, with its parent folders, and returns its path.
  std::filesystem::path write(const std::filesystem::path& relative,
                              std::string_view contents) const;

  /// The whole contents of a file below the folder; empty when it does not exist.
  [[nodiscard]] std::string read(const std::filesystem::path& relative) const;

 private:
  std::filesystem::path path_;
};

}  // namespace ombrix::testing
