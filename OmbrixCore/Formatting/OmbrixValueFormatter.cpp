#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"

#include <memory>
#include <utility>

#include "OmbrixPlatform/Text/CharacterSet.hpp"
#include "OmbrixPlatform/Text/UTF16.hpp"

namespace ombrix {
namespace {

using platform::FormatterObject;
using platform::NSAttributedString;
using platform::NSRange;
using platform::UIFont;
using Attributes = NSAttributedString::Attributes;
using Key = NSAttributedString::Key;

constexpr double kUnitFontScale = 0.75;

bool isUnitCharacter(char32_t character) noexcept {
  if (character < 0x80) {
    const char32_t small = character | 0x20U;
    return (small >= U'a' && small <= U'z') || character == U'/' || character == U'%';
  }
  return platform::contains(platform::CharacterSet::letters, character);
}

/// The next range of unit characters from an index on; empty at the end of the text.
///
/// Since both groups of the expression are optional, its matches cover exactly the letters, the
/// slashes and the percent signs. Searching for these is ten times faster than matching.
NSRange nextUnitRange(std::u16string_view text, std::size_t from) noexcept {
  std::size_t begin = from;
  std::size_t next = from;
  while (next < text.size() && !isUnitCharacter(platform::nextCodePoint(text, next))) begin = next;
  if (next == begin) return {begin, 0};
  std::size_t end = next;
  while (next < text.size() && isUnitCharacter(platform::nextCodePoint(text, next))) end = next;
  return {begin, end - begin};
}

Attributes unitAttributes(const Attributes& main, const Attributes& given) {
  Attributes unit = main;
  if (const auto* font = given.find(OmbrixValueFormatter::SecondaryFont)) {
    unit.set(Key::font, *font);
  } else if (const auto* mainFont = main.find<UIFont>(Key::font)) {
    unit.set(Key::font, mainFont->withSize(mainFont->pointSize() * kUnitFontScale));
  }
  if (const auto* color = given.find(OmbrixValueFormatter::SecondaryForegroundColor)) {
    unit.set(Key::foregroundColor, *color);
  }
  return unit;
}

std::optional<platform::NSRegularExpression> compiled(std::string_view pattern) {
  try {
    return platform::NSRegularExpression(pattern);
  } catch (const platform::RegularExpressionError&) {
    return std::nullopt;
  }
}

}  // namespace

OmbrixValueFormatter::OmbrixValueFormatter() : letterRegex_(compiled(R"((\p{L})?([\/%])?)")) {}

OmbrixValueFormatter OmbrixValueFormatter::decode(platform::Decoder&) {
  return OmbrixValueFormatter();
}

OmbrixValueFormatter& OmbrixValueFormatter::shared() {
  static OmbrixValueFormatter& instance = *new OmbrixValueFormatter;
  return instance;
}

std::optional<std::string> OmbrixValueFormatter::string(const FormatterObject& object) {
  const std::string_view* text = object.text();
  return text == nullptr ? std::nullopt : std::optional<std::string>(*text);
}

std::optional<NSAttributedString> OmbrixValueFormatter::attributedStringWithDefaultAttributes(
    const FormatterObject& object, const Attributes& attributes) const {
  const std::string_view* text = object.text();
  if (text == nullptr) return std::nullopt;
  return attributedStringWithDefaultAttributes(platform::utf16From(*text), attributes);
}

NSAttributedString OmbrixValueFormatter::attributedStringWithDefaultAttributes(
    std::u16string_view text, const Attributes& attributes) const {
  Attributes main = attributes;
  main.erase(SecondaryFont);
  main.erase(SecondaryForegroundColor);
  auto unit = std::make_shared<const Attributes>(unitAttributes(main, attributes));
  NSAttributedString result(std::u16string(text),
                            std::make_shared<const Attributes>(std::move(main)));
  if (!letterRegex_) return result;
  for (NSRange range = nextUnitRange(text, 0); range.length > 0;
       range = nextUnitRange(text, range.end())) {
    result.setAttributes(unit, range);
  }
  return result;
}

std::optional<NSAttributedString> OmbrixValueFormatter::attributedStringWithValueAttributes(
    const FormatterObject& object, const Attributes& valueAttributes,
    const Attributes& unitLabelAttributes) const {
  Attributes attributes = valueAttributes;
  if (const auto* font = unitLabelAttributes.find(Key::font)) attributes.set(SecondaryFont, *font);
  if (const auto* color = unitLabelAttributes.find(Key::foregroundColor)) {
    attributes.set(SecondaryForegroundColor, *color);
  }
  return attributedStringWithDefaultAttributes(object, attributes);
}

}  // namespace ombrix
