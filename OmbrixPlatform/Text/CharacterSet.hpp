#pragma once

#include <string>
#include <string_view>

namespace ombrix::platform {

/// Sets of characters by their kind, in every script.
enum class CharacterSet {
  letters,                 ///< Category L.
  decimalDigits,           ///< Category Nd.
  whitespacesAndNewlines,  ///< U+0009 to U+000D, U+0085 and category Z.
};

bool contains(CharacterSet set, char32_t character) noexcept;

/// Removes such characters from both ends. Any thread.
std::string trimmingCharacters(std::string_view text, CharacterSet set);

}  // namespace ombrix::platform
