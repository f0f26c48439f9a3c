#include "OmbrixC/OmbrixAttributedString.h"

#include <utility>

#include "OmbrixC/Detail/AttributedString.hpp"
#include "OmbrixC/Detail/Copies.hpp"
#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"
#include "OmbrixPlatform/Text/UTF16.hpp"

using ombrix::platform::NSAttributedString;
using ombrix::platform::UIColor;
using ombrix::platform::UIFont;
using Key = NSAttributedString::Key;

OmbrixAttributedString::OmbrixAttributedString(NSAttributedString styled)
    : string(std::move(styled)) {
  const std::u16string_view text = string.utf16();
  std::size_t utf8Location = 0;
  for (const auto& run : string.runs()) {
    OmbrixAttributedRun& seen = runs.emplace_back(run.range.location, run.range.length);
    seen.utf8Location = utf8Location;
    seen.utf8Length =
        ombrix::platform::utf8From(text.substr(run.range.location, run.range.length)).size();
    utf8Location += seen.utf8Length;
    if (const auto* font = run.attributes->find<UIFont>(Key::font)) {
      const auto& descriptor = font->fontDescriptor();
      seen.font = &fonts.emplace_back(descriptor.name.c_str(), descriptor.isBold,
                                      descriptor.isItalic, font->pointSize());
    }
    if (const auto* color = run.attributes->find<UIColor>(Key::foregroundColor)) {
      seen.foregroundColor =
          &colors.emplace_back(color->red, color->green, color->blue, color->alpha);
    }
  }
}

namespace ombrix::c {
namespace {

UIFont from(const OmbrixFont& font) {
  return UIFont(
      {.name = std::string(textFrom(font.name)), .isBold = font.isBold, .isItalic = font.isItalic},
      font.pointSize);
}

UIColor from(const OmbrixColor& color) {
  return {.red = color.red, .green = color.green, .blue = color.blue, .alpha = color.alpha};
}

}  // namespace

NSAttributedString::Attributes from(const OmbrixAttributes* attributes) {
  NSAttributedString::Attributes result;
  if (attributes == nullptr) return result;
  const auto set = [&result](Key key, const auto* value) {
    if (value != nullptr) result.set(key, from(*value));
  };
  set(Key::font, attributes->font);
  set(Key::foregroundColor, attributes->foregroundColor);
  set(OmbrixValueFormatter::SecondaryFont, attributes->secondaryFont);
  set(OmbrixValueFormatter::SecondaryForegroundColor, attributes->secondaryForegroundColor);
  return result;
}

OmbrixAttributedString* owned(std::optional<NSAttributedString> string) {
  return string ? new OmbrixAttributedString(*std::move(string)) : nullptr;
}

}  // namespace ombrix::c

char* ombrix_AttributedString_string(const OmbrixAttributedString* self) {
  return ombrix::c::copied(std::string_view(self->string.string()));
}

size_t ombrix_AttributedString_length(const OmbrixAttributedString* self) {
  return self->string.length();
}

size_t ombrix_AttributedString_runCount(const OmbrixAttributedString* self) {
  return self->runs.size();
}

const OmbrixAttributedRun* ombrix_AttributedString_runs(const OmbrixAttributedString* self) {
  return self->runs.data();
}

void ombrix_AttributedString_release(OmbrixAttributedString* self) { delete self; }
