#pragma once

#include <optional>
#include <string_view>

#include "OmbrixPlatform/Measure/NSFormatter.hpp"
#include "OmbrixPlatform/Text/NSAttributedString.hpp"
#include "OmbrixPlatform/Text/NSRegularExpression.hpp"

namespace ombrix::platform {
class Decoder;
}

namespace ombrix {

/// Styles an already formatted value text, such as "12.3 KM/H": the number keeps the caller's main
/// attributes; unit letters, slashes and percent signs get a smaller font and, if given, another
/// colour. The styling operations may be called from any thread.
class OmbrixValueFormatter final : public platform::NSFormatter {
 public:
  using Key = platform::NSAttributedString::Key;
  using Attributes = platform::NSAttributedString::Attributes;

  /// Carry the colour and the font for unit letters inside an ordinary set of attributes.
  static constexpr Key SecondaryForegroundColor{"OmbrixSecondaryForegroundColor"};
  static constexpr Key SecondaryFont{"OmbrixSecondaryFont"};

  OmbrixValueFormatter();

  /// The same; nothing is read.
  static OmbrixValueFormatter decode(platform::Decoder& decoder);

  /// The process-wide instance, made on first use. Any thread.
  static OmbrixValueFormatter& shared();

  /// What counts as a unit letter: "(\p{L})?([\/%])?", a letter of any script with an optional
  /// slash or percent sign behind it, each optional. Empty when it does not compile, and then
  /// nothing is styled.
  [[nodiscard]] const std::optional<platform::NSRegularExpression>& letterRegex() const noexcept {
    return letterRegex_;
  }

  /// A text as it is; nothing for any other object.
  std::optional<std::string> string(const platform::FormatterObject& object) override;

  /// Styles a text; nothing for any other object.
  ///
  /// @param attributes For the whole text, without the two secondary keys. Where these are absent,
  ///   unit letters get the main font at 0.75 of its size and the main colour. Without any
  ///   attributes the result has none anywhere.
  [[nodiscard]] std::optional<platform::NSAttributedString> attributedStringWithDefaultAttributes(
      const platform::FormatterObject& object, const Attributes& attributes) const;

  /// The same for a text in UTF-16.
  [[nodiscard]] platform::NSAttributedString attributedStringWithDefaultAttributes(
      std::u16string_view text, const Attributes& attributes) const;

  /// Styles a text, with font and colour of the unit letters given apart; other unit-label
  /// attributes are ignored. Nothing for any other object.
  [[nodiscard]] std::optional<platform::NSAttributedString> attributedStringWithValueAttributes(
      const platform::FormatterObject& object, const Attributes& valueAttributes,
      const Attributes& unitLabelAttributes) const;

 private:
  std::optional<platform::NSRegularExpression> letterRegex_;
};

}  // namespace ombrix
