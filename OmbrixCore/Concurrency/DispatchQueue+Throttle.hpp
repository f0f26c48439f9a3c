#pragma once

#include <any>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <typeinfo>
#include <utility>

#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"

namespace ombrix {

/// Any value that can be hashed and compared, as the context of `throttle` and `debounce`; values
/// of different types differ.
class DispatchContext {
 public:
  template <class Value>
    requires(!std::same_as<std::remove_cvref_t<Value>, DispatchContext>)
  explicit DispatchContext(Value value)
      : hash_(std::hash<Value>{}(value) ^ typeid(Value).hash_code()),
        value_(std::move(value)),
        isEqual_([](const std::any& a, const std::any& b) {
          const auto* right = std::any_cast<Value>(&b);
          return right && *std::any_cast<Value>(&a) == *right;
        }) {}

  [[nodiscard]] std::size_t hash() const noexcept { return hash_; }
  friend bool operator==(const DispatchContext& a, const DispatchContext& b) {
    return a.hash_ == b.hash_ && a.isEqual_(a.value_, b.value_);
  }

 private:
  std::size_t hash_;
  std::any value_;
  bool (*isEqual_)(const std::any&, const std::any&);
};

/// Runs the action on the queue at once, and drops further calls of the same context until the
/// deadline, by the clock service's steady clock.
///
/// No context is a context of its own. The state is shared by the whole process. Any thread.
void throttle(platform::DispatchQueue& queue, std::chrono::steady_clock::time_point deadline,
              const std::optional<DispatchContext>& context, platform::Job action);

/// Runs the last action of a context on its queue once no further call has come for an interval in
/// seconds. Otherwise like `throttle`.
void debounce(platform::DispatchQueue& queue, std::chrono::duration<double> interval,
              const std::optional<DispatchContext>& context, platform::Job action);

}  // namespace ombrix
