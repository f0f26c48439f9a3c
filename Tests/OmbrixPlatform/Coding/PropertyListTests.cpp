#include "OmbrixPlatform/Coding/PropertyList.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"

namespace ombrix::platform {
namespace {

using testing::HasSubstr;
using testing::Property;
using Dictionary = PropertyList::Dictionary;
using Array = PropertyList::Array;

PropertyList roundTrip(const PropertyList& value, PropertyListFormat format) {
  return PropertyListSerialization::read(PropertyListSerialization::write(value, format));
}

PropertyList everything() {
  Array numbers{0,  1,         255,       256,        65'535,        65'536,
                -1, INT64_MAX, INT64_MIN, UINT64_MAX, 4'294'967'295U};
  Array reals{0.0, -0.0, 1.5, 0.1, 1e300, 5e-324, std::numeric_limits<double>::infinity()};
  return Dictionary{
      {"truth", true},
      {"lie", false},
      {"numbers", std::move(numbers)},
      {"reals", std::move(reals)},
      {"long text that needs a length of its own", std::string(300, 'x')},
      {"unicode", "Grüße, 日本, \U0001F3BF & <tag>\r\n"},
      {"empty text", ""},
      {"blank text", "  \n "},
      {"data", dataFrom(std::string_view("\0\x01\xFF", 3))},
      {"empty data", Data{}},
      {"date", dateSince1970(1'700'000'000)},
      {"before the epoch", dateSince1970(-12'345)},
      {"uid", PropertyList::UID{70'000}},
      {"empty array", Array{}},
      {"empty dictionary", Dictionary{}},
      {"nested", Dictionary{{"b", 1}, {"a", Array{Dictionary{{"c", "same"}}, "same", "same"}}}},
  };
}

// Catches a kind, a size class of integers or a text form that one direction gets wrong.
TEST(PropertyListTests, EveryKindOfValueComesBackInBothForms) {
  const PropertyList value = everything();
  for (const auto format : {PropertyListFormat::binary, PropertyListFormat::xml}) {
    const PropertyList read = roundTrip(value, format);
    EXPECT_EQ(read, value);
    EXPECT_TRUE(std::signbit(*(*read.find("reals")->array())[1].real()));
    EXPECT_EQ(read.dictionary()->begin()->key, "truth");
    EXPECT_EQ((read.dictionary()->end() - 1)->key, "nested");
  }
  for (const PropertyList& scalar : {PropertyList{5}, PropertyList{"top"}, PropertyList{true}}) {
    EXPECT_EQ(roundTrip(scalar, PropertyListFormat::binary), scalar);
  }
}

// Catches files that only our own reader understands, and a reader that only knows our writer.
TEST(PropertyListTests, AnotherImplementationReadsOursAndWritesWhatWeRead) {
  const PropertyList value = everything();
  for (const auto format : {PropertyListFormat::binary, PropertyListFormat::xml}) {
    const Data ours = PropertyListSerialization::write(value, format);
    plist_t tree = nullptr;
    plist_from_memory(reinterpret_cast<const char*>(ours.data()),
                      static_cast<std::uint32_t>(ours.size()), &tree);
    ASSERT_NE(tree, nullptr);
    const std::unique_ptr<void, void (*)(plist_t)> owner(tree, plist_free);

    char* bytes = nullptr;
    std::uint32_t size = 0;
    plist_to_bin(tree, &bytes, &size);
    ASSERT_NE(bytes, nullptr);
    const std::unique_ptr<char, void (*)(char*)> bytesOwner(bytes, plist_to_bin_free);
    const PropertyList back = PropertyListSerialization::read(bytesOf({bytes, size}));
    for (const auto& [key, item] : *value.dictionary()) {
      const PropertyList* other = back.find(key);
      ASSERT_NE(other, nullptr) << key;
      // The peer turns infinities in XML into other numbers, and its XML knows no references.
      const bool peerLoses = format == PropertyListFormat::xml && (key == "reals" || key == "uid");
      if (!peerLoses) {
        EXPECT_EQ(*other, item) << key;
      }
    }
  }
}

// Catches a writer that repeats equal values, and references that are wider than they need be.
TEST(PropertyListTests, EqualValuesAreStoredOnce) {
  const auto rows = [](std::size_t count) {
    Array items(count, PropertyList{Dictionary{{"name", "the same text"}, {"speed", 12.5}}});
    return PropertyListSerialization::write(items).size();
  };
  // One more row costs its two keys, two values, its reference and its place in the table.
  EXPECT_EQ(rows(200) - rows(199), 1 + 4 + 1 + 2U);
}

// Catches typed access that converts silently, and lost insertion order or look-ups when large.
TEST(PropertyListTests, AccessIsTypedAndLargeDictionariesKeepTheirOrder) {
  const PropertyList one{1};
  EXPECT_EQ(one.real(), 1.0);
  EXPECT_EQ(one.boolean(), std::nullopt);
  EXPECT_EQ(PropertyList{1.0}.integer(), std::nullopt);
  EXPECT_EQ(PropertyList{-1}.unsignedInteger(), std::nullopt);
  EXPECT_EQ(PropertyList{UINT64_MAX}.integer(), std::nullopt);
  EXPECT_NE(one, PropertyList{1.0});
  EXPECT_EQ(one.find("x"), nullptr);

  Dictionary large;
  for (int i = 0; i < 1000; ++i) large.set("key " + std::to_string(i), i);
  large.set("key 500", "changed");
  EXPECT_TRUE(large.erase("key 3"));
  EXPECT_FALSE(large.erase("key 3"));
  EXPECT_EQ(large.size(), 999U);
  EXPECT_EQ(*large.find("key 500"), PropertyList{"changed"});
  EXPECT_EQ(*large.find("key 999"), PropertyList{999});
  EXPECT_EQ((large.begin() + 3)->key, "key 4");
  EXPECT_EQ(roundTrip(large, PropertyListFormat::binary), PropertyList{large});
}

// A binary file of the given objects, one-byte references and offsets, the first object on top.
Data fileOf(const std::vector<std::string>& objects) {
  std::string file = "bplist00";
  std::string offsets;
  for (const std::string& object : objects) {
    offsets.push_back(static_cast<char>(file.size()));
    file += object;
  }
  std::string trailer(32, '\0');
  trailer[6] = trailer[7] = 1;
  trailer[15] = static_cast<char>(objects.size());
  trailer[31] = static_cast<char>(file.size());
  return dataFrom(file + offsets + trailer);
}

// Catches references out of bounds, in circles or exploding, lengths beyond the file and bad text.
TEST(PropertyListTests, DamagedBinaryFilesAreRefusedWithAReason) {
  std::vector<std::string> doubling;
  for (char i = 1; i < 40; ++i) doubling.push_back(std::string{'\xA2', i, i});
  doubling.push_back("\x08");
  Data tooManyObjects = fileOf({"\x08"});
  tooManyObjects[tooManyObjects.size() - 17] = std::byte{2};
  const struct {
    const char* reason;
    Data file;
  } cases[] = {
      {"a reference leads to no object", fileOf({"\xA1\x07"})},
      {"nested too deep", fileOf({std::string("\xA1\x00", 2)})},
      {"out of proportion", fileOf(doubling)},
      {"an object is cut short", fileOf({"\x5F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})},
      {"an object is cut short", fileOf({"\xDF\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})},
      {"an object is cut short", fileOf({"\x13\x01"})},
      {"a length is not an integer", fileOf({"\x4F\x23"})},
      {"unpaired surrogate", fileOf({std::string("\x61\xD8\x00", 3)})},
      {"unpaired surrogate", fileOf({std::string("\x62\xD8\x3C\x00\x41", 5)})},
      {"a text is not valid", fileOf({"\x51\xFF"})},
      {"a key is not a text", fileOf({"\xD1\x01\x01", "\x09"})},
      {"a null", fileOf({std::string(1, '\0')})},
      {"the object table lies out of bounds", tooManyObjects},
      {"it is cut short", dataFrom("bplist00")},
      {"at byte", dataFrom("<plist><dict>")},
      {"at byte", Data{}},
  };
  for (const auto& [reason, file] : cases) {
    try {
      PropertyListSerialization::read(file);
      ADD_FAILURE() << reason;
    } catch (const PropertyListError& error) {
      EXPECT_THAT(error.what(), HasSubstr(reason));
    }
  }
}

// Catches XML that is half understood: missing values, stray text, numbers with a tail.
TEST(PropertyListTests, XMLIsReadStrictly) {
  const auto read = [](const std::string& body) {
    return PropertyListSerialization::read(dataFrom("<plist version='1.0'>" + body + "</plist>"));
  };
  EXPECT_EQ(read("<integer> 0xFF </integer>"), PropertyList{255});
  EXPECT_EQ(read("<integer>18446744073709551615</integer>"), PropertyList{UINT64_MAX});
  EXPECT_EQ(read("<string>a<![CDATA[<b>]]>&amp;&#x1F3BF;</string>"),
            PropertyList{"a<b>&\U0001F3BF"});
  EXPECT_EQ(read("<real>-1e-400</real>"), PropertyList{-0.0});
  EXPECT_EQ(read("<data> AAE\n= </data>"), PropertyList{dataFrom(std::string_view("\0\1", 2))});
  EXPECT_EQ(read("<date>2001-01-01T01:00:00+01:00</date>"),
            PropertyList{dateSinceReferenceDate(0)});
  EXPECT_EQ(read("<!-- first --><array><true/><!-- between --></array>"),
            PropertyList{Array{true}});
  for (const char* bad :
       {"", "<dict><key>a</key></dict>", "<dict><string>a</string></dict>", "<array>text</array>",
        "<integer>5x</integer>", "<integer>18446744073709551616</integer>", "<real></real>",
        "<real>1e400</real>", "<date>2001-02-30T00:00:00Z</date>", "<data>A===</data>",
        "<data>AA</data>", "<null/>", "<true/><false/>", "<string><b/></string>"}) {
    EXPECT_THROW(read(bad), PropertyListError) << bad;
  }
  EXPECT_THROW(PropertyListSerialization::read(dataFrom("<html/>")), PropertyListError);
}

// Catches a value that is written in a form no reader takes back.
TEST(PropertyListTests, WhatCannotBeWrittenIsRefused) {
  PropertyList deep{1};
  for (int i = 0; i < kMaxPropertyListDepth; ++i) deep = Array{std::move(deep)};
  EXPECT_EQ(roundTrip(deep, PropertyListFormat::binary), deep);
  EXPECT_EQ(roundTrip(deep, PropertyListFormat::xml), deep);
  deep = Array{std::move(deep)};
  const struct {
    PropertyList value;
    bool binary;
  } cases[] = {{deep, true}, {"\xFF", true}, {"\x01", false}, {dateSince1970(1e15), false}};
  for (const auto& [value, binary] : cases) {
    EXPECT_THROW(PropertyListSerialization::write(value, PropertyListFormat::xml),
                 PropertyListError);
    if (binary) {
      EXPECT_THROW(PropertyListSerialization::write(value), PropertyListError);
    }
  }
}

}  // namespace
}  // namespace ombrix::platform
