#pragma once

#include <functional>
#include <new>
#include <utility>

namespace ombrix::platform::detail {

/// Calls that lead to others of their kind: what is let go lets go of what it held, a stream that
/// ends ends the one behind it. The stack does not grow with them: inside many others, a call is
/// put off until the innermost of those has returned.
class NestedCalls {
 public:
  /// @param call Must not throw; what it captured goes with it.
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
      return false;  // then the stack has to do
    }
  }
  static Job& makePlace();
  static void makeThosePutOff() noexcept;

  static inline constinit thread_local unsigned depth_ = 0;
};

}  // namespace ombrix::platform::detail
