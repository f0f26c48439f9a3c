#include "OmbrixCore/Extensions/Decoding/NestedDecoder.hpp"

#include <gtest/gtest.h>

#include <any>
#include <map>
#include <string>
#include <vector>

#include "OmbrixCore/Extensions/Decoding/DecoderUpdatable.hpp"
#include "OmbrixCore/Extensions/Decoding/DecodingFormat.hpp"

namespace ombrix {
namespace {

enum class Keys { run, other };

}  // namespace

template <>
struct platform::RawValues<Keys> {
  static constexpr std::pair<Keys, std::string_view> table[] = {{Keys::run, "run"},
                                                                {Keys::other, "other"}};
};

namespace {

using platform::Data;
using platform::dataFrom;
using platform::Decoder;
using platform::DecodingError;
using platform::describe;

struct Descent {
  std::string name = "old name";
  std::int64_t drop = 1;
  std::string path;
  int info = 0;

  void update(Decoder& decoder) {
    path = describe(decoder.codingPath());
    if (const auto found = decoder.userInfo().find("info"); found != decoder.userInfo().end()) {
      info = std::any_cast<int>(found->second);
    }
    const auto fields = decoder.container();
    name = fields.decode<std::string>("name");
    drop = fields.decode<std::int64_t>("drop");
  }
};

std::shared_ptr<Decoder> jsonDecoder(std::string_view text) {
  return decoderFor(platform::JSONDecoder{}, platform::bytesOf(text));
}

// Catches an update that makes the value anew, extends the path, or loses the user info.
TEST(NestedDecoderTests, AValueUpdatesItselfFromOneEntry) {
  const auto outer = jsonDecoder(R"({"day":{"run":{"name":"new","drop":500}}})");
  const auto day = outer->container().nestedContainer<Keys>("day");
  Descent run;
  update(day, run, Keys::run, {{"info", 7}});
  EXPECT_EQ(run.name, "new");
  EXPECT_EQ(run.drop, 500);
  EXPECT_EQ(run.path, "day");
  EXPECT_EQ(run.info, 7);
}

// Catches fields put back after a late failure, and errors that are wrapped on their way.
TEST(NestedDecoderTests, AFailureKeepsWhatWasReadBeforeIt) {
  const auto day = jsonDecoder(R"({"run":{"name":"new","drop":"x"}})")->container<Keys>();
  Descent run;
  try {
    update(day, run, Keys::run);
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), DecodingError::Kind::typeMismatch);
    EXPECT_EQ(describe(error.codingPath()), "run.drop");
  }
  EXPECT_EQ(run.name, "new");
  EXPECT_EQ(run.drop, 1);

  Descent untouched;
  try {
    update(day, untouched, Keys::other);
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), DecodingError::Kind::keyNotFound);
    EXPECT_STREQ(error.what(), "The key \"other\" is missing at the top.");
  }
  EXPECT_EQ(untouched.name, "old name");
}

// Catches a kind of container that reads something else than the entry.
TEST(NestedDecoderTests, EveryContainerReadsTheEntry) {
  const auto top = jsonDecoder(R"({"list":[1,2],"text":"a","nothing":null,"map":{"x":1}})");
  const auto entries = top->container();
  const auto nested = [&](const std::string& key) {
    return std::make_shared<NestedDecoder<std::string>>(entries, key, platform::CodingUserInfo{});
  };
  EXPECT_EQ(nested("list")->unkeyedContainer()->count(), 2U);
  EXPECT_EQ(nested("map")->container().decode<int>("x"), 1);
  const auto text = nested("text")->singleValueContainer();
  EXPECT_EQ(text->decode<std::string>(), "a");
  EXPECT_FALSE(text->decodeNil());
  EXPECT_TRUE(text->codingPath().empty());
  EXPECT_TRUE(nested("nothing")->singleValueContainer()->decodeNil());
  const auto list = nested("list")->singleValueContainer();
  EXPECT_EQ(list->decode<std::vector<int>>(), (std::vector<int>{1, 2}));
  EXPECT_EQ((platform::decodeFrom<std::map<std::string, int>>(*nested("map"))),
            (std::map<std::string, int>{{"x", 1}}));
}

// Catches a decoder that ends with the call it was taken from, in either format.
TEST(NestedDecoderTests, TheDecoderOfADocumentMayBeKept) {
  std::shared_ptr<Decoder> kept;
  {
    platform::PropertyListDecoder format;
    format.userInfo["info"] = 3;
    const Data data = dataFrom("<plist><dict><key>a</key><integer>5</integer></dict></plist>");
    kept = decoderFor(format, data);
  }
  EXPECT_EQ(kept->container().decode<int>("a"), 5);
  EXPECT_EQ(std::any_cast<int>(kept->userInfo().at("info")), 3);
  EXPECT_THROW(jsonDecoder("no JSON"), DecodingError);
  EXPECT_THROW(decoderFor(platform::PropertyListDecoder{}, dataFrom("bplist00")), DecodingError);
}

}  // namespace
}  // namespace ombrix
