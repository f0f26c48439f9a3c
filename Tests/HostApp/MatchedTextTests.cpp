#include "Examples/HostApp/Terminal/MatchedText.hpp"

#include <gtest/gtest.h>

namespace ombrix::hostapp {
namespace {

// Catches marks on another way than the best one, and marks that cut a character in two.
TEST(MatchedTextTests, MarksTheBestWay) {
  struct Case {
    const char *text, *pattern, *marked;
  };
  const Case cases[] = {
      {"abc", "abc", "[abc]"},
      {"abc", "ac", "[a]b[c]"},
      {"a-ab", "ab", "a-[ab]"},
      {"Corviglia", "vig", "Cor[vig]lia"},
      {"École", "ecole", "[École]"},
      {"👩‍👩‍👧 ski", "s", "👩‍👩‍👧 [s]ki"},
      {"abc", "", "abc"},
  };
  for (const Case& c : cases) {
    const auto match = normalizedFuzzyMatch(c.text, c.pattern);
    ASSERT_TRUE(match) << c.text;
    EXPECT_EQ(markMatch(c.text, *match, MatchMarks::brackets()), c.marked);
  }
}

}  // namespace
}  // namespace ombrix::hostapp
