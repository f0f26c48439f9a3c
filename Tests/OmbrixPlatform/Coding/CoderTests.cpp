#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <limits>
#include <random>

#include "CodableSamples.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"
#include "Tests/Support/Items.hpp"

namespace ombrix::platform {
namespace {

using ::testing::HasSubstr;

/// Keeps the decoder it is handed, and goes through the interface all the way.
template <class T>
struct ThroughInterface {
  T value;

  void encode(Encoder& encoder) const { encoder.singleValueContainer()->encode(value); }
  static ThroughInterface decode(Decoder& decoder) {
    return {decoder.singleValueContainer()->decode<T>()};
  }
};

// Catches a kind of member that one format, or the interface beside the fast path, gets wrong.
TEST(CoderTests, EveryKindOfMemberComesBackOnEveryPath) {
  const Day day = sampleDay();
  const ThroughInterface<Day> wrapped{day};

  const Data json = JSONEncoder{}.encode(day);
  EXPECT_EQ(textOf(JSONEncoder{}.encode(wrapped)), textOf(json));
  EXPECT_EQ(JSONDecoder{}.decode<Day>(json), day);
  EXPECT_EQ(JSONDecoder{}.decode<ThroughInterface<Day>>(json).value, day);

  const Data plist = PropertyListEncoder{}.encode(day);
  const PropertyList tree = PropertyListSerialization::read(plist);
  const Data xml = PropertyListSerialization::write(
      [&] {
        PropertyList copy = tree;
        copy.dictionary()->set("title", "plain");  // XML has no control characters
        return copy;
      }(),
      PropertyListFormat::xml);
  Day plain = day;
  plain.title = "plain";
  plain.when = dateSince1970(1'700'000'000);  // XML has whole seconds
  EXPECT_EQ(PropertyListSerialization::read(PropertyListEncoder{}.encode(wrapped)), tree);
  EXPECT_EQ(PropertyListDecoder{}.decode<Day>(plist), day);
  EXPECT_EQ(PropertyListDecoder{}.decode<ThroughInterface<Day>>(plist).value, day);
  EXPECT_EQ(PropertyListDecoder{}.decode<Day>(tree), day);
  EXPECT_EQ(PropertyListDecoder{}.decode<Day>(xml), plain);
}

// Catches keys out of order, optional members written as null, and forms that others depend on.
TEST(CoderTests, JSONHasTheExactForm) {
  Day day = sampleDay();
  day.title = "a\"\\\n\x01/é";
  EXPECT_EQ(textOf(JSONEncoder{}.encode(day)),
            R"({"open":true,"small":-128,"large":-9223372036854775808,)"
            R"("largest":18446744073709551615,"speed":0.1,"altitude":2345.678,)"
            R"("title":"a\"\\\n\u0001/é","when":721692800.5,"bytes":"Ynl0ZXM=",)"
            R"("link":"https://ombrix.example/a?b=c%20d","piste":"black","snow":7,)"
            R"("lifts":[{"name":"Gondola","speed":6.5},{"name":"Rope"}],)"
            R"("flags":[true,false,true],"pair":[1,-2],"scores":{"a":[1,2],"empty":[]},)"
            R"("numbered":{"-1":"minus","10":"ten"},"gaps":[1,null,3],)"
            R"("events":[{"rest":{}},{"lift":{"_0":{"name":"Chair","speed":2}}},)"
            R"({"fall":{"_0":3}}],"point":[1.5,-2]})");
}

// Catches a fast path that depends on the order of keys, or trips over what it does not know.
TEST(CoderTests, KeysMayComeInAnyOrderAndUnknownOnesArePassedOver) {
  const auto lift = [](std::string_view json) { return JSONDecoder{}.decode<Lift>(bytesOf(json)); };
  const Lift expected{"Rope", 2.5};
  EXPECT_EQ(lift(R"({"speed":2.5,"name":"Rope"})"), expected);
  EXPECT_EQ(lift(R"( { "x" : [ 1, {"name":[]} , "]" ] , "speed" : 2.5 , "name" : "Rope" } )"),
            expected);
  EXPECT_EQ(lift(R"({"n\u0061me":"\u0052ope","speed":25e-1})"), expected);
  EXPECT_EQ(lift(R"({"name":"Rope","speed":null})"), (Lift{"Rope", std::nullopt}));
}

/// The form of what a document is decoded as, the same on both paths; "refused" for an error.
template <class T>
std::string read(std::string_view json) {
  const auto form = [](auto decode) -> std::string {
    try {
      return std::string(textOf(JSONEncoder{}.encode(decode())));
    } catch (const DecodingError&) {
      return "refused";
    }
  };
  const std::string direct = form([&] { return JSONDecoder{}.decode<T>(bytesOf(json)); });
  EXPECT_EQ(direct,
            form([&] { return JSONDecoder{}.decode<ThroughInterface<T>>(bytesOf(json)).value; }))
      << json;
  return direct;
}

struct Trip {
  Lift lift;
  std::optional<Point> point;
  static constexpr auto kCodingFields =
      codingFields(field("lift", &Trip::lift), field("point", &Trip::point));
};

// Catches a fast path on which the first of equal keys shines through, or fails though another
// counts, and what nobody reads that fails.
TEST(CoderTests, OfEqualKeysTheLastCountsWhateverTheOthersHold) {
  using Scores = std::map<std::string, std::vector<int>>;
  const std::string rope = R"({"name":"Rope","speed":2.5})";
  EXPECT_EQ(read<Lift>(R"({"name":"a","speed":1,"speed":2.5,"y":null,"name":"Rope"})"), rope);
  EXPECT_EQ(read<Lift>(R"({"name":7,"speed":2.5,"n\u0061me":"Rope"})"), rope);
  EXPECT_EQ(read<Lift>(R"({"name":"Rope","speed":1,"speed":null})"), R"({"name":"Rope"})");
  EXPECT_EQ(read<Lift>(R"({"name":"Rope","name":null})"), "refused");
  EXPECT_EQ(read<Lift>(R"({"x":1e400,"name":"Rope","x":[1e999],"speed":2.5})"), rope);
  EXPECT_EQ(read<Lift>(R"({"name":"Rope","speed":1e400})"), "refused");
  EXPECT_EQ(read<Lift>(R"({"name":"Rope","speed":1e400,"speed":2.5})"), rope);
  EXPECT_EQ(read<Lift>(R"({"name":7,"name":"Rope"}})"), "refused");
  EXPECT_EQ(read<Trip>(R"({"lift":{"name":"a","speed":1},"point":[1],"lift":{"name":"b"},)"
                       R"("point":[1,2]})"),
            R"({"lift":{"name":"b"},"point":[1,2]})");
  EXPECT_EQ(read<Scores>(R"({"a":["x"],"b":[1],"a":[2]})"), R"({"a":[2],"b":[1]})");
  EXPECT_EQ(read<Event>(R"({"fall":{"_0":"x","_0":1},"fall":{"_0":2}})"), R"({"fall":{"_0":2}})");
  EXPECT_EQ(read<Event>(R"({"fall":{"_0":1},"rest":{}})"), "refused");
}

struct Season {
  std::string name;
  int days = 0;
  std::string unit;
  std::optional<double> top;
  friend bool operator==(const Season&, const Season&) = default;
  static constexpr auto kCodingFields =
      codingFields(field("name", &Season::name), field("days", &Season::days, 7),
                   field("unit", &Season::unit, "m"), field("top", &Season::top, 1.5));
};

// Catches a field that was added later and makes what is stored unreadable, damage that passes for
// a missing field, and an empty value that comes back as the default.
TEST(CoderTests, AFieldWithADefaultMayBeMissing) {
  EXPECT_EQ(read<Season>(R"({"name":"a"})"), R"({"name":"a","days":7,"unit":"m","top":1.5})");
  const std::string empty = R"({"name":"a","days":2,"unit":"ft","top":null})";
  EXPECT_EQ(read<Season>(empty), empty);
  for (const char* bad : {R"({"days":1})", R"({"name":"a","days":null})",
                          R"({"name":"a","days":"2"})", R"({"name":"a","unit":5})"}) {
    EXPECT_EQ(read<Season>(bad), "refused") << bad;
  }
  const Season season{"a", 2, "ft", std::nullopt};
  const Data plist = PropertyListEncoder{}.encode(season);
  EXPECT_EQ(PropertyListDecoder{}.decode<Season>(plist), season);
  EXPECT_EQ(PropertyListDecoder{}.decode<ThroughInterface<Season>>(plist).value, season);
}

template <class T>
std::string failure(std::string_view json, DecodingError::Kind kind) {
  std::string messages;
  const auto attempt = [&](auto decode) {
    try {
      decode();
      ADD_FAILURE() << json;
    } catch (const DecodingError& error) {
      EXPECT_EQ(error.kind(), kind) << error.what();
      if (!messages.empty() && messages != error.what()) messages += " / ";
      if (messages != error.what()) messages += error.what();
    }
  };
  attempt([&] { static_cast<void>(JSONDecoder{}.decode<T>(bytesOf(json))); });
  attempt([&] { static_cast<void>(JSONDecoder{}.decode<ThroughInterface<T>>(bytesOf(json))); });
  return messages;
}

// Catches an error without its place, and a fast path that reports other errors than the interface.
TEST(CoderTests, ErrorsSayWhatIsWrongAndWhere) {
  using Kind = DecodingError::Kind;
  using Lifts = std::vector<Lift>;
  using Numbers = std::map<std::string, std::vector<std::int8_t>>;
  EXPECT_EQ(failure<Lifts>(R"([{"name":"a"},{"speed":1}])", Kind::keyNotFound),
            R"(The key "name" is missing at "[1]".)");
  EXPECT_EQ(failure<Lifts>(R"([{"name":7}])", Kind::typeMismatch),
            R"(Expected a text, but found a number at "[0].name".)");
  EXPECT_EQ(failure<Lifts>(R"([{"name":null}])", Kind::valueNotFound),
            R"(Expected a text, but found no value at "[0].name".)");
  EXPECT_EQ(failure<Lifts>(R"({})", Kind::typeMismatch),
            "Expected an array, but found a dictionary at the top.");
  // Nothing of the document stands in a message: it may be a secret, and messages are logged.
  EXPECT_EQ(failure<Numbers>(R"({"a":[1,128]})", Kind::dataCorrupted),
            R"(The number does not fit at "(a key of 1 bytes)[1]".)");
  using Nested = std::map<std::string, std::map<int, Lift>>;
  EXPECT_EQ(failure<Nested>(R"({"se\u0063ret":{"7":{"name":7}}})", Kind::typeMismatch),
            "Expected a text, but found a number at "
            "\"(a key of 6 bytes).(a key of 1 bytes).name\".");
  EXPECT_EQ(failure<Nested>(R"({"secret":{"x7":{}}})", Kind::dataCorrupted),
            "A key is not an integer that fits at \"(a key of 6 bytes).(a key of 2 bytes)\".");
  EXPECT_EQ(failure<Piste>(R"("green")", Kind::dataCorrupted),
            "No case has the raw value (a text of 5 bytes) at the top.");
  EXPECT_EQ(failure<Snow>("300", Kind::dataCorrupted),
            "No case has the raw value (an integer) at the top.");
  EXPECT_EQ(failure<std::int64_t>("1.5", Kind::dataCorrupted),
            "The number does not fit at the top.");
  EXPECT_EQ(failure<Event>(R"({"walk":{}})", Kind::dataCorrupted),
            "Not exactly one of the known cases is named at the top.");
  using Two = std::array<int, 2>;
  failure<Two>("[1]", Kind::valueNotFound);
  failure<Two>("[1,2,3]", Kind::dataCorrupted);
  failure<URL>(R"("a b")", Kind::dataCorrupted);
  failure<Data>(R"("=")", Kind::dataCorrupted);
  failure<Lift>("", Kind::dataCorrupted);
  failure<Lift>(R"({"name":"a"} x)", Kind::dataCorrupted);

  try {
    using Named = std::map<std::string, Lift>;
    const std::map<std::string, std::map<std::string, int>> lifts{{"secret", {{"name", 7}}}};
    static_cast<void>(PropertyListDecoder{}.decode<Named>(PropertyListEncoder{}.encode(lifts)));
    ADD_FAILURE();
  } catch (const DecodingError& error) {
    EXPECT_STREQ(error.what(),
                 R"(Expected a text, but found an integer at "(a key of 6 bytes).name".)");
    EXPECT_EQ(error.codingPath().front().stringValue, "secret");
  }
  const Data damaged = dataFrom("bplist00 damaged, but long enough to have a trailer, is it not?");
  EXPECT_THROW(static_cast<void>(PropertyListDecoder{}.decode<Lift>(damaged)), DecodingError);
  EXPECT_THROW(static_cast<void>(PropertyListDecoder{}.decode<Lift>(DataView{})), DecodingError);
}

// Catches documents that JSON does not allow but a lenient reader takes.
TEST(CoderTests, MalformedJSONIsRefusedByDecoderAndValueAlike) {
  constexpr std::string_view kBad =
      R"(| |[1,]|[,1]|[1 2]|[1|{"a"}|{"a":}|{"a":1,}|{a:1}|01|-|1.|.5|1e|+1|1x|nul|nulls|truefalse)"
      R"(|"\x"|"\u12"|"\ud800"|"\ud800\u0041"|"\udc00"|"a|[1]]|{"a":1}}|"a""b"|"a"b|["a":1]|{"a",1})"
      "|NaN|\"\n\"|\"\xFF\"";
  for (const auto& bad : testing::itemsOf(kBad, '|')) {
    EXPECT_THROW(static_cast<void>(JSON::parse(bad)), JSONError) << bad;
    const std::string tail = "," + std::string(40, ' ') + "\"name\":\"x\"}";
    for (const std::string_view key : {"unknown", "speed"}) {
      const std::string inside = "{\"" + std::string(key) + "\":" + bad + tail;
      EXPECT_THROW(static_cast<void>(JSONDecoder{}.decode<Lift>(bytesOf(inside))), DecodingError)
          << inside;
    }
  }
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_NO_THROW(static_cast<void>(JSON::parse(nested(512))));
  EXPECT_THROW(static_cast<void>(JSON::parse(nested(513))), JSONError);
  EXPECT_THROW(static_cast<void>(JSON::parse(nested(1'000'000))), JSONError);
}

