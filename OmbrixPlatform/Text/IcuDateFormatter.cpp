#include <unicode/dcfmtsym.h>
#include <unicode/dtptngen.h>
#include <unicode/simpletz.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"

namespace ombrix::platform {
namespace {

constexpr double kMaximumSecondsFrom1970 = 8.64e12;  // the range of ICU's calendars
constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
constexpr int kMillisecondDigits = 3;

/// The fraction of a second in a pattern: its number of digits, and whether the rest of the text
/// stays the same for a whole second.
struct Fraction {
  int digits = 0;
  bool isCacheable = true;
};

Fraction fractionIn(std::string_view pattern) {
  Fraction fraction;
  int runs = 0;
  bool isQuoted = false;
  char previous = '\0';
  for (const char c : pattern) {
    if (c == '\'') isQuoted = !isQuoted;
    if (!isQuoted && c == 'S') {
      runs += previous == 'S' ? 0 : 1;
      ++fraction.digits;
    }
    if (!isQuoted && c == 'A') fraction.isCacheable = false;  // milliseconds in the day
    previous = isQuoted ? '\0' : c;
  }
  fraction.isCacheable = fraction.isCacheable && runs <= 1;
  return fraction;
}

// ICU divides by ten once per fraction digit after the third, in 32 bits: with more digits than
// this it reads a wrong date, and with many more it divides by zero.
constexpr int kMaximumFractionDigits = 12;
constexpr int kMaximumDigitsInARow = 31;
constexpr std::size_t kMaximumTextBytes = 1000;

/// The longest run of digits in a text of this pattern. Number fields without anything between them
/// ("yyyyMMddHHmmssSSS") need more than one fraction.
int digitsInARowIn(std::string_view pattern) {
  int most = 0;
  int others = 0;
  bool isMixed = false;
  bool isQuoted = false;
  char previous = '\0';
  for (const char c : pattern) {
    if (c == '\'') isQuoted = !isQuoted;
    const bool isLetter = !isQuoted && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'));
    if (!isLetter) {
      others = 0;
      isMixed = false;
      previous = '\0';
      continue;
    }
    isMixed = isMixed || (previous != '\0' && previous != c);
    previous = c;
    if (c != 'S') ++others;
    if (isMixed) most = std::max(most, others);
  }
  return std::min(most + kMaximumFractionDigits, kMaximumDigitsInARow);
}

bool hasLongerNumber(const icu::UnicodeString& text, int digits) {
  int inARow = 0;
  for (int32_t i = 0; i < text.length(); i = text.moveIndex32(i, 1)) {
    inARow = u_isdigit(text.char32At(i)) != 0 ? inARow + 1 : 0;
    if (inARow > digits) return true;
  }
  return false;
}

/// The text of one second by one formatter, with the place of the fraction; the fraction itself is
/// left over from the last call.
struct SecondText {
  std::uint64_t formatter = 0;
  std::int64_t second = 0;
  std::size_t fractionBegin = 0, fractionEnd = 0, size = 0;
  std::array<char, 101> text{};
};
thread_local constinit SecondText lastSecond;

icu::UnicodeString utf16(std::string_view text) {
  return icu::UnicodeString::fromUTF8({text.data(), static_cast<int32_t>(text.size())});
}

/// Whether TZ names a zone in a form that ICU ignores: a rule such as "CET-1CEST", or a name with a
/// number in it. The C library knows both.
bool isZoneForLibraryOnly(const icu::TimeZone& zone) {
  const char* const name = std::getenv("TZ");
  if (name == nullptr) return false;
  icu::UnicodeString known;
  return std::strpbrk(name, "0123456789,") != nullptr && zone.getID(known) != utf16(name);
}

/// The offset from UTC of the C library's zone at a time; 0 if the library does not know it.
std::int32_t libraryOffsetMilliseconds(std::int64_t milliseconds) {
  const std::time_t seconds = milliseconds / 1000 - (milliseconds % 1000 < 0 ? 1 : 0);
  std::tm local{};
  if (::localtime_r(&seconds, &local) == nullptr) return 0;
  return static_cast<std::int32_t>(local.tm_gmtoff * 1000);
}

std::uint64_t nextFormatter() {
  static constinit std::atomic<std::uint64_t> made{0};
  return ++made;
}

}  // namespace

struct DateFormatter::Backing {
  std::uint64_t identity = nextFormatter();
  Fraction fraction;
  int digitsInARow = 0;
  std::array<std::array<char, 4>, 10> digits{};  // in UTF-8, each `digitBytes` long
  std::size_t digitBytes = 0;
  Mutex mutex;
  // ICU does not share it between threads.
  std::unique_ptr<icu::SimpleDateFormat> format OMBRIX_PT_GUARDED_BY(mutex);
  bool isZoneOfLibrary = false;  ///< Whether each date sets the zone again.

  /// Sets the offset that applies at a time.
  void setZone(std::int64_t milliseconds) const OMBRIX_REQUIRES(mutex) {
    if (!isZoneOfLibrary) return;
    const std::int32_t offset = libraryOffsetMilliseconds(milliseconds);
    if (format->getTimeZone().getRawOffset() == offset) return;
    format->adoptTimeZone(new icu::SimpleTimeZone(offset, "local"));
  }

  /// Writes the milliseconds at the place of the fraction.
  void putFraction(SecondText& text, int milliseconds) const noexcept {
    char* at = text.text.data() + text.fractionBegin;
    const int places = std::min(fraction.digits, kMillisecondDigits);
    for (int place = 0, unit = 100; place < places; ++place, unit /= 10) {
      const auto& digit = digits[static_cast<std::size_t>(milliseconds / unit % 10)];
      for (std::size_t byte = 0; byte < digitBytes; ++byte) *at++ = digit[byte];
    }
  }

