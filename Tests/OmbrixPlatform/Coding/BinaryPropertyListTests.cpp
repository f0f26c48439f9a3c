#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <numeric>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "CodableSamples.hpp"
#include "OmbrixPlatform/Coding/PropertyListDecoder.hpp"
#include "OmbrixPlatform/Coding/PropertyListEncoder.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListReader.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListWriter.hpp"

namespace ombrix::platform {
namespace {

using Array = PropertyList::Array;

std::string bigEndian(std::uint64_t value, std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = size; i > 0; --i, value >>= 8) bytes[i - 1] = static_cast<char>(value);
  return bytes;
}

/// A file of objects given byte by byte, the first on top, as another writer may lay it out.
Data fileOf(const std::vector<std::string>& objects, std::size_t offsetSize,
            std::size_t referenceSize) {
  std::string file = "bplist00";
  std::string table;
  for (const std::string& object : objects) {
    table += bigEndian(file.size(), offsetSize);
    file += object;
  }
  const std::size_t tableOffset = file.size();
  file += table + std::string(6, '\0') + bigEndian(offsetSize, 1) + bigEndian(referenceSize, 1) +
          bigEndian(objects.size(), 8) + bigEndian(0, 8) + bigEndian(tableOffset, 8);
  return dataFrom(file);
}

std::string bytes(std::initializer_list<unsigned> values) {
  std::string text;
  for (const unsigned value : values) text.push_back(static_cast<char>(value));
  return text;
}

// Catches forms that our own writer never makes but others do.
TEST(BinaryPropertyListTests, FormsOfOtherWritersAreRead) {
  const struct {
    std::string object;
    PropertyList value;
  } cases[] = {
      {bytes({0x10, 0xFF}), 255},
      {bytes({0x11, 0xFF, 0xFE}), 65'534},
      {bytes({0x12, 0xFF, 0xFF, 0xFF, 0xFF}), 4'294'967'295U},
      {bytes({0x13}) + std::string(8, '\xFF'), -1},
      {bytes({0x14}) + std::string(16, '\xFF'), -1},
      {bytes({0x14}) + std::string(8, '\0') + std::string(8, '\xFF'), UINT64_MAX},
      {bytes({0x22, 0xC0, 0x20, 0x00, 0x00}), -2.5},
      {bytes({0x22, 0x7F, 0x80, 0x00, 0x00}), std::numeric_limits<double>::infinity()},
      {bytes({0x33}) + std::string(8, '\0'), dateSinceReferenceDate(0)},
      {bytes({0x5F, 0x10, 0x03}) + "abc", "abc"},
      {bytes({0x5F, 0x13}) + bigEndian(1, 8) + "a", "a"},
      {bytes({0x53}) + "\xE6\x97\xA5", "日"},
      {bytes({0x62, 0xD8, 0x3C, 0xDF, 0xBF}), "\U0001F3BF"},
      {bytes({0x61, 0x00, 0x41}), "A"},
      {bytes({0x81, 0x01, 0x00}), PropertyList::UID{256}},
      {bytes({0x40}), Data{}},
      {bytes({0xB0}), Array{}},
      {bytes({0xC0}), Array{}},
  };
  for (const std::size_t size : {1U, 2U, 3U, 8U}) {
    for (const auto& [object, value] : cases) {
      EXPECT_EQ(PropertyListSerialization::read(fileOf({object}, size, size)), value);
      const Data nested =
          fileOf({bytes({0xA2}) + bigEndian(1, size) + bigEndian(1, size), object}, size, size);
      EXPECT_EQ(PropertyListSerialization::read(nested), (PropertyList{Array{value, value}}));
    }
  }
}

// Catches references and offsets that outgrow the width they are written with.
TEST(BinaryPropertyListTests, WidthsGrowWithTheFile) {
  for (const int count : {200, 253, 254, 255, 256, 300, 65'533, 65'535, 66'000}) {
    std::vector<int> numbers;
    std::vector<std::string> texts;
    for (int i = 0; i < count; ++i) {
      if (count < 1000) texts.push_back(std::string(400, 'x') + std::to_string(i));
      numbers.push_back(i);
    }
    EXPECT_EQ(PropertyListDecoder{}.decode<std::vector<int>>(PropertyListEncoder{}.encode(numbers)),
              numbers);
    EXPECT_EQ(
        PropertyListDecoder{}.decode<std::vector<std::string>>(PropertyListEncoder{}.encode(texts)),
        texts);
  }
}

// Catches numbers of different kinds with the same bits taken for one, and texts for data.
TEST(BinaryPropertyListTests, OnlyEqualValuesShareAnObject) {
  const Array values{0,
                     0.0,
                     dateSinceReferenceDate(0),
                     false,
                     "",
                     Data{},
                     -0.0,
                     1,
                     1.0,
                     true,
                     "\x01",
                     dataFrom("\x01"),
                     "A",
                     "Ä",
                     65'536,
                     1,
                     1.0,
                     "A",
                     dataFrom("A")};
  const PropertyList read =
      PropertyListSerialization::read(PropertyListSerialization::write(values));
  ASSERT_EQ(read.array()->size(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ((*read.array())[i].kind(), values[i].kind()) << i;
    EXPECT_EQ((*read.array())[i], values[i]) << i;
  }
  EXPECT_TRUE(std::signbit(*(*read.array())[6].real()));
}

// Catches numbers that convert silently where the other kind is stored.
TEST(BinaryPropertyListTests, NumbersConvertOnlyWhereNothingIsLost) {
  const auto decode = []<class T>(T*, const PropertyList& value) -> std::optional<T> {
    const Data file = PropertyListSerialization::write(value);
    const auto attempt = [](auto run) -> std::optional<T> {
      try {
        return run();
      } catch (const DecodingError&) {
        return std::nullopt;
      }
    };
    const auto fast = attempt([&] { return PropertyListDecoder{}.decode<T>(file); });
    EXPECT_EQ(attempt([&] { return PropertyListDecoder{}.decode<T>(value); }), fast);
    return fast;
  };
  std::int64_t* integer = nullptr;
  std::uint64_t* unsignedInteger = nullptr;
  std::uint8_t* byte = nullptr;
  double* real = nullptr;
  bool* truth = nullptr;
  EXPECT_EQ(decode(integer, 5.0), 5);
  EXPECT_EQ(decode(integer, 5.5), std::nullopt);
  EXPECT_EQ(decode(integer, 0x1p63), std::nullopt);
  EXPECT_EQ(decode(integer, -0x1p63), INT64_MIN);
  EXPECT_EQ(decode(integer, UINT64_MAX), std::nullopt);
  EXPECT_EQ(decode(unsignedInteger, UINT64_MAX), UINT64_MAX);
  EXPECT_EQ(decode(unsignedInteger, -1), std::nullopt);
  EXPECT_EQ(decode(unsignedInteger, 0x1p63), std::uint64_t{1} << 63);
  EXPECT_EQ(decode(byte, 255), 255);
  EXPECT_EQ(decode(byte, 256), std::nullopt);
  EXPECT_EQ(decode(real, 3), 3.0);
  EXPECT_EQ(decode(real, UINT64_MAX), 0x1p64);
  EXPECT_EQ(decode(real, true), std::nullopt);
  EXPECT_EQ(decode(truth, 1), std::nullopt);
  EXPECT_EQ(decode(integer, "5"), std::nullopt);
}

/// A type of which a small object makes much.
struct Wide {
  std::array<char, 1000> unread{};
  std::optional<std::string> name;
  bool operator==(const Wide&) const = default;
  static constexpr auto kCodingFields = codingFields(field("name", &Wide::name));
};

/// Why a file is refused; nothing where it is not.
template <class T>
std::optional<DecodingError::Kind> refusalOf(const Data& file) {
  try {
    static_cast<void>(PropertyListDecoder{}.decode<T>(file));
    return std::nullopt;
  } catch (const DecodingError& error) {
    return error.kind();
  }
}

/// A value that codes itself, by one text.
struct Label {
  std::string text;
  static Label decode(Decoder& decoder) {
    return {decoder.singleValueContainer()->decode<std::string>()};
  }
  void encode(Encoder& encoder) const { encoder.singleValueContainer()->encode(text); }
  bool operator==(const Label&) const = default;
};

// Catches work or memory out of proportion to a file whose many references lead to one object, in
// whatever way a type goes through them: were it not bounded, this test would not end.
TEST(BinaryPropertyListTests, RepeatedReferencesAreBounded) {
  const auto count = bytes({0x11, 0x27, 0x10});  // 10,000
  const auto references = [](std::uint64_t object) {
    std::string all;
    for (int i = 0; i < 10'000; ++i) all += bigEndian(object, 2);
    return all;
  };
  const auto array = [&](std::uint64_t item) { return bytes({0xAF}) + count + references(item); };
  const auto dictionary = [&](std::uint64_t key, std::uint64_t value) {
    return bytes({0xDF}) + count + references(key) + references(value);
  };
  const auto file = [&](const std::string& leaf) {
    return fileOf({array(1), array(2), array(3), leaf}, 4, 2);
  };
  using Optionals = std::vector<std::vector<std::vector<std::optional<std::string>>>>;
  constexpr auto kTooLarge = DecodingError::Kind::tooLarge;
  EXPECT_EQ(refusalOf<Optionals>(file(bytes({0x55}) + "$null")), kTooLarge);
  EXPECT_THROW(static_cast<void>(PropertyListSerialization::read(file(bytes({0xD0})))),
               PropertyListSizeError);
  EXPECT_EQ(refusalOf<std::vector<std::vector<std::vector<Wide>>>>(file(bytes({0xD0}))), kTooLarge);
  const Data keys =
      fileOf({array(1), array(2), dictionary(3, 4), bytes({0x50}), bytes({0x09})}, 4, 2);
  EXPECT_EQ((refusalOf<std::vector<std::vector<Wide>>>(keys)), kTooLarge) << "skipped entries";
  EXPECT_EQ((refusalOf<std::vector<std::vector<std::map<std::string, bool>>>>(keys)), kTooLarge);
  // A key that stands in the paths to many values.
  const std::string key(1'000'000, 'k');
  const Data below =
      fileOf({bytes({0xD1, 0, 1, 0, 2}), bytes({0x5F, 0x12, 0, 0x0F, 0x42, 0x40}) + key, array(3),
              array(4), bytes({0x51}) + "x"},
             4, 2);
  EXPECT_EQ((refusalOf<std::map<std::string, std::vector<std::vector<Label>>>>(below)), kTooLarge);
  std::string xml = "<plist><dict><key>" + key + "</key><array>";
  for (int i = 0; i < 50'000; ++i) xml += "<string>x</string>";
  xml += "</array></dict></plist>";
  EXPECT_EQ((refusalOf<std::map<std::string, std::vector<Label>>>(dataFrom(xml))), kTooLarge);
}

// Catches a value that is written and then refused, because much of it is equal or empty.
TEST(BinaryPropertyListTests, WhatIsEqualComesBack) {
  const auto comesBack = []<class T>(const T& value) {
    const Data file = PropertyListEncoder{}.encode(value);
    return PropertyListDecoder{}.decode<T>(file) == value;
  };
  EXPECT_TRUE(comesBack(std::vector<std::optional<Wide>>(40'000)));
  EXPECT_TRUE(comesBack(std::map<std::string, std::vector<std::optional<Wide>>>{
      {"a", std::vector<std::optional<Wide>>(20'000)},
      {"b", std::vector<std::optional<Wide>>(20'000)}}));
  EXPECT_TRUE(comesBack(std::vector<Label>(300'000, Label{std::string(100, 'x')})));
  EXPECT_TRUE(comesBack(std::vector<std::string>(20'000, std::string(1'000, 'x'))));
  EXPECT_TRUE(comesBack(std::vector<std::string>(200'000, std::string(120, 'x'))));
  EXPECT_TRUE(comesBack(std::vector<double>(1'000'000, 0.5)));
  EXPECT_TRUE(comesBack(std::vector<Wide>(50'000)));
}

/// A value that codes itself and holds another.
template <class T>
struct Wrapped {
  T value;
  static Wrapped decode(Decoder& decoder) { return {decoder.singleValueContainer()->decode<T>()}; }
  void encode(Encoder& encoder) const { encoder.singleValueContainer()->encode(value); }
};

/// Items that are read one by one.
template <class T>
struct Items {
  std::vector<T> items;
  static Items decode(Decoder& decoder) {
    Items read;
    for (const auto left = decoder.unkeyedContainer(); !left->isAtEnd();) {
      read.items.push_back(left->decode<T>());
    }
    return read;
  }
  void encode(Encoder& encoder) const {
    const auto container = encoder.unkeyedContainer();
    for (const T& item : items) container->encode(item);
  }
  bool operator==(const Items&) const = default;
};

/// What a hash becomes for keys that are chosen to meet.
struct OneBucket {
  std::size_t operator()(std::int64_t) const { return 0; }
};

// Catches the memory of items forgotten where types are read and written through the interface, and
// hash tables whose keys are chosen for one bucket.
TEST(BinaryPropertyListTests, ItemsCountThroughTheInterface) {
  const auto array = [](std::uint64_t item, std::uint64_t count) {
    std::string object = bytes({0xAF, 0x11}) + bigEndian(count, 2);
    for (std::uint64_t i = 0; i < count; ++i) object += bigEndian(item, 2);
    return object;
  };
  const Data file = fileOf({array(1, 4'000), array(2, 20), bytes({0xD0})}, 4, 2);  // 80 MB of items
  using Rows = std::vector<std::vector<Wide>>;
  constexpr auto kTooLarge = DecodingError::Kind::tooLarge;
  EXPECT_EQ(refusalOf<Wrapped<Rows>>(file), kTooLarge);
  EXPECT_EQ(refusalOf<Items<Items<Wide>>>(file), kTooLarge);

  const auto comesBack = []<class T>(const T& value) {
    const Data written = PropertyListEncoder{}.encode(Wrapped<T>{value});
    return PropertyListDecoder{}.decode<Wrapped<T>>(written).value == value;
  };
  EXPECT_TRUE(comesBack(std::vector<std::optional<Wide>>(40'000)));
  EXPECT_TRUE(comesBack(std::vector<Wide>(50'000)));
  EXPECT_TRUE(comesBack(Items<std::optional<Wide>>{std::vector<std::optional<Wide>>(40'000)}));
  EXPECT_TRUE(comesBack(Items<Wide>{std::vector<Wide>(50'000)}));

  std::vector<std::int64_t> numbers(60'000);
  std::iota(numbers.begin(), numbers.end(), 0);
  const Data set = PropertyListEncoder{}.encode(numbers);
  EXPECT_EQ(refusalOf<std::unordered_set<std::int64_t>>(set), std::nullopt);
  EXPECT_EQ((refusalOf<std::unordered_set<std::int64_t, OneBucket>>(set)), kTooLarge);
  std::vector<std::int64_t> twoNumbers(100'000);
  for (std::size_t i = 0; i < twoNumbers.size(); i += 2) twoNumbers[i] = 1;
  EXPECT_EQ(refusalOf<std::unordered_set<std::int64_t>>(PropertyListEncoder{}.encode(twoNumbers)),
            std::nullopt);
  std::map<std::int64_t, bool> entries;
  for (const std::int64_t number : numbers) entries[number] = true;
  EXPECT_EQ((refusalOf<std::unordered_map<std::int64_t, bool, OneBucket>>(
                PropertyListEncoder{}.encode(entries))),
            kTooLarge);
}

// Catches the text that stands for null taken for it where a text is meant.
TEST(BinaryPropertyListTests, TheTextOfNullIsAText) {
  using Texts = std::map<std::string, std::string>;
  const Texts texts{{"$null", "$null"}, {"a", "b"}};
  const Data binary = PropertyListEncoder{}.encode(texts);
  const PropertyList tree = PropertyListSerialization::read(binary);
  const Data xml = PropertyListSerialization::write(tree, PropertyListFormat::xml);
  for (const Data& file : {binary, xml}) {
    EXPECT_EQ(PropertyListDecoder{}.decode<Texts>(file), texts);
    const auto optionals =
        PropertyListDecoder{}.decode<std::map<std::string, std::optional<std::string>>>(file);
    EXPECT_EQ(optionals.at("$null"), std::nullopt);
    EXPECT_EQ(optionals.at("a"), "b");
    EXPECT_TRUE((refusalOf<std::map<std::string, int>>(file)));
  }
}

}  // namespace
}  // namespace ombrix::platform
