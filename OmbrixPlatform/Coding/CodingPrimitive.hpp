#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform {

/// The scalars that every format knows, in the order of `CodingPrimitive`'s alternatives.
enum class CodingPrimitiveKind : std::uint8_t {
  boolean,
  integer,
  unsignedInteger,
  real,
  text,
  data,
  date
};
using CodingPrimitive =
    std::variant<bool, std::int64_t, std::uint64_t, double, std::string, Data, Date>;

/// A kind as messages name it, as in "a text".
std::string_view nameOf(CodingPrimitiveKind kind) noexcept;

}  // namespace ombrix::platform
