#include "OmbrixPlatform/Bundles/StringsTable.hpp"

#include <gtest/gtest.h>

#include "OmbrixPlatform/Text/LanguageMatch.hpp"

namespace ombrix::platform {
namespace {

std::string text(const StringsTable& table, std::string_view key) {
  const std::string* found = table.find(key);
  return found == nullptr ? "none" : *found;
}

StringsTable parsed(std::string_view file) { return StringsTable::parse(bytesOf(file)); }

/// The text as UTF-16 with a byte order mark.
std::string utf16(std::u16string_view units, bool isBigEndian) {
  std::string bytes;
  const auto add = [&](char16_t unit) {
    const char high = static_cast<char>(unit >> 8);
    const char low = static_cast<char>(unit & 0xFF);
    bytes.append({isBigEndian ? high : low, isBigEndian ? low : high});
  };
  add(u'\uFEFF');
  for (const char16_t unit : units) add(unit);
  return bytes;
}

// Catches escapes, comments and bare words read wrongly, one form to a line.
TEST(StringsTableTests, ReadsEveryForm) {
  struct Case {
    const char *file, *key, *value;
  };
  const Case cases[] = {
      {"\"a\" = \"b\";", "a", "b"},
      {"a=b;", "a", "b"},
      {"units.km/h = 'x \"y\"';", "units.km/h", "x \"y\""},
      {"/* \"a\" = \"1\"; */ \"a\" // = 2;\n = /* 3 */ \"4\";", "a", "4"},
      {"a/*x*/=b//y\n;", "a", "b"},
      {"\"alone\";", "alone", "alone"},
      {"a = 1; a = 2;", "a", "2"},
      {"\"a\" = \"// no /* comment\";", "a", "// no /* comment"},
      {R"("a\"\\" = "\n\t\r\'\?";)", "a\"\\", "\n\t\r'?"},
      {R"("a" = "\U00e9\u20AC\Ud83c\Udfbf!";)", "a", "é€🎿!"},
      {R"("a" = "\1018\7";)", "a", "A8\a"},
      {"\"a\" = \"line\nline\\\nline\";", "a", "line\nline\nline"},
      {"\"a\" = \"\";", "a", ""},
      {"\xef\xbb\xbf\"ü\" = \"ö\";", "ü", "ö"},
  };
  for (const auto& [file, key, value] : cases) {
    EXPECT_EQ(text(parsed(file), key), value) << file;
    EXPECT_EQ(parsed(file).size(), 1U) << file;
  }
}

// Catches bytes swapped, marks taken for text, and pairs of units cut in two.
TEST(StringsTableTests, ReadsUtf16) {
  for (const bool isBigEndian : {false, true}) {
    const auto table = parsed(utf16(u"\"schlüssel\" = \"🎿 ¾\";\n\"b\" = \"c\";", isBigEndian));
    EXPECT_EQ(text(table, "schlüssel"), "🎿 ¾");
    EXPECT_EQ(text(table, "b"), "c");
    const auto halved = parsed(utf16(u"a = \"\xD83C\"; b = c;", isBigEndian) + "x");
    EXPECT_EQ(text(halved, "a"), "none");
    EXPECT_EQ(text(halved, "b"), "c");
  }
}

// Catches one damaged entry that takes others along, or gives half a text.
TEST(StringsTableTests, LeavesOutWhatIsDamaged) {
  for (const char* damaged :
       {"\"a\" = \"no end;", "\"a\" \"b\";", "\"a\" = ;", "a b = c;", "= \"b\";",
        "\"a\" = \"\\U12\";", "\"a\" = \"\xff\";", "}", "\"a\" = \"\\Ud83c\";",
        "\"a\" = \"\\Udfbf x\";", "\"a\" = \"\\377\";", "\"a\" = b", "\"a\" = \"\xc3\";",
        "\"\xf0\" = \"b\";", "a = \xe9;", "a /* x */ = ;"}) {
    const auto table = parsed(std::string("first = 1;\n") + damaged + "\n\"last\" = \"2\";\n");
    EXPECT_EQ(text(table, "first"), "1") << damaged;
    EXPECT_EQ(text(table, "a"), "none") << damaged;
    EXPECT_EQ(text(table, "last"), "2") << damaged;
  }
  EXPECT_EQ(text(parsed("a = 1; /* b = 2;\nc = 3;"), "c"), "none");
  for (const char* file :
       {"", "\"", "\"a\" = \"\\", "\"a\" = \"\\U", "/", "a", "\xff\xfe", "\xfe\xff x"}) {
    EXPECT_EQ(parsed(file).size(), 0U) << file;
  }
}

// Catches reading time that grows with the square of a file's damage.
TEST(StringsTableTests, DamageIsReadOnce) {
  std::string file;
  for (int i = 0; i < 100'000; ++i) file += "b /*\n";
  file += "*/\nlast = 1;";
  EXPECT_EQ(text(parsed(file), "last"), "1");
}

// Catches a region preferred to a better language, and scripts mixed up.
TEST(LanguageMatchTests, FindsTheBestLanguage) {
  using Names = std::vector<std::string>;
  struct Case {
    Names preferred, available;
    std::string expected;
  };
  const Case cases[] = {
      {{"en-GB"}, {"de", "en", "en-GB"}, "en-GB"},
      {{"en-GB"}, {"en-AU", "en"}, "en"},
      {{"en-GB"}, {"en-AU", "de"}, "en-AU"},
      {{"de-CH", "fr"}, {"fr", "de"}, "de"},
      {{"it", "fr-CA"}, {"en", "fr"}, "fr"},
      {{"pt-BR"}, {"pt", "pt_BR"}, "pt_BR"},
      {{"zh-TW"}, {"zh", "zh-Hant"}, "zh-Hant"},
      {{"zh-TW"}, {"zh-Hans", "en"}, "none"},
      {{"zh-CN"}, {"zh-Hant", "zh-Hans"}, "zh-Hans"},
      {{"", "x"}, {"en", "Base"}, "none"},
      {{}, {"en"}, "none"},
      {{"en"}, {}, "none"},
  };
  for (const auto& [preferred, available, expected] : cases) {
    EXPECT_EQ(bestLanguage(preferred, available).value_or("none"), expected)
        << (preferred.empty() ? "" : preferred[0]);
  }
}

}  // namespace
}  // namespace ombrix::platform
