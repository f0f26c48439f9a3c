#pragma once

#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

namespace ombrix::platform {

/// Raw values of an enumeration whose raw values are texts or have gaps: specialise with
/// `static constexpr std::pair<E, Raw> table[]`, in declaration order.
template <class E>
struct RawValues;

template <class E>
concept HasRawValueTable = requires { RawValues<E>::table; };

/// The raw value of an enumerator: from its `RawValues` table, else its underlying integer.
template <class E>
  requires std::is_enum_v<E>
constexpr auto rawValue(E value) noexcept {
  if constexpr (HasRawValueTable<E>) {
    for (const auto& [enumerator, raw] : RawValues<E>::table) {
      if (enumerator == value) return raw;
    }
    return decltype(RawValues<E>::table[0].second){};
  } else {
    return static_cast<std::underlying_type_t<E>>(value);
  }
}

/// The enumerator with a raw value; empty when there is none.
template <class E, class Raw>
  requires HasRawValueTable<E>
constexpr std::optional<E> fromRawValue(const Raw& raw) noexcept {
  for (const auto& [enumerator, value] : RawValues<E>::table) {
    if (value == raw) return enumerator;
  }
  return std::nullopt;
}

}  // namespace ombrix::platform
