#include "OmbrixPlatform/Files/NSFileCoordinator.hpp"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "OmbrixPlatform/Files/Detail/CoordinationLock.hpp"
#include "OmbrixPlatform/Files/Detail/FilePresenterRegistry.hpp"
#include "OmbrixPlatform/Files/Directories.hpp"
#include "OmbrixPlatform/Services.hpp"

namespace ombrix::platform {
namespace {

using detail::CoordinationAccess;
using detail::CoordinationLock;
using detail::FilePresenterRegistry;

std::string lockFileIn(const std::optional<URL>& folder) {
  constexpr std::string_view kName = ".filecoordination";
  if (folder) return folder->appendingPathComponent(kName, false).path();
  const std::string name = std::string(kName) + '-' + std::to_string(::geteuid());
  return services().directories.get().temporary().appendingPathComponent(name, false).path();
}

}  // namespace

struct NSFileCoordinator::Item {
  Item(const URL& url, CoordinationAccess wanted)
      : path(detail::coordinatedPath(url.path())), access(wanted) {}

  std::string path;
  CoordinationAccess access;
};

NSFileCoordinator::NSFileCoordinator(std::shared_ptr<NSFilePresenter> filePresenter,
                                     const std::optional<URL>& lockFolder)
    : presenter_(std::move(filePresenter)), lockFile_(lockFileIn(lockFolder)) {}

FileResult<void> NSFileCoordinator::coordinate(std::vector<Item> items,
                                               const std::function<void()>& body) const {
  // In the order of the paths; for a path that is both read and written, writing comes first.
  std::ranges::sort(items, [](const Item& a, const Item& b) {
    return a.path != b.path ? a.path < b.path : a.access > b.access;
  });
  std::vector<CoordinationLock> locks;
  locks.reserve(items.size());
  const auto deadline = std::chrono::steady_clock::now() + detail::kLockTimeout;
  for (const Item& item : items) {
    auto lock = CoordinationLock::acquire(lockFile_, item.path, item.access, deadline);
    if (!lock) {
      while (!locks.empty()) locks.pop_back();
      return std::unexpected(std::move(lock).error());
    }
    locks.push_back(*std::move(lock));
  }

  // A writer that throws may have written, too. The announcement goes out before the access ends.
  struct Ending {
    const std::vector<Item>& items;
    const NSFilePresenter* presenter;
    std::vector<CoordinationLock>& locks;
    ~Ending() {
      for (const Item& item : items) {
        if (item.access == CoordinationAccess::exclusive) {
          FilePresenterRegistry::shared().writeEnds(item.path, presenter);
        }
      }
      while (!locks.empty()) locks.pop_back();
    }
  };
  for (const Item& item : items) {
    if (item.access == CoordinationAccess::exclusive) {
      FilePresenterRegistry::shared().writeBegins(item.path);
    }
  }
  const Ending ending{items, presenter_.get(), locks};
  body();
  return {};
}

FileResult<void> NSFileCoordinator::coordinateReadingItemAtURL(const URL& url, ReadingOptions,
                                                               const Accessor& accessor) const {
  return coordinate({{url, CoordinationAccess::shared}}, [&] { accessor(url); });
}

FileResult<void> NSFileCoordinator::coordinateWritingItemAtURL(const URL& url, WritingOptions,
                                                               const Accessor& accessor) const {
  return coordinate({{url, CoordinationAccess::exclusive}}, [&] { accessor(url); });
}

FileResult<void> NSFileCoordinator::coordinateReadingItemAtURLWritingItemAtURL(
    const URL& readingURL, ReadingOptions, const URL& writingURL, WritingOptions,
    const PairAccessor& accessor) const {
  return coordinate(
      {{readingURL, CoordinationAccess::shared}, {writingURL, CoordinationAccess::exclusive}},
      [&] { accessor(readingURL, writingURL); });
}

FileResult<void> NSFileCoordinator::coordinateWritingItemAtURLWritingItemAtURL(
    const URL& firstURL, WritingOptions, const URL& secondURL, WritingOptions,
    const PairAccessor& accessor) const {
  return coordinate(
      {{firstURL, CoordinationAccess::exclusive}, {secondURL, CoordinationAccess::exclusive}},
      [&] { accessor(firstURL, secondURL); });
}

void NSFileCoordinator::addFilePresenter(const std::shared_ptr<NSFilePresenter>& presenter) {
  FilePresenterRegistry::shared().add(presenter);
}

void NSFileCoordinator::removeFilePresenter(const std::shared_ptr<NSFilePresenter>& presenter) {
  FilePresenterRegistry::shared().remove(presenter);
}

}  // namespace ombrix::platform
