#pragma once

#include <memory>
#include <optional>

#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::platform {

class NSOperationQueue;

/// Something that shows, or keeps in memory, what a file holds, and wants to know of changes that
/// others make to the file. See `NSFileCoordinator::addFilePresenter`.
class NSFilePresenter {
 public:
  virtual ~NSFilePresenter() = default;

  /// The file it presents; nothing when it presents none any more. Any thread.
  [[nodiscard]] virtual std::optional<URL> presentedItemURL() const = 0;

  /// Where it is told of changes; null for the thread pool. Any thread.
  [[nodiscard]] virtual std::shared_ptr<NSOperationQueue> presentedItemOperationQueue() const = 0;

  /// Whether what this presenter writes is what `presenter` wrote: so for itself, and for one that
  /// it stands for. Any thread.
  [[nodiscard]] virtual bool represents(const NSFilePresenter& presenter) const {
    return this == &presenter;
  }

  /// Somebody else has written or removed the file. Runs on the queue above; several changes in a
  /// row may be told as one.
  virtual void presentedItemDidChange() {}
};

}  // namespace ombrix::platform