// Catches numbers that lose a bit on the way, at the edges where fast methods stop being exact.
TEST(CoderTests, NumbersAreExact) {
  const auto real = [](std::string_view text) {
    // In an array with more behind it, and alone: the two are read in different ways.
    const std::string padded = "[" + std::string(text) + "," + std::string(40, ' ') + "0]";
    const auto inside = JSONDecoder{}.decode<std::vector<double>>(bytesOf(padded)).front();
    const double alone = JSONDecoder{}.decode<double>(bytesOf(text));
    EXPECT_EQ(inside, alone) << text;
    EXPECT_EQ(std::signbit(inside), std::signbit(alone)) << text;
    return alone;
  };
  const std::string tiny = "0." + std::string(340, '0') + "1";
  const struct {
    std::string_view text;
    double value;
  } cases[] = {{"0.1", 0.1},
               {"-0", -0.0},
               {"9007199254740993", 9007199254740992.0},
               {"9007199254740993.0", 9007199254740992.0},
               {"123456789012345678901234567890", 123456789012345678901234567890.0},
               {"1e22", 1e22},
               {"1e23", 1e23},
               {"8.5e-23", 8.5e-23},
               {"2.2250738585072011e-308", 2.2250738585072011e-308},
               {"4.9e-324", 4.9e-324},
               {"1e-400", 0.0},
               {"0e27", 0.0},
               {"0e999999999999", 0.0},
               {"1.7976931348623157e308", 1.7976931348623157e308},
               {"0.000000000000000000000000000001", 1e-30},
               {tiny, 0.0}};
  for (const auto& [text, value] : cases) {
    EXPECT_EQ(real(text), value) << text;
    EXPECT_EQ(std::signbit(real(text)), std::signbit(value)) << text;
    EXPECT_EQ(JSON::parse(text).real(), value) << text;
  }
  for (const double value : {0.1, -0.0, 1e21, 5e-324, 1.7976931348623157e308, 1e5, 123456.0, 1e15,
                             9007199254740992.0, 46.123456789, -1.0 / 3}) {
    const Data form = JSONEncoder{}.encode(value);
    EXPECT_EQ(real(textOf(form)), value) << textOf(form);
    EXPECT_EQ(std::signbit(real(textOf(form))), std::signbit(value));
  }
  EXPECT_EQ(textOf(JSONEncoder{}.encode(100'000.0)), "100000");

  // The fast ways to read and write must give what the standard library gives.
  std::mt19937_64 random(1);
  for (int i = 0; i < 20'000; ++i) {
    const int digits = static_cast<int>(random() % 13);
    const double scale = std::pow(10.0, digits);
    double value = static_cast<double>(random() >> (10 + random() % 50)) / scale;
    if (i % 3 == 0) value = std::nextafter(value, 0.0);
    if (value == std::trunc(value)) continue;
    char form[32];
    const std::string_view shortest{form, std::to_chars(form, form + sizeof form, value).ptr};
    ASSERT_EQ(textOf(JSONEncoder{}.encode(value)), shortest);
    ASSERT_EQ(real(shortest), value) << shortest;
  }
  EXPECT_EQ(JSONDecoder{}.decode<std::uint64_t>(bytesOf("18446744073709551615")), UINT64_MAX);
  EXPECT_EQ(JSONDecoder{}.decode<std::int64_t>(bytesOf("-9223372036854775808")), INT64_MIN);
  EXPECT_EQ(JSONDecoder{}.decode<std::int64_t>(bytesOf("5.0e2")), 500);
  for (const std::string_view bad : {"18446744073709551616", "-1", "-0.5"}) {
    EXPECT_THROW(static_cast<void>(JSONDecoder{}.decode<std::uint64_t>(bytesOf(bad))),
                 DecodingError);
  }
  EXPECT_THROW(real("1e999"), DecodingError);
  EXPECT_THROW(static_cast<void>(JSON::parse("-1e999")), JSONError);
  EXPECT_THROW(static_cast<void>(JSONEncoder{}.encode(std::nan(""))), EncodingError);
}

// Catches a strategy that only one direction, or only one path, follows.
TEST(CoderTests, OptionsHoldInBothDirections) {
  const Date date = dateSince1970(1'700'000'000);
  const struct {
    JSONDateStrategy strategy;
    std::string_view form;
  } cases[] = {{JSONDateStrategy::deferredToDate, "721692800"},
               {JSONDateStrategy::secondsSince1970, "1700000000"},
               {JSONDateStrategy::millisecondsSince1970, "1700000000000"},
               {JSONDateStrategy::iso8601, "\"2023-11-14T22:13:20Z\""}};
  for (const auto& [strategy, form] : cases) {
    JSONEncoder encoder;
    JSONDecoder decoder;
    encoder.dateStrategy = decoder.dateStrategy = strategy;
    EXPECT_EQ(textOf(encoder.encode(date)), form);
    EXPECT_EQ(textOf(encoder.encode(ThroughInterface<Date>{date})), form);
    EXPECT_EQ(decoder.decode<Date>(bytesOf(form)), date);
    EXPECT_EQ(decoder.decode<ThroughInterface<Date>>(bytesOf(form)).value, date);
  }
  JSONEncoder encoder;
  JSONDecoder decoder;
  encoder.nonConformingFloats = decoder.nonConformingFloats = {"inf", "-inf", "nan"};
  const Data form = encoder.encode(-std::numeric_limits<double>::infinity());
  EXPECT_EQ(textOf(form), "\"-inf\"");
  EXPECT_EQ(decoder.decode<double>(form), -std::numeric_limits<double>::infinity());
}

struct Report {
  OrderedDictionary<std::vector<std::string>> errors;
  JSON extra;

  static constexpr auto kCodingFields =
      codingFields(field("errors", &Report::errors), field("ex\\n", &Report::extra));
};

// Catches a dictionary that loses its order, and a field's name taken for an escape.
TEST(CoderTests, OrderedDictionariesAndJSONValuesMayBeFields) {
  const std::string_view text = R"({"errors":{"z":["1"],"a":[]},"ex\\n":{"b":1,"a":[null]}})";
  const auto report = JSONDecoder{}.decode<Report>(bytesOf(text));
  EXPECT_EQ(report.errors.begin()->key, "z");
  EXPECT_EQ(report.extra["b"].integer(), 1);
  EXPECT_EQ(textOf(JSONEncoder{}.encode(report)), text);
  EXPECT_THROW(
      static_cast<void>(JSONDecoder{}.decode<Report>(bytesOf(R"({"errors":{},"ex\n":1})"))),
      DecodingError);
}

struct Archive {
  std::string name;
  PropertyList content;
  friend bool operator==(const Archive&, const Archive&) = default;
  static constexpr auto kCodingFields =
      codingFields(field("name", &Archive::name), field("content", &Archive::content));
};

// Catches a value of the format that one way of decoding does not take as a field.
TEST(CoderTests, PropertyListsMayBeFields) {
  const Archive archive{"a", PropertyList::Dictionary{{"id", PropertyList::UID{7}},
                                                      {"list", PropertyList::Array{1, "x", 2.5}}}};
  const Data binary = PropertyListEncoder{}.encode(archive);
  const PropertyList tree = PropertyListSerialization::read(binary);
  const ThroughInterface<Archive> wrapped{archive};
  EXPECT_EQ(PropertyListDecoder{}.decode<Archive>(binary), archive);
  EXPECT_EQ(PropertyListDecoder{}.decode<ThroughInterface<Archive>>(binary).value, archive);
  EXPECT_EQ(PropertyListDecoder{}.decode<Archive>(tree), archive);
  EXPECT_EQ(PropertyListSerialization::read(PropertyListEncoder{}.encode(wrapped)), tree);
  const Data xml = PropertyListSerialization::write(tree, PropertyListFormat::xml);
  EXPECT_EQ(PropertyListDecoder{}.decode<Archive>(xml).content.find("list")->array()->size(), 3U);
}

// Catches an encoder that writes a damaged document, and an error without its place.
TEST(CoderTests, WhatCannotBeEncodedIsRefusedWithItsPlace) {
  const std::map<std::string, std::vector<double>> bad{{"a", {1, INFINITY}}};
  try {
    static_cast<void>(JSONEncoder{}.encode(bad));
    ADD_FAILURE();
  } catch (const EncodingError& error) {
    EXPECT_THAT(error.what(), HasSubstr("at \"a[1]\""));
  }
  const std::vector<std::string> text{"\xC3("};
  EXPECT_THROW(static_cast<void>(JSONEncoder{}.encode(text)), EncodingError);
  EXPECT_THROW(static_cast<void>(PropertyListEncoder{}.encode(text)), EncodingError);
}

// Catches containers that lose their place when they are filled in turns.
TEST(CoderTests, TheInterfaceGivesContainersPathsAndUserInfo) {
  struct Probe {
    std::string path;
    int info = 0;
    std::vector<std::string> keys;

    void encode(Encoder& encoder) const {
      auto outer = encoder.container();
      auto first = outer.nestedContainer("first");
      const auto second = outer.nestedUnkeyedContainer("second");
      second->encode(1);
      first.encode("x", "text");
      second->encodeNil();
      first.encodeNil("null");
      EXPECT_THROW(static_cast<void>(encoder.unkeyedContainer()), EncodingError);
    }
    static Probe decode(Decoder& decoder) {
      const auto outer = decoder.container();
      const auto first = outer.nestedContainer("first");
      const auto second = outer.nestedUnkeyedContainer("second");
      EXPECT_EQ(second->count(), 2U);
      EXPECT_FALSE(second->decodeNil());
      EXPECT_EQ(second->decode<int>(), 1);
      EXPECT_EQ(second->decodeIfPresent<int>(), std::nullopt);
      EXPECT_TRUE(second->isAtEnd());
      EXPECT_THROW(second->decode<int>(), DecodingError);
      EXPECT_TRUE(first.decodeNil("null"));
      EXPECT_EQ(first.decodeIfPresent<int>("absent"), std::nullopt);
      return {describe(first.codingPath()), std::any_cast<int>(decoder.userInfo().at("info")),
              first.allKeys()};
    }
  };
  JSONDecoder decoder;
  decoder.userInfo["info"] = 5;
  const std::vector<Probe> probes(1);
  const Data json = JSONEncoder{}.encode(probes);
  EXPECT_EQ(textOf(json), R"([{"first":{"text":"x","null":null},"second":[1,null]}])");
  const Probe read = decoder.decode<std::vector<Probe>>(json).front();
  EXPECT_EQ(read.path, "[0].first");
  EXPECT_EQ(read.info, 5);
  EXPECT_EQ(read.keys, (std::vector<std::string>{"text", "null"}));
}

}  // namespace
}  // namespace ombrix::platform
