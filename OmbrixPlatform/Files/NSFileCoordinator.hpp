#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "OmbrixPlatform/Files/FileError.hpp"
#include "OmbrixPlatform/Files/NSFilePresenter.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

/// Gives readers shared and writers exclusive access to a file, among threads and processes that
/// all go through coordinators with the same lock folder.
///
/// Access is to one path; a folder and the files in it are independent. The path's symbolic links
/// are resolved, the last component's too, so that two spellings mean the same file. A waiting
/// writer holds back readers that come later.
///
/// Every call blocks until access is granted, runs the accessor on the calling thread and ends the
/// access when it returns or throws. When a holder, such as a stopped process, keeps the access for
/// longer than ten seconds, the call fails with ETIMEDOUT. Calls nest: a thread gets an access that
/// it holds already again at once, also through another coordinator. A thread that reads may write
/// the same path inside; if two do so at once, one fails with EDEADLK. Different paths nested in
/// opposite orders wait for each other, as locks do; use the operations on two items instead.
///
/// The locks live in the kernel, on ranges of one hidden file in the lock folder: they end with the
/// process that holds them, however it ends, and leave nothing behind. Any thread.
///
///     const NSFileCoordinator coordinator;
///     const auto read = [](const URL& place) { ... };
///     using enum NSFileCoordinator::ReadingOptions;
///     const auto granted = coordinator.coordinateReadingItemAtURL(url, none, read);
class NSFileCoordinator final {
 public:
  enum class ReadingOptions : std::uint8_t { none = 0 };

  /// What the writer is about to do. All options exclude the same accesses; they only inform the
  /// reader of the code.
  enum class WritingOptions : std::uint8_t { none = 0, forDeleting = 1, forMerging = 4 };

  using Accessor = std::function<void(const URL& url)>;
  using PairAccessor = std::function<void(const URL& first, const URL& second)>;

  /// @param filePresenter Neither it nor a presenter that it represents is told of writes through
  ///   this coordinator; may be null. It is kept alive.
  /// @param lockFolder The folder for the files' locks, made when it is missing: all programs that
  ///   share the files must name the same one. Without one, the user's temporary folder.
  explicit NSFileCoordinator(std::shared_ptr<NSFilePresenter> filePresenter = nullptr,
                             const std::optional<URL>& lockFolder = std::nullopt);

  /// Runs the accessor with shared access. The file need not exist.
  /// @return The failure when access was not granted; then the accessor has not run.
  FileResult<void> coordinateReadingItemAtURL(const URL& url, ReadingOptions options,
                                              const Accessor& accessor) const;

  /// The same with exclusive access; then tells the other presenters of the file, if the accessor
  /// has changed it.
  FileResult<void> coordinateWritingItemAtURL(const URL& url, WritingOptions options,
                                              const Accessor& accessor) const;

  /// Shared access to one file and exclusive access to another, in an order that makes two such
  /// calls never wait for each other.
  FileResult<void> coordinateReadingItemAtURLWritingItemAtURL(const URL& readingURL,
                                                              ReadingOptions readingOptions,
                                                              const URL& writingURL,
                                                              WritingOptions writingOptions,
                                                              const PairAccessor& accessor) const;

  /// Exclusive access to two files, in such an order.
  FileResult<void> coordinateWritingItemAtURLWritingItemAtURL(const URL& firstURL,
                                                              WritingOptions firstOptions,
                                                              const URL& secondURL,
                                                              WritingOptions secondOptions,
                                                              const PairAccessor& accessor) const;

  /// Tells a presenter, from now on, when its file is written or removed: by another coordinator of
  /// this process, or by another process, coordinated or not. It is held weakly; its URL is asked
  /// for now. Throws `FileError` when the folder cannot be watched.
  static void addFilePresenter(const std::shared_ptr<NSFilePresenter>& presenter);

  /// Ends the reports. A call that is on its way to the presenter's queue still arrives.
  static void removeFilePresenter(const std::shared_ptr<NSFilePresenter>& presenter);

 private:
  struct Item;
  FileResult<void> coordinate(std::vector<Item> items, const std::function<void()>& body) const;

  const std::shared_ptr<NSFilePresenter> presenter_;
  const std::string lockFile_;
};

}  // namespace ombrix::platform
