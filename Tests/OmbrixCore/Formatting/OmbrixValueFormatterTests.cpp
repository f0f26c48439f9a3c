#include "OmbrixCore/Formatting/OmbrixValueFormatter.hpp"

#include <gtest/gtest.h>

#include <random>

namespace ombrix {
namespace {

using platform::FormatterObject;
using platform::NSAttributedString;
using platform::NSRange;
using platform::UIColor;
using platform::UIFont;
using Attributes = NSAttributedString::Attributes;
using Key = NSAttributedString::Key;
constexpr Key SecondaryFont = OmbrixValueFormatter::SecondaryFont;
constexpr Key SecondaryForegroundColor = OmbrixValueFormatter::SecondaryForegroundColor;

const UIColor kRed{1, 0, 0, 1}, kGray{.5, .5, .5, 1};

const UIFont& inter20() {
  static const UIFont font("Inter", 20);
  return font;
}
const UIFont& mono12() {
  static const UIFont font("Mono", 12);
  return font;
}

NSAttributedString styled(std::u16string_view text, const Attributes& attributes) {
  return OmbrixValueFormatter::shared().attributedStringWithDefaultAttributes(text, attributes);
}

/// Marks every UTF-16 unit: 'u' where it has the unit font, '.' where it has the main one.
std::string marks(const NSAttributedString& string) {
  std::string marks;
  for (const auto& run : string.runs()) {
    const bool isUnit = run.attributes->find<UIFont>(Key::font)->pointSize() == 15;
    marks.append(run.range.length, isUnit ? 'u' : '.');
  }
  return marks;
}

/// The rule in its longest form: every range of every match of the expression, in order.
NSAttributedString styledByMatching(const std::u16string& text, const Attributes& main,
                                    const Attributes& unit) {
  NSAttributedString string(text, std::make_shared<const Attributes>(main));
  OmbrixValueFormatter::shared().letterRegex()->enumerateMatches(
      text, {0, text.size()}, [&](const platform::NSTextCheckingResult& result) {
        for (const NSRange range : result.ranges) {
          if (!range.liesInside(text.size())) continue;
          for (const auto& [key, value] : unit) string.removeAttribute(key, range);
          string.setAttributes(unit, range);
        }
      });
  return string;
}

// Catches letters of other scripts left large, and digits, signs, marks or emoji made small.
TEST(OmbrixValueFormatterTests, StylesLettersSlashesAndPercentSigns) {
  struct Case {
    std::u16string_view text;
    const char* marks;
  };
  constexpr Case kCases[] = {
      {u"12.3 KM/H", ".....uuuu"},
      {u"45%", "..u"},
      {u"-13°C", "....u"},
      {u"1 STD., 2 MIN. UND", "..uuu.....uuu..uuu"},
      {u"時速 22.4 マイル", "uu......uuu"},
      {u"٢٢٫٤ ميل/س", ".....uuuuu"},
      {u"3 e\u0301t\u00e9", "..u.uu"},
      {u"𝐤𝐦/h 🏂 7", "uuuuuu....."},
      {u"//%a", "uuuu"},
  };
  for (const auto& [text, expected] : kCases) {
    EXPECT_EQ(marks(styled(text, {{Key::font, inter20()}})), expected);
  }
}

// Catches a quick way that differs from matching, over every kind of character and surrogates
// that stand alone; groups without a part lie outside the text and must change nothing.
TEST(OmbrixValueFormatterTests, StylesWhatTheExpressionMatches) {
  constexpr char16_t kAlphabet[] = {u'k',   u'M',   u'/',   u'%',   u'7',   u' ',
                                    u'.',   u'é',   0x0301, u'が',  0x0E33, 0x2032,
                                    0xD835, 0xDC24, 0xD83C, 0xDFC2, 0xDFFF, 0xFFFD};
  const Attributes main{{Key::font, inter20()}, {Key::kern, 1.0}};
  const Attributes unit{{Key::font, inter20().withSize(15)}, {Key::kern, 1.0}};
  std::minstd_rand random(11);
  for (int round = 0; round < 2'000; ++round) {
    std::u16string text;
    while (random() % 12 != 0) text.push_back(kAlphabet[random() % std::size(kAlphabet)]);
    ASSERT_EQ(styled(text, main), styledByMatching(text, main, unit)) << round;
  }
}

// Catches a secondary font that is scaled, a key that leaks, and attributes carried over that
// should not be.
TEST(OmbrixValueFormatterTests, ChoosesTheUnitAttributes) {
  struct Case {
    const char* name;
    Attributes given, main, unit;
  };
  const UIFont inter15 = inter20().withSize(15);
  const Case cases[] = {
      {"none", {}, {}, {}},
      {"font alone", {{Key::font, inter20()}}, {{Key::font, inter20()}}, {{Key::font, inter15}}},
      {"secondary font",
       {{Key::font, inter20()}, {SecondaryFont, mono12()}},
       {{Key::font, inter20()}},
       {{Key::font, mono12()}}},
      {"secondary font without a main one",
       {{SecondaryFont, mono12()}},
       {},
       {{Key::font, mono12()}}},
      {"secondary color",
       {{Key::foregroundColor, kRed}, {SecondaryForegroundColor, kGray}, {Key::kern, 2.0}},
       {{Key::foregroundColor, kRed}, {Key::kern, 2.0}},
       {{Key::foregroundColor, kGray}, {Key::kern, 2.0}}},
      {"a font that is no font", {{Key::font, 20.0}}, {{Key::font, 20.0}}, {{Key::font, 20.0}}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const auto string = styled(u"7 KM", test.given);
    EXPECT_EQ(*string.runAt(0).attributes, test.main);
    EXPECT_EQ(*string.runAt(3).attributes, test.unit);
    EXPECT_EQ(*styled(u"7 ′", test.given).runAt(2).attributes, test.main);
  }
}

// Catches unit-label attributes other than font and colour, and objects other than texts.
TEST(OmbrixValueFormatterTests, TakesValueAndUnitLabelAttributesApart) {
  const auto& formatter = OmbrixValueFormatter::shared();
  const auto string = formatter.attributedStringWithValueAttributes(
      "7 KM", {{Key::font, inter20()}, {Key::foregroundColor, kRed}},
      {{Key::font, mono12()}, {Key::foregroundColor, kGray}, {Key::kern, 3.0}});
  ASSERT_TRUE(string);
  EXPECT_EQ(string->string(), "7 KM");
  EXPECT_EQ(*string->runAt(0).attributes,
            (Attributes{{Key::font, inter20()}, {Key::foregroundColor, kRed}}));
  EXPECT_EQ(*string->runAt(2).attributes,
            (Attributes{{Key::font, mono12()}, {Key::foregroundColor, kGray}}));
  for (const FormatterObject& object : {FormatterObject(), FormatterObject(7)}) {
    EXPECT_FALSE(formatter.attributedStringWithDefaultAttributes(object, {}));
    EXPECT_FALSE(formatter.attributedStringWithValueAttributes(object, {}, {}));
  }
}

}  // namespace
}  // namespace ombrix