  /// The text that ICU writes, and the range of the fraction in it (empty if there is none).
  std::string formatted(std::int64_t milliseconds, std::size_t& begin, std::size_t& end) {
    icu::UnicodeString text;
    icu::FieldPosition position(UDAT_FRACTIONAL_SECOND_FIELD);
    {
      const LockGuard lock(mutex);
      setZone(milliseconds);
      format->format(static_cast<UDate>(milliseconds), text, position);
    }
    const auto utf8 = [&](int32_t from, int32_t to) {
      std::string part;
      text.tempSubStringBetween(from, to).toUTF8String(part);
      return part;
    };
    std::string result = utf8(0, position.getBeginIndex());
    begin = result.size();
    result.append(utf8(position.getBeginIndex(), position.getEndIndex()));
    end = result.size();
    return result.append(utf8(position.getEndIndex(), text.length()));
  }
};

DateFormatter::DateFormatter(std::string_view dateFormat, const Locale& locale,
                             std::string_view timeZone)
    : backing_(std::make_unique<Backing>()) {
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale icuLocale(locale.identifier().c_str());
  backing_->format = std::make_unique<icu::SimpleDateFormat>(utf16(dateFormat), icuLocale, status);
  backing_->format->adoptTimeZone(timeZone.empty()
                                      ? icu::TimeZone::createDefault()
                                      : icu::TimeZone::createTimeZone(utf16(timeZone)));
  if (timeZone.empty() && isZoneForLibraryOnly(backing_->format->getTimeZone())) {
    ::tzset();
    backing_->isZoneOfLibrary = true;
    backing_->format->adoptTimeZone(new icu::SimpleTimeZone(0, "local"));
  }
  backing_->format->setLenient(false);
  backing_->fraction = fractionIn(dateFormat);
  backing_->digitsInARow = digitsInARowIn(dateFormat);
  const icu::DecimalFormatSymbols symbols(icuLocale, status);
  for (int32_t digit = 0; digit < 10; ++digit) {
    std::string bytes;
    symbols.getConstDigitSymbol(digit).toUTF8String(bytes);
    auto& kept = backing_->digits[static_cast<std::size_t>(digit)];
    // Digits of one script take the same number of bytes; if they did not, nothing is cached.
    if (bytes.size() > kept.size() || (digit > 0 && bytes.size() != backing_->digitBytes)) {
      backing_->fraction.isCacheable = false;
      break;
    }
    backing_->digitBytes = bytes.size();
    std::ranges::copy(bytes, kept.begin());
  }
}

DateFormatter::~DateFormatter() = default;

std::string DateFormatter::dateFormatFromTemplate(std::string_view dateTemplate,
                                                  const Locale& locale) {
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::DateTimePatternGenerator> generator(
      icu::DateTimePatternGenerator::createInstance(icu::Locale(locale.identifier().c_str()),
                                                    status));
  if (U_FAILURE(status)) return std::string(dateTemplate);
  std::string pattern;
  generator->getBestPattern(utf16(dateTemplate), status).toUTF8String(pattern);
  return U_FAILURE(status) ? std::string(dateTemplate) : pattern;
}

std::string DateFormatter::stringFrom(Date date) const {
  std::string text;
  appendTo(text, date);
  return text;
}

void DateFormatter::appendTo(std::string& text, Date date) const {
  const double seconds = timeIntervalSince1970(date);
  if (!(std::abs(seconds) <= kMaximumSecondsFrom1970)) return;
  // The double nearest to a decimal millisecond may lie below it: rounds to the microsecond first.
  const auto microseconds =
      static_cast<std::int64_t>(std::floor(seconds * double{kMicrosecondsPerSecond} + 0.5));
  auto second = microseconds / kMicrosecondsPerSecond;
  auto rest = microseconds % kMicrosecondsPerSecond;
  if (rest < 0) {
    --second;
    rest += kMicrosecondsPerSecond;
  }
  const int milliseconds = static_cast<int>(rest / 1000);

  SecondText& last = lastSecond;
  if (last.formatter != backing_->identity || last.second != second) {
    std::size_t begin = 0;
    std::size_t end = 0;
    const std::string fresh = backing_->formatted(second * 1000 + milliseconds, begin, end);
    const auto fractionBytes =
        static_cast<std::size_t>(backing_->fraction.digits) * backing_->digitBytes;
    if (!backing_->fraction.isCacheable || fresh.size() > last.text.size() ||
        end - begin != fractionBytes) {
      text.append(fresh);
      return;
    }
    last.formatter = backing_->identity;
    last.second = second;
    last.fractionBegin = static_cast<std::uint8_t>(begin);
    last.size = static_cast<std::uint8_t>(fresh.size());
    std::memcpy(last.text.data(), fresh.data(), fresh.size());
  }
  backing_->putFraction(last, milliseconds);
  text.append(last.text.data(), last.size);
}

std::optional<Date> DateFormatter::dateFrom(std::string_view text) const {
  if (text.empty() || text.size() > kMaximumTextBytes) return std::nullopt;
  const icu::UnicodeString source = utf16(text);
  if (hasLongerNumber(source, backing_->digitsInARow)) return std::nullopt;
  icu::ParsePosition position(0);
  const LockGuard lock(backing_->mutex);
  UDate date = backing_->format->parse(source, position);
  if (backing_->isZoneOfLibrary && position.getErrorIndex() == -1) {
    backing_->setZone(static_cast<std::int64_t>(date));  // near enough for the season
    position.setIndex(0);
    date = backing_->format->parse(source, position);
  }
  if (position.getErrorIndex() != -1 || position.getIndex() != source.length()) {
    return std::nullopt;
  }
  return dateSince1970(date / 1000);
}

}  // namespace ombrix::platform
