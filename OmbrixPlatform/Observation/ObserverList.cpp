#include "OmbrixPlatform/Observation/ObserverList.hpp"

namespace ombrix::platform::detail {
namespace {

constinit thread_local const ObserverCall* innermostCall = nullptr;

}  // namespace

bool Observer::enter() noexcept {
  auto state = state_.load(std::memory_order_relaxed);
  do {
    if ((state & kCancelled) != 0) return false;
  } while (!state_.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                         std::memory_order_relaxed));
  return true;
}

void Observer::leave() noexcept {
  const auto before = state_.fetch_sub(1, std::memory_order_acq_rel);
  if ((before & kCancelled) == 0) return;
  if ((before & kCountMask) == 1) {
    releaseHandler();
    state_.fetch_or(kReleased, std::memory_order_release);
  }
  state_.notify_all();
}

void Observer::cancel() noexcept {
  const auto before = state_.fetch_or(kCancelled, std::memory_order_acq_rel);
  if (const auto list = list_.lock()) list->noteCancelled();
  if ((before & kCountMask) == 0) {
    releaseHandler();
    return;
  }
  // Waits only for calls on other threads: one on this thread ends after this function.
  const auto own = ObserverCall::depthOnThisThread(*this);
  for (;;) {
    const auto state = state_.load(std::memory_order_acquire);
    const bool done = own == 0 ? (state & kReleased) != 0 : (state & kCountMask) <= own;
    if (done) return;
    state_.wait(state, std::memory_order_acquire);
  }
}

ObserverCall::ObserverCall(Observer& observer) noexcept
    : observer_(observer), entered_(observer.enter()) {
  if (!entered_) return;
  outer_ = innermostCall;
  innermostCall = this;
}

ObserverCall::~ObserverCall() {
  if (!entered_) return;
  innermostCall = outer_;
  observer_.leave();
}

std::uint32_t ObserverCall::depthOnThisThread(const Observer& observer) noexcept {
  std::uint32_t depth = 0;
  for (const auto* call = innermostCall; call != nullptr; call = call->outer_) {
    if (&call->observer_ == &observer) ++depth;
  }
  return depth;
}

ObserverList::Round::Round(ObserverList& list) {
  const LockGuard lock(list.mutex_);
  entries_ = list.entries_;
  entries_->rounds.fetch_add(1, std::memory_order_relaxed);
}

ObserverList::Round::~Round() {
  // Pairs with the load in entriesToChange: the round's reads happen before a change in place.
  entries_->rounds.fetch_sub(1, std::memory_order_release);
}

ObserverList::Entries& ObserverList::entriesToChange() {
  if (entries_->rounds.load(std::memory_order_acquire) != 0) {
    auto copy = std::make_shared<Entries>();
    copy->observers = entries_->observers;
    entries_ = std::move(copy);
  }
  return *entries_;
}

void ObserverList::add(const std::shared_ptr<Observer>& observer) {
  observer->list_ = weak_from_this();
  const LockGuard lock(mutex_);
  entriesToChange().observers.push_back(observer);
  live_.fetch_add(1, std::memory_order_release);
}

void ObserverList::noteCancelled() {
  std::vector<std::shared_ptr<Observer>> dead;  // destroyed after the lock
  const LockGuard lock(mutex_);
  const auto live = live_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (live * 2 > entries_->observers.size()) return;
  auto& observers = entriesToChange().observers;
  std::vector<std::shared_ptr<Observer>> kept;
  kept.reserve(live);
  for (auto& observer : observers) {
    const auto state = observer->state_.load(std::memory_order_relaxed);
    ((state & Observer::kCancelled) == 0 ? kept : dead).push_back(std::move(observer));
  }
  observers = std::move(kept);
}

}  // namespace ombrix::platform::detail
