#include "OmbrixPlatform/Coding/JSON.hpp"

#include <gtest/gtest.h>

#include <cmath>

namespace ombrix::platform {
namespace {

// Catches keys that change their order, numbers that change, and escapes that are not undone.
TEST(JSONTests, ADocumentIsWrittenAsItWasRead) {
  for (const std::string_view text :
       {"null", "true", "[]", "{}", "\"\"", "-0", R"({"z":1,"a":{"y":[1,2.5,null],"b":false}})",
        "[18446744073709551615,-9223372036854775808,9007199254740993,0.1,1e-07,5e-324]",
        R"(["\"\\\b\f\n\r\t\u0000\u001f/é日🎿"])"}) {
    EXPECT_EQ(textOf(JSON::parse(text).rawData()), text);
  }
  const JSON spaced = JSON::parse(" { \"a\" : [ 1 , \"\\ud83c\\udfbf\\/\" ] } ");
  EXPECT_EQ(textOf(spaced.rawData()), "{\"a\":[1,\"\U0001F3BF/\"]}");
  EXPECT_EQ(textOf(JSON::parse(R"({"a":1,"b":2,"a":3})").rawData()), R"({"a":3,"b":2})");
}

// Catches access that converts silently or fails where a null is meant to come back.
TEST(JSONTests, AccessIsTypedAndNeverFails) {
  const JSON body = JSON::parse(
      R"({"errors":{"name":["too short","x"],"age":[18]},"message":"Bad","ok":true,"n":1.5})");
  EXPECT_EQ(body["errors"]["name"][0].stringValue(), "too short");
  EXPECT_EQ(body["errors"]["age"][0].stringValue(), "18");
  EXPECT_EQ(body["errors"].dictionary()->begin()->key, "name");
  EXPECT_EQ(*body["message"].string(), "Bad");
  EXPECT_TRUE(body["none"][5]["deeper"].isNull());
  EXPECT_EQ(body["errors"].stringValue(), "");
  EXPECT_EQ(body["ok"].stringValue(), "true");
  EXPECT_EQ(JSON{std::nan("")}.stringValue(), "");
  EXPECT_EQ(body["n"].stringValue(), "1.5");
  EXPECT_EQ(body["n"].integer(), std::nullopt);
  EXPECT_EQ(body["ok"].real(), std::nullopt);
  EXPECT_EQ(body["message"].array(), nullptr);
  EXPECT_EQ(JSON{2.0}.integer(), 2);
  EXPECT_EQ(JSON{-1}.unsignedInteger(), std::nullopt);
  EXPECT_EQ(JSON{UINT64_MAX}.integer(), std::nullopt);
}

// Catches numbers that are equal in one form and different in another.
TEST(JSONTests, NumbersAreEqualWhenTheyMeanTheSame) {
  EXPECT_EQ(JSON{1}, JSON{1.0});
  EXPECT_EQ(JSON{9'223'372'036'854'775'808U}, JSON{9'223'372'036'854'775'808.0});
  EXPECT_NE(JSON{INT64_MAX}, JSON{9'223'372'036'854'775'808.0});
  EXPECT_NE(JSON{1}, JSON{1.5});
  EXPECT_NE(JSON{1.5}, JSON{1});
  EXPECT_NE(JSON{1}, JSON{true});
  EXPECT_EQ(JSON::parse(R"({"a":1,"b":[2]})"), JSON::parse(R"({"b":[2.0],"a":1})"));
}

}  // namespace
}  // namespace ombrix::platform
