#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix {

/// The file manager with the product's folders. It has no state: any thread.
///
/// The folders are computed on every call; asking for one does not create it. All their URLs are
/// marked as folders.
class FileManager : public platform::FileManager {
 public:
  /// The app group that the product's programs share.
  static constexpr std::string_view OmbrixGroupName = "group.com.brannoway.ombrix";

  static const FileManager& defaultManager() noexcept;

  /// "com.brannoway.ombrix" in the user's caches, application-support and temporary folder.
  [[nodiscard]] platform::URL cache() const;
  [[nodiscard]] platform::URL applicationSupport() const;
  [[nodiscard]] platform::URL temporary() const;

  /// The user's own folders, shared with other programs.
  [[nodiscard]] platform::URL library() const;
  [[nodiscard]] platform::URL documents() const;

  /// The app group's folder; empty if the platform has none, and then so are the two folders in it.
  [[nodiscard]] std::optional<platform::URL> groupContainer() const;

  /// "Library/Application Support/com.brannoway.ombrix" in the group container.
  [[nodiscard]] std::optional<platform::URL> groupContainerApplicationSupport() const;

  /// "Library/Caches/com.brannoway.ombrix" in the group container.
  [[nodiscard]] std::optional<platform::URL> groupContainerCache() const;

  /// Creates a folder if it is missing, with its parents: the URL's own when it ends in "/",
  /// otherwise the parent folder of what it names. Logs a failure.
  void touch(const platform::URL& url) const;

  /// The same for callers that must not log now: returns the failure instead; see
  /// `logTouchFailure`.
  [[nodiscard]] platform::FileResult<void> touchQuietly(const platform::URL& url) const;
  static void logTouchFailure(const platform::FileError& error);

  /// The disk space in bytes that a file, or all regular files below a folder, take.
  ///
  /// Hidden files, hidden folders and links do not count. A subfolder that cannot be read is logged
  /// and skipped.
  /// @return The error if the URL does not exist, or if a file vanishes during the walk.
  [[nodiscard]] platform::FileResult<std::uint64_t> allocatedSize(const platform::URL& url) const;

 private:
  constexpr FileManager() noexcept = default;

  static const FileManager kDefault;
};

}  // namespace ombrix
