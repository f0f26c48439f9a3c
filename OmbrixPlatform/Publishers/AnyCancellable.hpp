#pragma once

#include <compare>
#include <functional>
#include <memory>
#include <utility>

#include "OmbrixPlatform/Values/CallOut.hpp"

namespace ombrix::platform {

/// Cancels something when it is destroyed; move-only. Any thread.
///
/// Cancelling does not wait for a call in progress on another thread, so it is safe under a lock
/// that the handlers take.
class AnyCancellable {
 public:
  AnyCancellable() = default;

  /// `cancel` is called once, at the latest on destruction.
  explicit AnyCancellable(std::function<void()> cancel)
      : cancel_(std::make_unique<std::function<void()>>(std::move(cancel))) {}

  AnyCancellable(AnyCancellable&&) noexcept = default;
  AnyCancellable& operator=(AnyCancellable&& other) noexcept {
    if (this != &other) {
      cancel();
      cancel_ = std::move(other.cancel_);
    }
    return *this;
  }
  ~AnyCancellable() { cancel(); }

  void cancel() noexcept {
    if (const auto cancel = std::exchange(cancel_, nullptr)) callOut("a cancellation", *cancel);
  }

  explicit operator bool() const noexcept { return cancel_ != nullptr; }

  /// By identity, for sets.
  friend bool operator==(const AnyCancellable&, const AnyCancellable&) = default;
  friend auto operator<=>(const AnyCancellable&, const AnyCancellable&) = default;

 private:
  std::unique_ptr<std::function<void()>> cancel_;
};

}  // namespace ombrix::platform
