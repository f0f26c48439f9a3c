#pragma once

#include <functional>
#include <utility>

#include "OmbrixCore/Concurrency/PThreadMutex.hpp"

namespace ombrix {

/// A value behind a lock, shared among threads. Any thread.
///
/// The lock is recursive: a closure given to `mutate` may read `wrappedValue` of the same box.
template <class Value>
class Atomic final {
 public:
  explicit Atomic(Value wrappedValue) : value_(std::move(wrappedValue)) {}

  /// A copy of the value.
  [[nodiscard]] Value wrappedValue() const {
    return locker_.sync([&]() OMBRIX_REQUIRES(locker_) { return value_; });
  }

  void setWrappedValue(Value value) {
    // The old value leaves with the parameter, after the lock is released.
    locker_.sync([&]() OMBRIX_REQUIRES(locker_) { std::swap(value_, value); });
  }

  /// Lets a closure change a copy of the value and then puts the copy in place.
  // Kept: reading and writing are two critical sections, so changes made by other threads in
  // between are lost; holding the lock throughout would make callers of `wrappedValue` wait for
  // the closure. `mutate` is the operation that loses nothing.
  template <class Closure>
  void modifyWrappedValue(Closure&& closure) {
    Value copy = wrappedValue();
    std::invoke(std::forward<Closure>(closure), copy);
    setWrappedValue(std::move(copy));
  }

  /// Runs the closure on the value in place, under the lock, and gives what it returns; the only
  /// read-modify-write that is atomic as a whole.
  template <class Closure>
  decltype(auto) mutate(Closure&& closure) {
    return locker_.sync([&]() OMBRIX_REQUIRES(locker_) -> decltype(auto) {
      return std::invoke(std::forward<Closure>(closure), value_);
    });
  }

  /// The box itself.
  Atomic& projectedValue() noexcept { return *this; }

 private:
  mutable PThreadMutex locker_{PThreadMutex::PThreadMutexType::recursive};
  Value value_ OMBRIX_GUARDED_BY(locker_);
};

}  // namespace ombrix
