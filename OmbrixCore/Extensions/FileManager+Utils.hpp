#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Files/FileManager.hpp"

namespace ombrix {

/// The file manager with the product's folders. It holds no state: any thread.
///
/// The folders are worked out on every call; asking for one does not make it. All their URLs are
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

  /// The app group's folder; nothing where the platform gives none, and then none of the two in it.
  [[nodiscard]] std::optional<platform::URL> groupContainer() const;

  /// "Library/Application Support/com.brannoway.ombrix" in the group container.
  [[nodiscard]] std::optional<platform::URL> groupContainerApplicationSupport() const;

  /// "Library/Caches/com.brannoway.ombrix" in the group container.
  [[nodiscard]] std::optional<platform::URL> groupContainerCache() const;

  /// Makes sure that a folder exists: the URL's own when it ends in "/", else the one that holds
  /// what it names. Folders on the way are made too. A failure is logged.
  void touch(const platform::URL& url) const;

  /// The same for callers that must not log now: gives the failure back instead; see
  /// `logTouchFailure`.
  [[nodiscard]] platform::FileResult<void> touchQuietly(const platform::URL& url) const;
  static void logTouchFailure(const platform::FileError& error);

  /// The bytes that a file, or all regular files below a folder, take on the disk.
  ///
  /// Hidden files and folders are not counted, links count nothing. A folder below that cannot be
  /// read is logged and left out.
  /// @return The error when nothing is there, or when a file vanishes while the folder is walked.
  [[nodiscard]] platform::FileResult<std::uint64_t> allocatedSize(const platform::URL& url) const;

 private:
  constexpr FileManager() noexcept = default;

  static const FileManager kDefault;
};

}  // namespace ombrix
