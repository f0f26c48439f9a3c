#include "OmbrixPlatform/Text/LossyASCII.hpp"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {
namespace {

/// The replacement for letters without a decomposition; empty for none.
std::string_view replacementFor(UChar32 character) noexcept {
  switch (character) {
    case 0xC6:
      return "AE";
    case 0xE6:
      return "ae";
    case 0x152:
      return "OE";
    case 0x153:
      return "oe";
    case 0xD8:
      return "O";
    case 0xF8:
      return "o";
    case 0xD0:
      return "TH";
    case 0xF0:
      return "th";
    case 0xDE:
      return "th";
    case 0xFE:
      return "th";
    case 0xDF:
      return "s";
    default:
      return {};
  }
}

}  // namespace

std::string lossyASCII(std::string_view text) {
  if (detail::isAscii(text)) return std::string(text);
  UErrorCode status = U_ZERO_ERROR;
  const auto& compatibility = *icu::Normalizer2::getNFKDInstance(status);
  const auto& canonical = *icu::Normalizer2::getNFCInstance(status);
  const icu::UnicodeString composed = canonical.normalize(
      icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())}), status);
  std::string ascii;
  if (U_FAILURE(status)) return ascii;

  constexpr UChar32 kFirstBeyondASCII = 0x80;
  icu::UnicodeString parts;
  for (std::int32_t i = 0; i < composed.length(); i = composed.moveIndex32(i, 1)) {
    const UChar32 character = composed.char32At(i);
    if (character < kFirstBeyondASCII) {
      ascii += static_cast<char>(character);
    } else if (u_isUWhiteSpace(character) != 0) {
      ascii += ' ';
    } else if (const auto replacement = replacementFor(character); !replacement.empty()) {
      ascii += replacement;
    } else if (compatibility.getDecomposition(character, parts) != 0) {
      const auto begin = ascii.size();
      for (std::int32_t part = 0; part < parts.length(); ++part) {
        if (parts[part] < kFirstBeyondASCII) ascii += static_cast<char>(parts[part]);
      }
      if (ascii.size() == begin) ascii += '?';
    } else {
      ascii += '?';
    }
  }
  return ascii;
}

}  // namespace ombrix::platform
