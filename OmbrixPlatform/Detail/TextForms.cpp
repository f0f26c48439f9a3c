#include "OmbrixPlatform/Detail/TextForms.hpp"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace ombrix::platform::detail {
namespace {

// Base64 by hand, although OpenSSL has it: programs that make no requests need not link OpenSSL.
constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNoDigit = 0xFF;

constexpr std::array<std::uint8_t, 256> kDigitValues = [] {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNoDigit);
  for (std::size_t i = 0; i < kDigits.size(); ++i) {
    values[static_cast<unsigned char>(kDigits[i])] = static_cast<std::uint8_t>(i);
  }
  return values;
}();

bool isWhiteSpace(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

// Reads a number of exactly `digits` digits at the front and removes it.
bool takeNumber(std::string_view& text, std::size_t digits, int& number) {
  if (text.size() < digits) return false;
  number = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    number = number * 10 + (text[i] - '0');
  }
  text.remove_prefix(digits);
  return true;
}

bool take(std::string_view& text, char c) {
  if (!text.starts_with(c)) return false;
  text.remove_prefix(1);
  return true;
}

bool takeFraction(std::string_view& text, double& fraction) {
  if (!text.starts_with('.')) return true;
  std::size_t end = 1;
  while (end < text.size() && text[end] >= '0' && text[end] <= '9') ++end;
  if (end == 1) return false;
  std::from_chars(text.data(), text.data() + end, fraction);
  text.remove_prefix(end);
  return true;
}

bool takeZone(std::string_view& text, int& offsetMinutes) {
  if (take(text, 'Z')) return true;
  const bool west = text.starts_with('-');
  int hours = 0;
  int minutes = 0;
  if (!west && !text.starts_with('+')) return false;
  text.remove_prefix(1);
  if (!takeNumber(text, 2, hours)) return false;
  take(text, ':');
  if (!takeNumber(text, 2, minutes) || hours > 23 || minutes > 59) return false;
  offsetMinutes = (west ? -1 : 1) * (hours * 60 + minutes);
  return true;
}

}  // namespace

void appendBase64(std::string& out, DataView bytes) {
  const std::size_t start = out.size();
  out.resize(start + (bytes.size() + 2) / 3 * 4, '=');
  char* at = out.data() + start;
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const unsigned group = std::to_integer<unsigned>(bytes[i]) << 16 |
                           std::to_integer<unsigned>(bytes[i + 1]) << 8 |
                           std::to_integer<unsigned>(bytes[i + 2]);
    for (unsigned shift = 24; shift > 0; shift -= 6) *at++ = kDigits[group >> (shift - 6) & 63];
  }
  const std::size_t left = bytes.size() - i;
  if (left == 0) return;
  unsigned group = std::to_integer<unsigned>(bytes[i]) << 16;
  if (left == 2) group |= std::to_integer<unsigned>(bytes[i + 1]) << 8;
  for (std::size_t digit = 0; digit <= left; ++digit) {
    *at++ = kDigits[group >> (18 - 6 * digit) & 63];
  }
}

std::optional<Data> bytesFromBase64(std::string_view text, bool allowWhiteSpace) {
  Data out;
  out.reserve(text.size() / 4 * 3);
  std::uint32_t group = 0;
  unsigned digits = 0;
  unsigned padding = 0;
  for (const char c : text) {
    if (allowWhiteSpace && isWhiteSpace(c)) continue;
    const std::uint8_t value = kDigitValues[static_cast<unsigned char>(c)];
    if (c == '=' && digits >= 2) {
      ++padding;
    } else if (value == kNoDigit || padding > 0) {
      return std::nullopt;
    }
    group = group << 6 | (c == '=' ? 0U : value);
    if (++digits < 4) continue;
    for (unsigned i = 0; i < 3 - padding; ++i) {
      out.push_back(static_cast<std::byte>(group >> (16 - 8 * i) & 0xFF));
    }
    group = 0;
    digits = 0;
  }
  if (digits != 0) return std::nullopt;
  return out;
}

std::string iso8601Text(Date date) {
  using namespace std::chrono;
  constexpr double kYear0 = -62'167'219'200.0;
  constexpr double kYear10000 = 253'402'300'800.0;
  const double since1970 = std::floor(timeIntervalSince1970(date));
  if (!(since1970 >= kYear0 && since1970 < kYear10000)) return {};
  const sys_seconds time{seconds{static_cast<std::int64_t>(since1970)}};
  const sys_days day = floor<days>(time);
  const year_month_day ymd{day};
  const hh_mm_ss clock{time - day};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", static_cast<int>(ymd.year()),
                     static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count());
}

std::optional<Date> dateFromISO8601(std::string_view text) {
  using namespace std::chrono;
  int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, offsetMinutes = 0;
  double fraction = 0;
  const bool matched = takeNumber(text, 4, y) && take(text, '-') && takeNumber(text, 2, mo) &&
                       take(text, '-') && takeNumber(text, 2, d) && take(text, 'T') &&
                       takeNumber(text, 2, h) && take(text, ':') && takeNumber(text, 2, mi) &&
                       take(text, ':') && takeNumber(text, 2, s) && takeFraction(text, fraction) &&
                       takeZone(text, offsetMinutes);
  const year_month_day ymd{year{y}, month{static_cast<unsigned>(mo)},
                           day{static_cast<unsigned>(d)}};
  if (!matched || !text.empty() || !ymd.ok() || h > 23 || mi > 59 || s > 60) return std::nullopt;
  const sys_seconds time = sys_days{ymd} + hours{h} + minutes{mi - offsetMinutes} + seconds{s};
  return dateSince1970(static_cast<double>(time.time_since_epoch().count()) + fraction);
}

}  // namespace ombrix::platform::detail
