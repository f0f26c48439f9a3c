#include "OmbrixPlatform/Detail/TextForms.hpp"

#include <fmt/format.h>
#include <openssl/evp.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>

namespace ombrix::platform::detail {
namespace {

// Digits in one call to OpenSSL, which counts by `int`; a multiple of 4.
constexpr std::size_t kMostBase64Digits = std::size_t{1} << 30;
constexpr std::string_view kWhiteSpace = " \n\r\t";

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
  constexpr std::size_t kMostBytes = kMostBase64Digits / 4 * 3;
  while (!bytes.empty()) {
    const auto part = bytes.first(std::min(bytes.size(), kMostBytes));
    bytes = bytes.subspan(part.size());
    const std::size_t start = out.size();
    out.resize(start + (part.size() + 2) / 3 * 4);
    // The NUL that it adds takes the place of the string's own.
    ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data() + start),
                      reinterpret_cast<const unsigned char*>(part.data()),
                      static_cast<int>(part.size()));
  }
}

std::optional<Data> bytesFromBase64(std::string_view text, bool allowWhiteSpace) {
  std::string packed;
  if (allowWhiteSpace && text.find_first_of(kWhiteSpace) != text.npos) {
    std::ranges::copy_if(text, std::back_inserter(packed),
                         [](char c) { return !kWhiteSpace.contains(c); });
    text = packed;
  }
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  // OpenSSL takes "=" for a digit, too.
  if (text.size() % 4 != 0 || text.find('=') < text.size() - padding) return std::nullopt;
  Data out(text.size() / 4 * 3);
  auto* to = reinterpret_cast<unsigned char*>(out.data());
  while (!text.empty()) {
    const auto part = text.substr(0, kMostBase64Digits);
    // At the ends it skips white space and "-".
    const auto isSkipped = [](char c) { return c == '-' || kWhiteSpace.contains(c); };
    if (isSkipped(part.front()) || isSkipped(part.back())) return std::nullopt;
    const int count = ::EVP_DecodeBlock(to, reinterpret_cast<const unsigned char*>(part.data()),
                                        static_cast<int>(part.size()));
    if (count < 0) return std::nullopt;
    to += count;
    text.remove_prefix(part.size());
  }
  out.resize(out.size() - padding);
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
