#pragma once

#include <string>
#include <string_view>

namespace ombrix::platform {

/// Sets of characters by what they are, in every script.
enum class CharacterSet {
  letters,                 ///< Category L.
  decimalDigits,           ///< Category Nd.
  whitespacesAndNewlines,  ///< U+0009 to U+000D, U+0085 and category Z.
};

bool contains(CharacterSet set, char32_t character) noexcept;

/// The text without such characters at both ends. Any thread.
std::string trimmingCharacters(std::string_view text, CharacterSet set);

}  // namespace ombrix::platform
