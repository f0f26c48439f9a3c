#include "OmbrixPlatform/Detail/TextForms.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "OmbrixPlatform/Detail/Utf.hpp"

namespace ombrix::platform::detail {
namespace {

// Catches padding that is miscounted and texts that are taken though they are no base64.
TEST(TextFormsTests, Base64GoesBothWays) {
  const struct {
    std::string_view bytes, text;
  } cases[] = {{"", ""},        {"f", "Zg=="},        {"fo", "Zm8="},
               {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"\xFB\xFF\xFE", "+//+"}};
  for (const auto& [bytes, text] : cases) {
    std::string form;
    appendBase64(form, bytesOf(bytes));
    EXPECT_EQ(form, text);
    EXPECT_EQ(bytesFromBase64(text, false), dataFrom(bytes));
  }
  EXPECT_EQ(bytesFromBase64(" Zm\r\n9v\t", true), dataFrom("foo"));
  for (const std::string_view bad : {"Z", "Zg", "Zg=", "Zg===", "Z===", "====", "Zg==Zg==", "Zm9v ",
                                     "Zm9-", "Zg=a", "\xFF\xFF=="}) {
    EXPECT_EQ(bytesFromBase64(bad, false), std::nullopt) << bad;
  }
}

// Catches the calendar's edges, offsets with the wrong sign, and texts that are half a date.
TEST(TextFormsTests, DatesGoBothWays) {
  const struct {
    double since1970;
    std::string_view text;
  } cases[] = {{0, "1970-01-01T00:00:00Z"},
               {-1, "1969-12-31T23:59:59Z"},
               {951'782'400, "2000-02-29T00:00:00Z"},
               {4'107'542'399, "2100-02-28T23:59:59Z"},
               {253'402'300'799, "9999-12-31T23:59:59Z"},
               {-62'167'219'200, "0000-01-01T00:00:00Z"}};
  for (const auto& [since1970, text] : cases) {
    EXPECT_EQ(iso8601Text(dateSince1970(since1970)), text);
    EXPECT_EQ(dateFromISO8601(text), dateSince1970(since1970));
  }
  EXPECT_EQ(iso8601Text(dateSince1970(-0.5)), "1969-12-31T23:59:59Z");
  EXPECT_EQ(dateFromISO8601("1970-01-01T02:00:00.25+02:00"), dateSince1970(0.25));
  EXPECT_EQ(dateFromISO8601("1969-12-31T18:30:00-0530"), dateSince1970(0));
  for (const double beyond :
       {253'402'300'800.0, -62'167'219'201.0, 1e300, std::numeric_limits<double>::quiet_NaN(),
        std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(iso8601Text(dateSince1970(beyond)), "");
  }
  for (const std::string_view bad :
       {"", "1970-01-01", "1970-01-01T00:00:00", "1970-1-01T00:00:00Z", "1970-02-29T00:00:00Z",
        "1970-13-01T00:00:00Z", "1970-01-01T24:00:00Z", "1970-01-01T00:60:00Z",
        "1970-01-01T00:00:61Z", "1970-01-01T00:00:00.Z", "1970-01-01T00:00:00+24:00",
        "1970-01-01T00:00:00Z ", "+970-01-01T00:00:00Z"}) {
    EXPECT_EQ(dateFromISO8601(bad), std::nullopt) << bad;
  }
}

// Catches code points that change on their way through UTF-16, and forms that UTF-8 forbids.
TEST(TextFormsTests, EveryCodePointSurvivesUTF16) {
  std::string all;
  std::size_t units = 0;
  for (char32_t c = 0; c <= 0x10FFFF; c += c < 0x900 ? 1 : 251) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    appendUtf8(all, c);
    units += c < 0x10000 ? 1 : 2;
  }
  EXPECT_TRUE(isValidUtf8(all));
  std::string wide;
  EXPECT_EQ(appendAsUtf16BigEndian(wide, all), units);
  std::string back;
  EXPECT_TRUE(appendUtf16BigEndian(back, bytesOf(wide).data(), units));
  EXPECT_EQ(back, all);
  for (const std::string_view bad :
       {"\x80", "\xC0\x80", "\xC3", "\xE0\x80\x80", "\xED\xA0\x80", "\xF0\x80\x80\x80",
        "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "abcdefgh\xFF", "\xE6\x97"}) {
    EXPECT_FALSE(isValidUtf8(bad));
    EXPECT_EQ(appendAsUtf16BigEndian(wide, bad), std::string::npos);
  }
  EXPECT_EQ(wide.size(), 2 * units);
}

}  // namespace
}  // namespace ombrix::platform::detail
