#include "OmbrixPlatform/Text/NSAttributedString.hpp"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace ombrix::platform {
namespace {

using Attributes = NSAttributedString::Attributes;
using Key = NSAttributedString::Key;

const UIColor kRed{1, 0, 0, 1};

// Catches attributes compared by order, and a second entry under one key.
TEST(NSAttributedStringTests, AttributesHoldEachKeyOnce) {
  Attributes attributes{{Key::kern, 1.0}, {Key::foregroundColor, kRed}, {Key::kern, 2.0}};
  EXPECT_EQ(attributes.size(), 2U);
  EXPECT_EQ(*attributes.find<double>(Key::kern), 2);
  EXPECT_EQ(attributes.find<UIFont>(Key::kern), nullptr);
  EXPECT_EQ(attributes, (Attributes{{Key::foregroundColor, kRed}, {Key::kern, 2.0}}));
  attributes.erase(Key::kern);
  EXPECT_EQ(attributes, (Attributes{{Key::foregroundColor, kRed}}));
  EXPECT_FALSE(attributes == (Attributes{{Key::backgroundColor, kRed}}));
}

// Catches runs that overlap, leave gaps, stay empty or equal their neighbours: random changes are
// held against attributes kept unit by unit.
TEST(NSAttributedStringTests, RunsFollowEveryChange) {
  std::minstd_rand random(7);
  const auto pick = [&](std::size_t below) { return random() % below; };
  for (int round = 0; round < 200; ++round) {
    NSAttributedString string("0123456789abcdef");
    std::vector<std::map<std::string_view, double>> expected(string.length());
    for (int change = 0; change < 12; ++change) {
      const std::size_t location = pick(17);
      const NSRange range{location, pick(17 - location)};
      const double kern = static_cast<double>(pick(2));
      const bool isRemoval = pick(4) == 0;
      if (isRemoval) {
        string.removeAttribute(Key::kern, range);
      } else {
        string.setAttributes(Attributes{{Key::kern, kern}, {Key::link, 1.0}}, range);
      }
      for (std::size_t i = range.location; i < range.end(); ++i) {
        if (isRemoval) {
          expected[i].erase("NSKern");
        } else {
          expected[i] = {{"NSKern", kern}, {"NSLink", 1.0}};
        }
      }
    }
    std::size_t at = 0;
    const NSAttributedString::Run* previous = nullptr;
    for (const auto& run : string.runs()) {
      ASSERT_EQ(run.range.location, at);
      ASSERT_GT(run.range.length, 0U);
      ASSERT_FALSE(previous != nullptr && *previous->attributes == *run.attributes);
      previous = &run;
      for (; at < run.range.end(); ++at) {
        std::map<std::string_view, double> actual;
        for (const auto& [key, value] : *run.attributes) {
          actual[key.name()] = std::get<double>(value);
        }
        ASSERT_EQ(actual, expected[at]);
        ASSERT_EQ(&string.runAt(at), &run);
      }
    }
    ASSERT_EQ(at, string.length());
  }
}

// Catches indices counted in bytes, and text that breaks the conversion.
TEST(NSAttributedStringTests, IsIndexedInUTF16) {
  const NSAttributedString string("3′ 🏂\xff");
  EXPECT_EQ(string.length(), 6U);
  EXPECT_EQ(string.string(), "3′ 🏂\uFFFD");
  const NSAttributedString lone(std::u16string{u'a', char16_t{0xD83C}},
                                std::make_shared<const Attributes>());
  EXPECT_EQ(lone.string(), "a\uFFFD");
  EXPECT_TRUE(NSAttributedString("").runs().empty());
  EXPECT_DEATH(NSAttributedString("abc").setAttributes(Attributes(), {2, 2}), "beyond the text");
  EXPECT_DEATH(static_cast<void>(NSAttributedString("abc").runAt(3)), "beyond the end");
}

}  // namespace
}  // namespace ombrix::platform
