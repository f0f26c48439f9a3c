#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Files/NSFilePresenter.hpp"

namespace ombrix::detail {

/// A queue that runs one operation at a time, in the background.
std::shared_ptr<platform::NSOperationQueue> makePresenterQueue(std::string name);

/// Represents a store to its own file coordinator, which keeps its presenter alive and would
/// otherwise keep the store alive. Any thread.
class PresenterWrapper final : public platform::NSFilePresenter {
 public:
  explicit PresenterWrapper(std::weak_ptr<platform::NSFilePresenter> wrapped)
      : wrapped_(std::move(wrapped)) {}

  [[nodiscard]] std::optional<platform::URL> presentedItemURL() const override;
  [[nodiscard]] std::shared_ptr<platform::NSOperationQueue> presentedItemOperationQueue()
      const override;
  [[nodiscard]] bool represents(const platform::NSFilePresenter& presenter) const override;

 private:
  const std::weak_ptr<platform::NSFilePresenter> wrapped_;
  mutable std::once_flag backupOnce_;
  mutable std::shared_ptr<platform::NSOperationQueue> backupQueue_;  // for when `wrapped_` is gone
};

}  // namespace ombrix::detail
