#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "OmbrixPlatform/Coding/PropertyList.hpp"

/// Converts a stored value to another kind, as `UserDefaults` describes.
namespace ombrix::platform::detail {

bool boolFrom(const PropertyList& value) noexcept;
std::int64_t integerFrom(const PropertyList& value) noexcept;
double doubleFrom(const PropertyList& value) noexcept;
std::optional<std::string> stringFrom(const PropertyList& value);

template <class T>
std::optional<T> copyOf(const T* value) {
  return value == nullptr ? std::nullopt : std::optional<T>(*value);
}

}  // namespace ombrix::platform::detail
