#pragma once

#include <expected>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {

/// A failed operation on a file or stream: a value where failure is an expected outcome, thrown
/// where an operation promises a result.
class FileError : public Error {
 public:
  /// @param code The value of `errno`.
  /// @param action The operation, as in "open".
  /// @param path The file; empty for a stream without a path.
  FileError(int code, std::string_view action, std::string_view path = {});

  /// The `errno` value.
  [[nodiscard]] int code() const noexcept { return code_; }
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Whether it failed because the file, or a folder on the way to it, does not exist.
  [[nodiscard]] bool isNoSuchFile() const noexcept;

  friend bool operator==(const FileError& a, const FileError& b) noexcept {
    return a.code_ == b.code_ && a.path_ == b.path_;
  }

 private:
  int code_;
  std::string path_;
};

/// A value, or why there is none.
template <class T>
using FileResult = std::expected<T, FileError>;

}  // namespace ombrix::platform
