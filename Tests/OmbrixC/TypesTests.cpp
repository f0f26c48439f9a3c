#include <gtest/gtest.h>

#include "OmbrixC/Detail/Copies.hpp"

namespace ombrix::c {
namespace {

// Catches "none" that looks like "empty" to a C caller, and copies that share the original's bytes.
TEST(TypesTests, TellsNoneFromEmpty) {
  EXPECT_EQ(copied(std::optional<std::string>()), nullptr);
  char* empty = copied(std::string_view());
  EXPECT_STREQ(empty, "");
  ombrix_String_release(empty);
  char* cut = copied(std::string_view("a\0b", 3));
  EXPECT_STREQ(cut, "a");
  ombrix_String_release(cut);

  EXPECT_EQ(copied(std::optional<platform::Data>()).bytes, nullptr);
  const OmbrixData none = copied(std::optional(platform::Data()));
  EXPECT_NE(none.bytes, nullptr);
  EXPECT_EQ(none.length, 0U);
  ombrix_Data_release(none);
  const OmbrixData two = copied(std::optional(platform::dataFrom("ab")));
  EXPECT_EQ(std::string(reinterpret_cast<char*>(two.bytes), two.length), "ab");
  ombrix_Data_release(two);
}

}  // namespace
}  // namespace ombrix::c
