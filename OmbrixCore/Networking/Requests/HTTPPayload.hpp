#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "OmbrixPlatform/Coding/JSONEncoder.hpp"
#include "OmbrixPlatform/Values/SharedData.hpp"

namespace ombrix {

/// The body of a request: bytes as they are, or a value that is encoded as JSON when the request is
/// built. Cheap to copy. Any thread.
class HTTPPayload {
 public:
  explicit HTTPPayload(platform::SharedData data)
      : body_([data = std::move(data)] { return data; }) {}
  explicit HTTPPayload(platform::Data data) : HTTPPayload(platform::SharedData(std::move(data))) {}

  /// A value of any type that can be coded.
  template <class Value>
    requires(!std::same_as<std::remove_cvref_t<Value>, HTTPPayload> &&
             !std::same_as<std::remove_cvref_t<Value>, platform::Data> &&
             !std::same_as<std::remove_cvref_t<Value>, platform::SharedData>)
  explicit HTTPPayload(Value&& value)
      : body_([value = std::make_shared<const std::decay_t<Value>>(std::forward<Value>(value))] {
          return platform::SharedData(platform::JSONEncoder().encode(*value));
        }) {}

  /// The bytes to send. Throws `platform::EncodingError`, and the exceptions of the value's own
  /// coding.
  [[nodiscard]] platform::SharedData body() const { return body_(); }

 private:
  std::function<platform::SharedData()> body_;
};

}  // namespace ombrix
