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

/// Styles an already formatted value such as "12.3 KM/H": the number keeps the caller's main
/// attributes; unit letters, slashes and percent signs get a smaller font and, if given, another
/// colour. The styling operations may be called from any thread.
class OmbrixValueFormatter final : public platform::NSFormatter {
 public:
  using Key = platform::NSAttributedString::Key;
  using Attributes = platform::NSAttributedString::Attributes;

  /// Hold the colour and the font for unit letters inside an ordinary set of attributes.
  static constexpr Key SecondaryForegroundColor{"OmbrixSecondaryForegroundColor"};
  static constexpr Key SecondaryFont{"OmbrixSecondaryFont"};

  OmbrixValueFormatter();

  /// The same; reads nothing from the decoder.
  static OmbrixValueFormatter decode(platform::Decoder& decoder);

  /// The process-wide instance, created on first use. Any thread.
  static OmbrixValueFormatter& shared();

  /// The expression for unit characters: "(\p{L})?([\/%])?", an optional letter of any script,
  /// then an optional slash or percent sign. Empty if it does not compile; then nothing is
  /// styled.
  [[nodiscard]] const std::optional<platform::NSRegularExpression>& letterRegex() const noexcept {
    return letterRegex_;
  }

  /// Returns a text unchanged; empty for any other object.
  std::optional<std::string> string(const platform::FormatterObject& object) override;

  /// Styles a text; empty for any other object.
  ///
  /// @param attributes For the whole text, without the two secondary keys. If these are missing,
  ///   unit letters get the main colour, and the main font at 0.75 of its size. Without any
  ///   attributes the result has none either.
  [[nodiscard]] std::optional<platform::NSAttributedString> attributedStringWithDefaultAttributes(
      const platform::FormatterObject& object, const Attributes& attributes) const;

  /// The same for a text in UTF-16.
  [[nodiscard]] platform::NSAttributedString attributedStringWithDefaultAttributes(
      std::u16string_view text, const Attributes& attributes) const;

  /// Styles a text with separate attributes for unit letters, of which only font and colour are
  /// used. Empty for any other object.
  [[nodiscard]] std::optional<platform::NSAttributedString> attributedStringWithValueAttributes(
      const platform::FormatterObject& object, const Attributes& valueAttributes,
      const Attributes& unitLabelAttributes) const;

 private:
  std::optional<platform::NSRegularExpression> letterRegex_;
};

}  // namespace ombrix
