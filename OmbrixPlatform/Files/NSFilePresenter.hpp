#pragma once

#include <memory>
#include <optional>

#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

class NSOperationQueue;

/// An object that shows a file's contents, or keeps them in memory, and wants to know of changes
/// that others make to the file. See `NSFileCoordinator::addFilePresenter`.
class NSFilePresenter {
 public:
  virtual ~NSFilePresenter() = default;

  /// The file that it presents; empty when it no longer presents one. Any thread.
  [[nodiscard]] virtual std::optional<URL> presentedItemURL() const = 0;

  /// The queue on which it is told of changes; null for the thread pool. Any thread.
  [[nodiscard]] virtual std::shared_ptr<NSOperationQueue> presentedItemOperationQueue() const = 0;

  /// Whether this presenter's writes count as those of `presenter`: true for itself, and for one
  /// that it represents. Any thread.
  [[nodiscard]] virtual bool represents(const NSFilePresenter& presenter) const {
    return this == &presenter;
  }

  /// Another presenter or process has written or removed the file. Runs on the queue above; several
  /// changes in a row may be reported as one.
  virtual void presentedItemDidChange() {}
};

}  // namespace ombrix::platform
