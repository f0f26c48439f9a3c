#include "OmbrixCore/Networking/CompletionSubscriptions.hpp"

namespace ombrix {

platform::UUID CompletionSubscriptions::expect() {
  const auto id = platform::UUID::random();
  cancellablesLocker_.sync([&] { completionWrapperCancellables_.try_emplace(id); });
  return id;
}

void CompletionSubscriptions::keep(const platform::UUID& id, platform::AnyCancellable cancellable) {
  // The publisher may have ended by now; then the entry is gone and the subscription with it.
  cancellablesLocker_.sync([&] {
    const auto entry = completionWrapperCancellables_.find(id);
    if (entry != completionWrapperCancellables_.end()) std::swap(entry->second, cancellable);
  });
}

void CompletionSubscriptions::cancel(const platform::UUID& id) {
  // The subscription leaves with the node and is cancelled then, after the lock is released.
  [[maybe_unused]] const auto forgotten =
      cancellablesLocker_.sync([&] { return completionWrapperCancellables_.extract(id); });
}

void CompletionSubscriptions::keep(platform::AnyCancellable cancellable) {
  cancellablesLocker_.sync([&] { cancellables_.insert(std::move(cancellable)); });
}

}  // namespace ombrix
