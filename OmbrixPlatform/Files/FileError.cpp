#include "OmbrixPlatform/Files/FileError.hpp"

#include <cerrno>
#include <system_error>

namespace ombrix::platform {
namespace {

/// As in: Could not open "/a/b": No such file or directory.
std::string sentence(int code, std::string_view action, std::string_view path) {
  std::string text("Could not ");
  text.append(action);
  if (!path.empty()) text.append(" \"").append(path).append("\"");
  // The system's text speaks of connections.
  if (code == ETIMEDOUT) return text.append(": It took too long");
  return text.append(": ").append(std::generic_category().message(code));
}

}  // namespace

FileError::FileError(int code, std::string_view action, std::string_view path)
    : Error(sentence(code, action, path)), code_(code), path_(path) {}

bool FileError::isNoSuchFile() const noexcept { return code_ == ENOENT || code_ == ENOTDIR; }

}  // namespace ombrix::platform
