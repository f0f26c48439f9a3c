#include "OmbrixPlatform/Text/TextSegmentation.hpp"

#include <unicode/brkiter.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "OmbrixPlatform/Detail/Utf.hpp"
#include "OmbrixPlatform/Values/Error.hpp"

namespace ombrix::platform {
namespace {

struct CodePointRange {
  char32_t first;
  char32_t last;
};

// Code points that neither join their neighbours nor have another canonical form, in a text that
// holds only such code points. These texts need no library; all others go to ICU.
constexpr CodePointRange kSimple[] = {
    {0x0000, 0x000C}, {0x000E, 0x02FF},  // Latin, without CR
    {0x0388, 0x03FF},                    // Greek
    {0x0400, 0x0482}, {0x048A, 0x052F},  // Cyrillic, without its combining marks
    {0x3041, 0x3096}, {0x30A1, 0x30FA},  // kana, without the voicing marks
    {0x4E00, 0x9FFF},                    // ideographs
    {0xAC00, 0xD7A3},                    // Hangul syllables
};

bool isSimple(char32_t codePoint) noexcept {
  return std::ranges::any_of(kSimple, [codePoint](const CodePointRange& range) {
    return codePoint >= range.first && codePoint <= range.last;
  });
}

icu::BreakIterator& characterBreaks() {
  thread_local const std::unique_ptr<icu::BreakIterator> breaks = [] {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> made(
        icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status)) throw Error("ICU has no character break rules");
    return made;
  }();
  return *breaks;
}

icu::UnicodeString composed(std::string_view text) {
  UErrorCode status = U_ZERO_ERROR;
  const auto characters =
      icu::UnicodeString::fromUTF8({text.data(), static_cast<std::int32_t>(text.size())});
  icu::UnicodeString result =
      icu::Normalizer2::getNFCInstance(status)->normalize(characters, status);
  return U_FAILURE(status) ? characters : result;
}

}  // namespace

bool bytesAreCharacters(std::string_view text) noexcept {
  constexpr std::uint64_t kEachByte = 0x0101'0101'0101'0101U;
  constexpr std::uint64_t kHighBits = kEachByte * 0x80;
  // The high bits of non-ASCII bytes and of carriage returns; without either, nothing borrows.
  const auto marks = [](std::uint64_t word) {
    return (word | ((word ^ kEachByte * '\r') - kEachByte)) & kHighBits;
  };
  const auto load = [](const char* at, std::size_t count) {
    std::uint64_t word = kEachByte * ' ';
    std::memcpy(&word, at, count);
    return word;
  };
  const char* at = text.data();
  std::size_t left = text.size();
  for (; left >= 8; at += 8, left -= 8) {
    if (marks(load(at, 8)) != 0) return false;
  }
  if (left == 0) return true;
  if (text.size() >= 8) return marks(load(at + left - 8, 8)) == 0;
  return marks(load(at, left)) == 0;
}

TextCharacters::TextCharacters(std::string_view text)
    : bytesAreCharacters_(platform::bytesAreCharacters(text)) {
  if (bytesAreCharacters_) {
    text_ = text;
  } else if (!splitAtCodePoints(text)) {
    splitAtClusters(text);
  }
}

bool TextCharacters::splitAtCodePoints(std::string_view text) {
  ends_.reserve(text.size());
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at != end) {
    char32_t codePoint = 0;
    if (!detail::nextCodePoint(at, end, codePoint) || !isSimple(codePoint)) return false;
    ends_.push_back(static_cast<std::uint32_t>(at - text.data()));
  }
  text_ = text;
  return true;
}

void TextCharacters::splitAtClusters(std::string_view text) {
  ends_.clear();
  const icu::UnicodeString characters = composed(text);
  icu::BreakIterator& breaks = characterBreaks();
  breaks.setText(characters);
  std::int32_t start = 0;
  for (auto end = breaks.next(); end != icu::BreakIterator::DONE; end = breaks.next()) {
    characters.tempSubStringBetween(start, end).toUTF8String(text_);
    ends_.push_back(static_cast<std::uint32_t>(text_.size()));
    start = end;
  }
}

}  // namespace ombrix::platform
