#include "OmbrixPlatform/Messaging/Detail/MessageFile.hpp"

#include <gtest/gtest.h>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"

namespace ombrix::platform::detail {
namespace {

// Catches identifiers that share a file, lead out of the folder, hide their file, or do not come
// back; and names of other files that are taken for one.
TEST(MessageFileTests, IdentifiersComeBackFromTheirNames) {
  using namespace std::string_view_literals;
  const std::pair<std::string_view, std::string_view> cases[] = {
      {"units", "units.message"},
      {"", ".message"},
      {"Key-1_b.c", "Key-1_b.c.message"},
      {"a.message", "a.message.message"},
      {"../a/b", "%2E.%2Fa%2Fb.message"},
      {".", "%2E.message"},
      {"50%", "50%25.message"},
      {"é ", "%C3%A9%20.message"},
      {"nul\0nul"sv, "nul%00nul.message"},
  };
  for (const auto& [identifier, name] : cases) {
    EXPECT_EQ(messageFileName(identifier), name);
    EXPECT_EQ(identifierOfMessageFile(name), identifier) << name;
  }
  for (const char* other :
       {"units", "units.message.new", ".units.message", "%75nits.message", "%2f.message",
        "%2.message", "%.message", "%+2.message", "a b.message", "%G0.message", "a/b.message"}) {
    EXPECT_EQ(identifierOfMessageFile(other), std::nullopt) << other;
  }
}

// Catches a content that changes on its way, and property lists that are taken for messages.
TEST(MessageFileTests, MessagesComeBackFromTheirBytes) {
  const Message message{{"sender", 7}, PropertyList::Array{"text", 1, 2.5, true}};
  EXPECT_EQ(decodeMessage(encodeMessage(message)), message);
  const PropertyList others[] = {
      "text",
      PropertyList::Dictionary{},
      PropertyList::Dictionary{{"sender", "s"}, {"number", 1}},
      PropertyList::Dictionary{{"sender", 1}, {"number", 1}, {"message", 1}},
      PropertyList::Dictionary{{"sender", "s"}, {"number", 1.5}, {"message", 1}},
  };
  for (const PropertyList& other : others) {
    EXPECT_THROW(decodeMessage(PropertyListSerialization::write(other)), PropertyListError);
  }
}

}  // namespace
}  // namespace ombrix::platform::detail
