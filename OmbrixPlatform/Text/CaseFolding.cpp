#include "OmbrixPlatform/Text/CaseFolding.hpp"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform {

std::string foldingDiacritics(std::string_view text) {
  constexpr UChar32 kBeyondCyrillic = 0x0510;
  if (detail::isAscii(text)) return std::string(text);
  UErrorCode status = U_ZERO_ERROR;
  const icu::UnicodeString decomposed = icu::Normalizer2::getNFDInstance(status)->normalize(
      icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())}), status);
  if (U_FAILURE(status)) return std::string(text);

  icu::UnicodeString folded;
  bool dropsMarks = false;
  for (std::int32_t i = 0; i < decomposed.length(); i = decomposed.moveIndex32(i, 1)) {
    const UChar32 character = decomposed.char32At(i);
    if (!u_hasBinaryProperty(character, UCHAR_GRAPHEME_EXTEND)) {
      dropsMarks = character < kBeyondCyrillic;
    } else if (dropsMarks) {
      continue;
    }
    folded.append(character);
  }
  std::string result;
  folded.toUTF8String(result);
  return result;
}

}  // namespace ombrix::platform
