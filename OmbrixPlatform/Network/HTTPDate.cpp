#include "OmbrixPlatform/Network/HTTPDate.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>

namespace ombrix::platform {
namespace {

using namespace std::chrono;

constexpr std::array<std::string_view, 7> kDays{"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                "Thursday", "Friday", "Saturday"};
constexpr std::array<std::string_view, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

/// Reads a text from its beginning, part by part; once a part does not fit, all later ones fail.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool isAtEnd() const { return isRight_ && rest_.empty(); }
  [[nodiscard]] bool isRight() const { return isRight_; }

  void take(std::string_view expected) {
    isRight_ = isRight_ && rest_.starts_with(expected);
    if (isRight_) rest_.remove_prefix(expected.size());
  }
  bool takeIf(std::string_view expected) {
    if (!isRight_ || !rest_.starts_with(expected)) return false;
    rest_.remove_prefix(expected.size());
    return true;
  }
  int number(std::size_t digits) {
    int value = 0;
    for (std::size_t i = 0; i < digits; ++i) {
      isRight_ = isRight_ && !rest_.empty() && rest_[0] >= '0' && rest_[0] <= '9';
      if (!isRight_) return 0;
      value = value * 10 + (rest_[0] - '0');
      rest_.remove_prefix(1);
    }
    return value;
  }
  unsigned month() {
    const auto found =
        std::ranges::find_if(kMonths, [this](auto name) { return rest_.starts_with(name); });
    isRight_ = isRight_ && found != kMonths.end();
    if (!isRight_) return 0;
    rest_.remove_prefix(3);
    return static_cast<unsigned>(found - kMonths.begin()) + 1;
  }
  /// Reads the name of a day, in full or its first three letters; false when there is none.
  bool day(bool isWhole) {
    for (const auto name : kDays) {
      if (takeIf(isWhole ? name : name.substr(0, 3))) return true;
    }
    return false;
  }

 private:
  std::string_view rest_;
  bool isRight_ = true;
};

struct Parts {
  int year = 0;
  unsigned month = 0;
  int day = 0, hour = 0, minute = 0, second = 0;
};

void readTime(Scanner& scanner, Parts& parts) {
  parts.hour = scanner.number(2);
  scanner.take(":");
  parts.minute = scanner.number(2);
  scanner.take(":");
  parts.second = scanner.number(2);
}

std::optional<Date> dateFrom(const Parts& parts) {
  const year_month_day date{year{parts.year}, month{parts.month},
                            day{static_cast<unsigned>(parts.day)}};
  constexpr int kLeapSecond = 60;
  if (!date.ok() || parts.hour > 23 || parts.minute > 59 || parts.second > kLeapSecond) {
    return std::nullopt;
  }
  return Date{sys_days{date} + hours{parts.hour} + minutes{parts.minute} + seconds{parts.second}};
}

int yearOf(Date date) { return static_cast<int>(year_month_day{floor<days>(date)}.year()); }

/// The latest year with these two digits that is not more than 50 years ahead.
int fullYear(int twoDigits, Date now) {
  const int last = yearOf(now) + 50;
  const int surplus = (last - twoDigits) % 100;
  return last - (surplus < 0 ? surplus + 100 : surplus);
}

}  // namespace

std::optional<Date> dateFromHTTPText(std::string_view text, Date now) {
  Scanner scanner(text);
  Parts parts;
  if (scanner.day(true) && scanner.takeIf(", ")) {  // Sunday, 06-Nov-94 08:49:37 GMT
    parts.day = scanner.number(2);
    scanner.take("-");
    parts.month = scanner.month();
    scanner.take("-");
    parts.year = fullYear(scanner.number(2), now);
    scanner.take(" ");
    readTime(scanner, parts);
    scanner.take(" GMT");
    return scanner.isAtEnd() ? dateFrom(parts) : std::nullopt;
  }
  scanner = Scanner(text);
  if (!scanner.day(false)) return std::nullopt;
  if (scanner.takeIf(", ")) {  // Sun, 06 Nov 1994 08:49:37 GMT
    parts.day = scanner.number(2);
    scanner.take(" ");
    parts.month = scanner.month();
    scanner.take(" ");
    parts.year = scanner.number(4);
    scanner.take(" ");
    readTime(scanner, parts);
    scanner.take(" GMT");
  } else {  // Sun Nov  6 08:49:37 1994
    scanner.take(" ");
    parts.month = scanner.month();
    scanner.take(" ");
    parts.day = scanner.takeIf(" ") ? scanner.number(1) : scanner.number(2);
    scanner.take(" ");
    readTime(scanner, parts);
    scanner.take(" ");
    parts.year = scanner.number(4);
  }
  return scanner.isAtEnd() ? dateFrom(parts) : std::nullopt;
}

std::string httpTextFrom(Date date) {
  constexpr Date kFirst{sys_days{year{0} / 1 / 1}};
  constexpr Date kLast{sys_days{year{9999} / 12 / 31} + 86399s};
  const auto whole = floor<seconds>(
      std::isnan(timeIntervalSince1970(date)) ? Date{} : std::clamp(date, kFirst, kLast));
  const auto midnight = floor<days>(whole);
  const year_month_day day{midnight};
  const hh_mm_ss time{whole - midnight};
  return fmt::format("{}, {:02} {} {:04} {:02}:{:02}:{:02} GMT",
                     kDays[weekday{midnight}.c_encoding()].substr(0, 3),
                     static_cast<unsigned>(day.day()),
                     kMonths[static_cast<unsigned>(day.month()) - 1], static_cast<int>(day.year()),
                     time.hours().count(), time.minutes().count(), time.seconds().count());
}

}  // namespace ombrix::platform
