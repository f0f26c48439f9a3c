#include "OmbrixCore/Networking/CompletionSubscriptions.hpp"

namespace ombrix {

CompletionSubscriptions::~CompletionSubscriptions() {
  for (const auto& [id, weak] : completionWrapperCancellables_) {
    if (const auto call = weak.lock()) call->cancel();
  }
}

void CompletionSubscriptions::add(const std::shared_ptr<Call>& call) {
  cancellablesLocker_.sync([&]() OMBRIX_REQUIRES(cancellablesLocker_) {
    completionWrapperCancellables_.emplace(call->id(), call);
  });
}

/// Takes a call off the list; null when it is over.
std::shared_ptr<CompletionSubscriptions::Call> CompletionSubscriptions::take(
    const platform::UUID& id) {
  const auto forgotten = cancellablesLocker_.sync([&]() OMBRIX_REQUIRES(cancellablesLocker_) {
    return completionWrapperCancellables_.extract(id);
  });
  return forgotten ? forgotten.mapped().lock() : nullptr;
}

void CompletionSubscriptions::cancel(const platform::UUID& id) {
  if (const auto call = take(id)) call->cancel();
}

void CompletionSubscriptions::keep(platform::AnyCancellable cancellable) {
  cancellablesLocker_.sync(
      [&]() OMBRIX_REQUIRES(cancellablesLocker_) { cancellables_.insert(std::move(cancellable)); });
}

// One call.

void CompletionSubscriptions::Call::begin(std::shared_ptr<platform::Subscription> subscription) {
  bool isWanted = false;
  {
    const platform::LockGuard lock(lock_);
    isWanted = !isOver_ && !subscription_;
    if (isWanted) subscription_ = subscription;
  }
  if (isWanted) {
    subscription->request(platform::Demand::unlimited());
  } else {
    subscription->cancel();
  }
}

bool CompletionSubscriptions::Call::end() {
  if (isOver_.exchange(true)) return false;
  forget();
  const auto released = takeSubscription();
  return true;
}

void CompletionSubscriptions::Call::cancel() {
  isOver_ = true;
  if (const auto subscription = takeSubscription()) subscription->cancel();
}

void CompletionSubscriptions::Call::forget() {
  if (const auto owner = owner_.lock()) (void)owner->take(id_);
}

std::shared_ptr<platform::Subscription> CompletionSubscriptions::Call::takeSubscription() {
  const platform::LockGuard lock(lock_);
  return std::exchange(subscription_, nullptr);
}

}  // namespace ombrix
