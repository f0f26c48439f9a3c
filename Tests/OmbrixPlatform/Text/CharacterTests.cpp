#include <gtest/gtest.h>

#include "OmbrixPlatform/Text/CharacterSet.hpp"
#include "OmbrixPlatform/Text/LetterCase.hpp"
#include "OmbrixPlatform/Text/NSRegularExpression.hpp"

namespace ombrix::platform {
namespace {

// Catches a mapping letter by letter, and one that follows the user's language (Turkish i).
TEST(CharacterTests, UppercasesWithoutALanguage) {
  constexpr std::pair<const char*, const char*> kCases[] = {
      {"", ""},         {"12.3 km/h", "12.3 KM/H"}, {"Fuß", "FUSS"}, {"κόμβοι", "ΚΌΜΒΟΙ"},
      {"ﬁ ŉ", "FI ʼN"}, {"١ كم/س", "١ كم/س"},
  };
  for (const auto& [text, capitals] : kCases) EXPECT_EQ(uppercased(text), capitals);
}

// Catches digits of other scripts left standing, and inner characters taken away.
TEST(CharacterTests, TrimsBothEnds) {
  constexpr auto kDigits = CharacterSet::decimalDigits;
  constexpr auto kSpaces = CharacterSet::whitespacesAndNewlines;
  EXPECT_EQ(trimmingCharacters("10 km", kDigits), " km");
  EXPECT_EQ(trimmingCharacters("١٠ كم", kDigits), " كم");
  EXPECT_EQ(trimmingCharacters("時速 10 km", kDigits), "時速 10 km");
  EXPECT_EQ(trimmingCharacters("12345", kDigits), "");
  EXPECT_EQ(trimmingCharacters("\u00a0\u202f\t\r\n\u0085\u3000km h\u2028", kSpaces), "km h");
}

std::vector<std::vector<NSRange>> matches(const char* pattern, std::u16string_view text,
                                          NSRange range) {
  std::vector<std::vector<NSRange>> all;
  NSRegularExpression(pattern).enumerateMatches(
      text, range, [&](const NSTextCheckingResult& result) { all.push_back(result.ranges); });
  return all;
}

// Catches groups without a part that come out as ranges, surrogate pairs cut in two, and a search
// that leaves its range.
TEST(CharacterTests, RegularExpressionsGiveTheRangesOfTheirGroups) {
  using Ranges = std::vector<std::vector<NSRange>>;
  constexpr NSRange kNone{NSNotFound, 0};
  EXPECT_EQ(matches(R"((\p{L})?([\/%])?)", u"𝐤/1", {0, 4}),
            (Ranges{{{0, 3}, {0, 2}, {2, 1}}, {{3, 0}, kNone, kNone}, {{4, 0}, kNone, kNone}}));
  EXPECT_EQ(matches("b+", u"bbabb", {1, 3}), (Ranges{{{1, 1}}, {{3, 1}}}));
  EXPECT_EQ(matches("b", u"", {0, 0}), Ranges{});
  EXPECT_THROW(NSRegularExpression("(a"), RegularExpressionError);
}

}  // namespace
}  // namespace ombrix::platform
