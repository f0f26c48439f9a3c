#pragma once

#include <atomic>
#include <expected>
#include <functional>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "OmbrixCore/Concurrency/PThreadMutex.hpp"
#include "OmbrixCore/Networking/Errors/HTTPError.hpp"
#include "OmbrixPlatform/Locks/FutexLock.hpp"
#include "OmbrixPlatform/Publishers/AnyPublisher.hpp"
#include "OmbrixPlatform/Values/CallOut.hpp"
#include "OmbrixPlatform/Values/UUID.hpp"

namespace ombrix {

/// The subscriptions that the client keeps alive: those of calls with a completion, by their ID
/// until they end, and others for good. Any thread.
class CompletionSubscriptions : public std::enable_shared_from_this<CompletionSubscriptions> {
 public:
  CompletionSubscriptions() = default;
  ~CompletionSubscriptions();
  CompletionSubscriptions(const CompletionSubscriptions&) = delete;
  CompletionSubscriptions& operator=(const CompletionSubscriptions&) = delete;

  /// Subscribes and calls the completion once, with the first value or the failure; an end without
  /// either is `missingBody`. A publisher that is gone without an end drops the completion
  /// uncalled.
  /// @return A fresh ID, which `cancel` takes.
  template <class Output>
  platform::UUID subscribe(const platform::AnyPublisher<Output, HTTPError>& publisher,
                           std::function<void(std::expected<Output, HTTPError>)> completion);

  /// Cancels and releases the subscription with an ID; does nothing when it is over.
  void cancel(const platform::UUID& id);

  /// Keeps another subscription.
  void keep(platform::AnyCancellable cancellable);

 private:
  /// The subscriber of one call. Its publisher holds it, and the client knows it until its end. If
  /// the publisher goes without an end, this object's destruction tells the client.
  class Call {
   public:
    explicit Call(std::weak_ptr<CompletionSubscriptions> owner)
        : id_(platform::UUID::random()), owner_(std::move(owner)) {}
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    [[nodiscard]] const platform::UUID& id() const noexcept { return id_; }
    void cancel();

   protected:
    ~Call() {
      if (!isOver_) forget();
    }

    [[nodiscard]] bool isOver() const noexcept { return isOver_; }
    void begin(std::shared_ptr<platform::Subscription> subscription);
    /// The publisher has ended; false when the call was cancelled.
    [[nodiscard]] bool end();

   private:
    void forget();
    std::shared_ptr<platform::Subscription> takeSubscription();

    const platform::UUID id_;
    const std::weak_ptr<CompletionSubscriptions> owner_;
    std::atomic<bool> isOver_{false};
    platform::FutexLock lock_;
    std::shared_ptr<platform::Subscription> subscription_ OMBRIX_GUARDED_BY(lock_);
  };

  template <class Output>
  class CallOf;

  void add(const std::shared_ptr<Call>& call);
  std::shared_ptr<Call> take(const platform::UUID& id);

  PThreadMutex cancellablesLocker_{PThreadMutex::PThreadMutexType::recursive};
  std::set<platform::AnyCancellable> cancellables_ OMBRIX_GUARDED_BY(cancellablesLocker_);
  std::unordered_map<platform::UUID, std::weak_ptr<Call>> completionWrapperCancellables_
      OMBRIX_GUARDED_BY(cancellablesLocker_);
};

template <class Output>
class CompletionSubscriptions::CallOf final : public platform::Subscriber<Output, HTTPError>,
                                              public Call {
 public:
  using Completion = std::function<void(std::expected<Output, HTTPError>)>;

  CallOf(std::weak_ptr<CompletionSubscriptions> owner, Completion completion)
      : Call(std::move(owner)), completion_(std::move(completion)) {}

  void receiveSubscription(std::shared_ptr<platform::Subscription> subscription) override {
    begin(std::move(subscription));
  }
  platform::Demand receiveValue(const Output& value) override {
    if (!isOver()) call(value);
    return platform::Demand::none();
  }
  void receiveCompletion(const platform::Completion<HTTPError>& completion) override {
    if (!end()) return;
    const auto& failure = completion.failure();
    call(std::unexpected(failure ? *failure : HTTPError::missingBody()));
  }

 private:
  // Events come one at a time.
  void call(std::expected<Output, HTTPError> result) {
    const auto completion = std::exchange(completion_, nullptr);
    if (!completion) return;
    platform::callOut("a completion", [&] { completion(std::move(result)); });
  }

  Completion completion_;
};

template <class Output>
platform::UUID CompletionSubscriptions::subscribe(
    const platform::AnyPublisher<Output, HTTPError>& publisher,
    std::function<void(std::expected<Output, HTTPError>)> completion) {
  const auto call = std::make_shared<CallOf<Output>>(weak_from_this(), std::move(completion));
  add(call);
  publisher.receive(call);
  return call->id();
}

}  // namespace ombrix
