#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Coding/JSONEncoder.hpp"
#include "OmbrixPlatform/Values/Data.hpp"

namespace ombrix {

/// What a request sends as its body: bytes as they are, or a value that becomes JSON when the
/// request is built. Cheap to copy. Any thread.
class HTTPPayload {
 public:
  explicit HTTPPayload(platform::Data data)
      : body_([data = std::make_shared<const platform::Data>(std::move(data))] { return *data; }) {}

  /// A value of any type that can be coded.
  template <class Value>
    requires(!std::same_as<std::remove_cvref_t<Value>, HTTPPayload> &&
             !std::same_as<std::remove_cvref_t<Value>, platform::Data>)
  explicit HTTPPayload(Value&& value)
      : body_([value = std::make_shared<const std::decay_t<Value>>(std::forward<Value>(value))] {
          return platform::JSONEncoder().encode(*value);
        }) {}

  /// The bytes to send. Throws `platform::EncodingError`, and what the value's own coding throws.
  [[nodiscard]] platform::Data body() const { return body_(); }

 private:
  std::function<platform::Data()> body_;
};

}  // namespace ombrix
