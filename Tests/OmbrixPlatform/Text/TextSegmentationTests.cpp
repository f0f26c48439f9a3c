#include "OmbrixPlatform/Text/TextSegmentation.hpp"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "OmbrixPlatform/Text/CaseFolding.hpp"
#include "OmbrixPlatform/Text/LetterCase.hpp"

namespace ombrix::platform {
namespace {

void appendCodePoint(std::string& text, unsigned long codePoint) {
  const auto tail = [&](int shift) {
    text += static_cast<char>(0x80 | (codePoint >> shift & 0x3F));
  };
  if (codePoint < 0x80) {
    text += static_cast<char>(codePoint);
  } else if (codePoint < 0x800) {
    text += static_cast<char>(0xC0 | codePoint >> 6);
    tail(0);
  } else if (codePoint < 0x10000) {
    text += static_cast<char>(0xE0 | codePoint >> 12);
    tail(6), tail(0);
  } else {
    text += static_cast<char>(0xF0 | codePoint >> 18);
    tail(12), tail(6), tail(0);
  }
}

std::vector<std::string> charactersOf(std::string_view text) {
  const TextCharacters characters(text);
  std::vector<std::string> all;
  for (std::size_t i = 0; i < characters.size(); ++i) all.emplace_back(characters[i]);
  return all;
}

// Catches a code point on the quick list that joins its neighbour, or has another canonical form.
TEST(TextSegmentationTests, CountsAsUnicodesOwnTestFileDoes) {
  std::ifstream file("/usr/share/unicode/auxiliary/GraphemeBreakTest.txt");
  if (!file) GTEST_SKIP() << "the package unicode-data is not installed";
  int lines = 0;
  for (std::string line; std::getline(file, line);) {
    line.resize(std::min(line.size(), line.find('#')));
    std::string text;
    std::size_t expected = 0;
    for (std::size_t at = 0; at < line.size();) {
      if (line.compare(at, 2, "\xC3\xB7") == 0) {  // a division sign stands for a break
        ++expected;
        at += 2;
      } else if (std::isxdigit(static_cast<unsigned char>(line[at])) != 0) {
        std::size_t digits = 0;
        appendCodePoint(text, std::stoul(line.substr(at), &digits, 16));
        at += digits;
      } else {
        ++at;
      }
    }
    if (expected == 0) continue;
    ++lines;
    EXPECT_EQ(TextCharacters(text).size(), expected - 1) << line;
  }
  EXPECT_GT(lines, 500);
}

// Catches quick code points whose neighbours or forms would have needed the library.
TEST(TextSegmentationTests, TheQuickListHoldsOnlyLoners) {
  for (unsigned long codePoint = 0x80; codePoint < 0x11000; ++codePoint) {
    if (codePoint >= 0xD800 && codePoint < 0xE000) continue;
    std::string alone;
    appendCodePoint(alone, codePoint);
    // A family emoji behind it sends the whole text to the library.
    const std::string kFamily = "\U0001F468‍\U0001F469";
    const auto alone2 = charactersOf(alone + alone);
    const auto withFamily = charactersOf(alone + alone + "\n" + kFamily);
    ASSERT_GE(withFamily.size(), 2U);
    ASSERT_EQ(alone2, std::vector(withFamily.begin(), withFamily.end() - 2)) << codePoint;
  }
}

// Catches bytes split, equivalent forms that differ, and bytes that are no text.
TEST(TextSegmentationTests, Characters) {
  using Texts = std::vector<std::string>;
  const struct {
    const char* text;
    Texts characters;
  } cases[] = {
      {"", {}},
      {"ab", {"a", "b"}},
      {"a\r\nb", {"a", "\r\n", "b"}},
      {"Éa", {"É", "a"}},
      {"E\xCC\x81"
       "a",
       {"É", "a"}},
      {"日本", {"日", "本"}},
      {"か\xE3\x82\x99", {"が"}},
      {"\xF0\x9F\x87\xA8\xF0\x9F\x87\xAD!", {"\xF0\x9F\x87\xA8\xF0\x9F\x87\xAD", "!"}},
      {"a\xFF"
       "b",
       {"a", "\xEF\xBF\xBD", "b"}},
  };
  for (const auto& [text, characters] : cases) EXPECT_EQ(charactersOf(text), characters) << text;
}

// Catches marks lost in scripts that need them, and letters mistaken for marked ones.
TEST(CaseFoldingTests, FoldsMarksOnLatinGreekAndCyrillic) {
  const struct {
    const char *text, *folded;
  } cases[] = {
      {"École", "Ecole"}, {"e\xCC\x81\xCC\xA7", "e"}, {"ά", "α"},       {"й", "и"},
      {"øłđßæ", "øłđßæ"}, {"हिन्दी", "हिन्दी"},         {"日本", "日本"}, {"abc", "abc"},
  };
  for (const auto& [text, folded] : cases) EXPECT_EQ(foldingDiacritics(text), folded) << text;
  EXPECT_EQ(charactersOf(foldingDiacritics("が")), charactersOf("が"));
  EXPECT_EQ(lowercased("ΣΑΣ İ"), "σασ i\xCC\x87") << "no final sigma; the dot stays";
}

}  // namespace
}  // namespace ombrix::platform
