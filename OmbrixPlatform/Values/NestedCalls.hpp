#pragma once

#include <functional>
#include <new>
#include <utility>

namespace ombrix::platform::detail {

/// Runs calls that trigger others of their kind (a destroyed object releases more objects, a stream
/// that ends also ends the next one) without growing the stack: beyond a fixed depth, a call is
/// postponed until the outer calls have returned.
class NestedCalls {
 public:
  /// @param call Must not throw; destroyed with its captures after it ran.
  template <class Call>
  static void make(Call call) noexcept {
    if (depth_ >= kDeepest && putOff(call)) return;
    ++depth_;
    {
      Call now(std::move(call));
      now();
    }
    if (--depth_ == kDeepest - 1) makeThosePutOff();
  }

 private:
  using Job = std::move_only_function<void()>;

  static constexpr unsigned kDeepest = 32;

  template <class Call>
  static bool putOff(Call& call) {
    try {
      Job& place = makePlace();
      place = Job(std::move(call));
      return true;
    } catch (const std::bad_alloc&) {
      return false;  // then it uses the stack
    }
  }
  static Job& makePlace();
  static void makeThosePutOff() noexcept;

  static inline constinit thread_local unsigned depth_ = 0;
};

}  // namespace ombrix::platform::detail
