#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OmbrixPlatform/Defaults/Detail/CloudMirror.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform::detail {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class CloudMirrorTests : public ::testing::Test {
 protected:
  PropertyList::Dictionary values() {
    CloudMirror::Outcome ignored;
    return mirror.values(ignored);
  }

  const testing::ScopedDir dir;
  CloudMirror mirror{dir.path() / "cloud.plist"};
};

// Catches a change from the server that overwrites one that waits to be sent, and one that is lost
// because the server took it after ours while ours was on its way.
TEST_F(CloudMirrorTests, TheLaterOfTwoWritersWinsInWhateverOrderTheNewsCome) {
  struct Case {
    const char* description;
    std::int64_t ours, theirs;
    bool isTheirsHeardFirst;
    const char* expected;
  };
  const Case cases[] = {
      // clang-format off
      {"ours later, theirs heard while ours waits", 8, 7, true,  "ours"},
      {"ours later, theirs heard after the answer", 8, 7, false, "ours"},
      {"theirs later, heard while ours waits",      7, 8, true,  "theirs"},
      {"theirs later, heard after the answer",      7, 8, false, "theirs"},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.description);
    const std::string key = c.description;
    EXPECT_THAT(mirror.set(key, "ours").keys, IsEmpty());
    const auto pending = mirror.nextPending();
    ASSERT_TRUE(pending);
    const std::vector<EtcdKeyValue> theirs = {{key, "theirs", c.theirs}};
    if (c.isTheirsHeardFirst) {
      EXPECT_THAT(mirror.take(theirs).keys, IsEmpty());
    }
    mirror.sent(*pending, c.ours);
    if (!c.isTheirsHeardFirst) mirror.take(theirs);
    EXPECT_EQ(*values().find(key), c.expected);
    EXPECT_FALSE(mirror.nextPending());
  }
}

// Catches unsent changes that do not outlive the process, or that a first reading wipes out.
TEST_F(CloudMirrorTests, WhatWaitsOutlivesTheProcessAndTheNextReading) {
  mirror.take(EtcdSnapshot{{{"kept", 1, 2}, {"gone", 2, 3}}, 3});
  mirror.set("removed here", std::nullopt);
  mirror.set("set here", "x");
  CloudMirror later(dir.path() / "cloud.plist");
  const auto outcome = later.take(EtcdSnapshot{{{"kept", 1, 2}, {"removed here", 5, 4}}, 9});
  EXPECT_THAT(outcome.keys, ElementsAre("gone"));
  CloudMirror::Outcome ignored;
  EXPECT_EQ(later.values(ignored), (PropertyList::Dictionary{{"kept", 1}, {"set here", "x"}}));
  std::vector<std::string> sent;
  while (const auto pending = later.nextPending()) {
    sent.push_back(pending->key);
    later.sent(*pending, 10 + static_cast<std::int64_t>(sent.size()));
  }
  EXPECT_THAT(sent, UnorderedElementsAre("removed here", "set here"));
}

// Catches the answer to an earlier change that settles a later one.
TEST_F(CloudMirrorTests, AChangeMadeWhileAnotherIsOnItsWayIsStillSent) {
  mirror.set("units", "miles");
  const auto first = mirror.nextPending();
  mirror.set("units", "british");
  mirror.sent(*first, 5);
  const auto second = mirror.nextPending();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->value, PropertyList("british"));
}

// Catches a server that was set up anew and is not believed, since it counts from the beginning.
TEST_F(CloudMirrorTests, AServerThatCountsFromTheBeginningIsBelieved) {
  mirror.take(EtcdSnapshot{{{"units", "miles", 40}, {"gone", 1, 41}}, 50});
  EXPECT_THAT(mirror.take(EtcdSnapshot{{{"units", "british", 2}}, 3}).keys,
              UnorderedElementsAre("units", "gone"));
  EXPECT_EQ(values(), (PropertyList::Dictionary{{"units", "british"}}));
}

// Catches messages misread: missing defaults, other people's values, ends of a watch.
TEST(EtcdMessagesTests, ReadsWhatAWatchSays) {
  const EtcdMessages messages("u/");
  // "dS91bml0cw==" is "u/units"; the value is a binary property list of "miles".
  const std::string value = *messages.put("units", "miles").find("value")->string();
  const auto put = messages.watchMessage(
      R"({"result":{"header":{"revision":"5"},"events":[{"kv":{"key":"dS91bml0cw==",)"
      R"("mod_revision":"5","value":")" +
      value +
      R"("}},{"type":"DELETE","kv":{"key":)"
      R"("dS91bml0cw==","mod_revision":"6"}},{"kv":{"key":"dS91bml0cw==","value":"AAAA"}},)"
      R"({"kv":{"key":"b3RoZXI=","value":""}}]}})");
  ASSERT_EQ(put.events.size(), 2u);
  EXPECT_EQ(put.events[0].key, "units");
  EXPECT_EQ(put.events[0].value, PropertyList("miles"));
  EXPECT_EQ(put.events[0].revision, 5);
  EXPECT_EQ(put.events[1].value, std::nullopt);
  EXPECT_FALSE(put.ended);
  EXPECT_TRUE(
      messages.watchMessage(R"({"result":{"canceled":true,"compact_revision":"7"}})").ended);
  EXPECT_EQ(messages.watchMessage(R"({"error":{"message":"lost"}})").ended, "lost");
  EXPECT_THROW(messages.watchMessage("<html>"), JSONError);
}

}  // namespace
}  // namespace ombrix::platform::detail
