#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "OmbrixCore/Concurrency/PThreadMutex.hpp"
#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix {

/// The subscriptions that the client keeps alive: those of calls with a completion, by their ID
/// until they end, and others for good. Any thread.
class CompletionSubscriptions : public std::enable_shared_from_this<CompletionSubscriptions> {
 public:
  /// Subscribes and calls the completion once, with the first value or the failure; an end without
  /// either is `missingBody`. A publisher that is gone without an end drops the completion
  /// uncalled.
  /// @return A fresh ID, which `cancel` takes.
  template <class Output>
  platform::UUID subscribe(const platform::AnyPublisher<Output, HTTPError>& publisher,
                           std::function<void(std::expected<Output, HTTPError>)> completion);

  /// Cancels the subscription of an ID and releases it; nothing happens when it is over.
  void cancel(const platform::UUID& id);

  /// Keeps another subscription.
  void keep(platform::AnyCancellable cancellable);

 private:
  platform::UUID expect();
  void keep(const platform::UUID& id, platform::AnyCancellable cancellable);

  PThreadMutex cancellablesLocker_{PThreadMutex::PThreadMutexType::recursive};
  std::set<platform::AnyCancellable> cancellables_;
  std::unordered_map<platform::UUID, platform::AnyCancellable> completionWrapperCancellables_;
};

template <class Output>
platform::UUID CompletionSubscriptions::subscribe(
    const platform::AnyPublisher<Output, HTTPError>& publisher,
    std::function<void(std::expected<Output, HTTPError>)> completion) {
  // Lives as long as the subscriber: the entry goes with it, also where it never hears of an end.
  struct Call {
    Call(std::function<void(std::expected<Output, HTTPError>)> function,
         std::weak_ptr<CompletionSubscriptions> subscriptions, const platform::UUID& entry)
        : completion(std::move(function)), owner(std::move(subscriptions)), id(entry) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() {
      if (const auto self = owner.lock()) self->cancel(id);
    }

    std::function<void(std::expected<Output, HTTPError>)> completion;
    std::weak_ptr<CompletionSubscriptions> owner;
    platform::UUID id;
    bool wasMade = false;
  };
  const auto id = expect();
  // Events come one at a time.
  const auto call = std::make_shared<Call>(std::move(completion), weak_from_this(), id);
  auto receiveCompletion = [weak = weak_from_this(), id,
                            call](const platform::Completion<HTTPError>& end) {
    if (const auto self = weak.lock()) self->cancel(id);
    const auto& failure = end.failure();
    if (std::exchange(call->wasMade, true)) return;
    call->completion(std::unexpected(failure ? *failure : HTTPError::missingBody()));
  };
  auto receiveValue = [call](const Output& value) {
    if (!std::exchange(call->wasMade, true)) call->completion(value);
  };
  keep(id, publisher.sink(std::move(receiveCompletion), std::move(receiveValue)));
  return id;
}

}  // namespace ombrix
