#pragma once

#include <unicode/listformatter.h>
#include <unicode/numberformatter.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "OmbrixPlatform/Measure/NSDateComponents.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix::platform::detail {

/// Days, hours, minutes and seconds, from the largest.
inline constexpr std::size_t kDurationUnitCount = 4;

/// Wide enough for the sum of four 64-bit parts in seconds.
__extension__ typedef __int128 Int128;

/// A part of a time span: an index into those units, and an amount.
struct DurationPart {
  std::size_t unit;
  Int128 amount;
};

/// The ICU objects that write time spans in one locale: a formatter for every unit and width, the
/// list patterns and the clock's separator. Created once per process and locale. Any thread.
class IcuDurationFormat {
 public:
  enum class Width { narrow, abbreviated, wide };

  /// The instance for a locale, created on first use; null when ICU cannot create it.
  static std::shared_ptr<const IcuDurationFormat> shared(const Locale& locale);

  /// "1h 2m": every part with its label, joined as the locale joins units.
  [[nodiscard]] std::optional<std::string> labelled(std::span<const DurationPart> parts,
                                                    Width width) const;

  /// "1:02:05": adjacent parts up to hours, all but the first with two digits. A single part is a
  /// plain number.
  [[nodiscard]] std::optional<std::string> positional(std::span<const DurationPart> parts) const;

 private:
  struct Widened {
    std::array<icu::number::LocalizedNumberFormatter, kDurationUnitCount> units;
    std::unique_ptr<icu::ListFormatter> list;
  };

  static std::shared_ptr<const IcuDurationFormat> make(const Locale& locale);

  std::array<Widened, 3> widths_;
  icu::number::LocalizedNumberFormatter plain_;
  icu::number::LocalizedNumberFormatter twoDigits_;
  icu::UnicodeString separator_;
};

}  // namespace ombrix::platform::detail
