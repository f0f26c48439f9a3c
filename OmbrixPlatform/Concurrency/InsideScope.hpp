#pragma once

namespace ombrix::platform::detail {

/// Records what the calling thread is running (the jobs of a queue, the work of an operation), so
/// that waits can check whether they would wait for themselves.
class InsideScope {
 public:
  /// @param identity Null for nothing in particular.
  explicit InsideScope(const void* identity) noexcept : identity_(identity), outer_(innermost_) {
    if (identity) innermost_ = this;
  }
  ~InsideScope() { innermost_ = outer_; }
  InsideScope(const InsideScope&) = delete;
  InsideScope& operator=(const InsideScope&) = delete;

  static bool isInsideAny() noexcept { return innermost_ != nullptr; }
  static bool isInside(const void* identity) noexcept {
    for (const auto* scope = innermost_; scope; scope = scope->outer_) {
      if (scope->identity_ == identity) return true;
    }
    return false;
  }

 private:
  static inline constinit thread_local const InsideScope* innermost_ = nullptr;

  const void* const identity_;
  const InsideScope* const outer_;
};

/// What the job of the pool on the calling thread has still to do. No effect on other threads.
class PoolJob {
 public:
  /// It only returns: its thread goes on with what it posts from now on, and no other is woken for
  /// that. Code of others must not follow in the same job but after `goesOn`.
  static void endsSoon() noexcept;

  /// It goes on after all, perhaps for long: what was posted meanwhile is for other threads.
  static void goesOn() noexcept;

  [[nodiscard]] static bool isEnding() noexcept;
};

}  // namespace ombrix::platform::detail
