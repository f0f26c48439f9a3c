#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "OmbrixPlatform/Defaults/Etcd/Detail/ChangeId.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/CloudMirror.hpp"
#include "OmbrixPlatform/Detail/TextForms.hpp"
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

  void set(const std::string& key, std::optional<PropertyList> value) {
    mirror.set(key, std::move(value));
    const auto outcome = mirror.flush();
    EXPECT_TRUE(outcome.isSaved);
    EXPECT_THAT(outcome.keys, IsEmpty());
  }

  const testing::ScopedDir dir;
  CloudMirror mirror{dir.path() / "cloud.plist"};
};

// Catches a change from the server that overwrites one that waits to be sent, and one that is lost
// because the server took it after ours while ours was on its way; whichever process hears of it.
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
  CloudMirror other(dir.path() / "cloud.plist");
  std::int64_t base = 0;
  for (CloudMirror* hearing : {&mirror, &other}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.description);
      const std::string key = c.description;
      base += 10;
      set(key, "ours");
      const auto pending = mirror.nextPending();
      ASSERT_TRUE(pending);
      const std::vector<EtcdKeyValue> theirs = {{key, "theirs", base + c.theirs}};
      if (c.isTheirsHeardFirst) hearing->take(theirs, 0);
      mirror.sent(*pending, base + c.ours);
      if (!c.isTheirsHeardFirst) hearing->take(theirs, 0);
      EXPECT_EQ(*values().find(key), c.expected);
      CloudMirror::Outcome ignored;
      EXPECT_EQ(*other.values(ignored).find(key), c.expected);
      EXPECT_FALSE(mirror.nextPending());
    }
  }
}

// Catches a process that was slow, and puts back what another one knows to be old.
TEST_F(CloudMirrorTests, WhatIsHeardLateIsOld) {
  CloudMirror slow(dir.path() / "cloud.plist");
  const auto asked = slow.position();
  mirror.take({{"units", "new", 9}}, 0);
  slow.take({{"units", "old", 7}}, 0);
  slow.take(EtcdSnapshot{{{"units", "old", 7}}, 8}, asked);
  EXPECT_EQ(*values().find("units"), "new");
  EXPECT_EQ(slow.position().revision, 9);
}

// Catches unsent changes that do not outlive the process, that a first reading wipes out or that
// lose their order; those of the release before, which kept no order, among them.
TEST_F(CloudMirrorTests, WhatWaitsOutlivesTheProcessAndTheNextReading) {
  DictionaryFile(dir.path() / "cloud.plist")
      .write({{"=before", 1}, {"+before", PropertyList::Dictionary{{"id", "1"}, {"value", 1}}}});
  mirror.take(EtcdSnapshot{{{"kept", 1, 2}, {"gone", 2, 3}}, 3}, mirror.position());
  set("set here", "w");
  set("removed here", std::nullopt);
  set("set here", "x");
  CloudMirror later(dir.path() / "cloud.plist");
  const auto outcome =
      later.take(EtcdSnapshot{{{"kept", 1, 2}, {"removed here", 5, 4}}, 9}, later.position());
  EXPECT_THAT(outcome.keys, ElementsAre("gone"));
  CloudMirror::Outcome ignored;
  EXPECT_EQ(later.values(ignored),
            (PropertyList::Dictionary{{"before", 1}, {"kept", 1}, {"set here", "x"}}));
  std::vector<std::string> sent;
  while (const auto pending = later.nextPending()) {
    sent.push_back(pending->key);
    later.sent(*pending, 10 + static_cast<std::int64_t>(sent.size()));
  }
  EXPECT_THAT(sent, ElementsAre("before", "removed here", "set here"));
}

// Catches the answer to an earlier change that settles a later one, and a change that is refused
// but stays as if it had been taken.
TEST_F(CloudMirrorTests, EachChangeIsSettledByItsOwnAnswer) {
  mirror.take({{"units", "kilometers", 3}}, 0);
  set("units", "miles");
  const auto first = mirror.nextPending();
  set("units", "british");
  mirror.sent(*first, 5);
  const auto second = mirror.nextPending();
  ASSERT_TRUE(second);
  EXPECT_EQ(second->value, PropertyList("british"));
  EXPECT_THAT(mirror.withdrawn(*second).keys, ElementsAre("units"));
  EXPECT_EQ(*values().find("units"), "miles");
  EXPECT_FALSE(mirror.nextPending());
}

// Catches a change that is lost or held back while the file cannot be written, and one that undoes
// there what another process has written meanwhile: its values, its order, the device's name.
TEST_F(CloudMirrorTests, WhatCannotBeWrittenStandsAboveTheFileAndHarmsNothingInIt) {
  CloudMirror other(dir.path() / "cloud.plist");
  const auto inTheWay = dir.path() / ".cloud.plist.new";
  std::filesystem::create_directory(inTheWay);
  mirror.set("sent", "1");
  mirror.set("units", "first");
  mirror.set("units", "mine");
  EXPECT_FALSE(mirror.nextPending());  // nobody has tried to write it
  EXPECT_FALSE(mirror.flush().isSaved);
  const auto sent = mirror.nextPending();
  ASSERT_TRUE(sent);
  EXPECT_EQ(sent->key, "sent");
  mirror.sent(*sent, 2);
  EXPECT_EQ(values(), (PropertyList::Dictionary{{"sent", "1"}, {"units", "mine"}}));
  std::filesystem::remove(inTheWay);

  CloudMirror::Outcome ignored;
  const std::string device = other.deviceIdentifier(ignored);
  other.set("theirs", "2");
  EXPECT_TRUE(other.flush().isSaved);
  other.take({{"sent", "1", 2}, {"units", "theirs", 5}}, 0);
  EXPECT_THAT(mirror.refresh().keys, UnorderedElementsAre("theirs"));
  EXPECT_EQ(*values().find("units"), "mine");
  EXPECT_TRUE(mirror.flush().isSaved);
  EXPECT_TRUE(mirror.isFlushed());
  EXPECT_EQ(mirror.deviceIdentifier(ignored), device);
  for (const auto* key : {"theirs", "units"}) {
    const auto pending = mirror.nextPending();
    ASSERT_TRUE(pending);
    EXPECT_EQ(pending->key, key);
    mirror.sent(*pending, 6);
  }
  EXPECT_FALSE(mirror.nextPending());
  EXPECT_EQ(other.values(ignored),
            (PropertyList::Dictionary{{"sent", "1"}, {"theirs", "2"}, {"units", "mine"}}));
}

// Catches a change that waited for room on the disk, perhaps with the server already, and undoes
// one that another process of the device has made since, whether that one waits or was sent.
TEST_F(CloudMirrorTests, WhatWaitedForRoomUndoesNothing) {
  CloudMirror other(dir.path() / "cloud.plist");
  const auto inTheWay = dir.path() / ".cloud.plist.new";
  set("units", "first");
  mirror.sent(*mirror.nextPending(), 1);
  std::int64_t revision = 1;
  for (const bool isSent : {false, true}) {
    SCOPED_TRACE(isSent);
    std::filesystem::create_directory(inTheWay);
    mirror.set("units", "early");
    mirror.set("only here", ++revision);
    EXPECT_FALSE(mirror.flush().isSaved);
    std::filesystem::remove(inTheWay);
    other.set("units", "later");
    EXPECT_TRUE(other.flush().isSaved);
    if (isSent) {
      other.sent(*other.nextPending(), revision);
      other.take({{"units", "later", revision}}, 0);
    }
    EXPECT_THAT(mirror.flush().keys, ElementsAre("units"));
    EXPECT_TRUE(mirror.isFlushed());
    EXPECT_EQ(values(), (PropertyList::Dictionary{{"units", "later"}, {"only here", revision}}));
    std::map<std::string, std::optional<PropertyList>> sent;
    while (const auto pending = mirror.nextPending()) {
      sent[pending->key] = pending->value;
      mirror.sent(*pending, ++revision);
    }
    EXPECT_TRUE(sent.contains("only here"));
    EXPECT_EQ(sent["units"], isSent ? std::nullopt : std::optional(PropertyList("later")));
    set("units", "last");  // is later again
    EXPECT_EQ(mirror.nextPending()->value, PropertyList("last"));
    mirror.sent(*mirror.nextPending(), ++revision);
  }
}

// Catches a server that was set up anew and is not believed, since it counts from the beginning.
TEST_F(CloudMirrorTests, AServerThatCountsFromTheBeginningIsBelieved) {
  mirror.take(EtcdSnapshot{{{"units", "miles", 40}, {"gone", 1, 41}}, 50}, mirror.position());
  EXPECT_THAT(mirror.take(EtcdSnapshot{{{"units", "british", 2}}, 3}, mirror.position()).keys,
              UnorderedElementsAre("units", "gone"));
  mirror.take({{"units", "of the server before", 51}}, 0);
  EXPECT_EQ(values(), (PropertyList::Dictionary{{"units", "british"}}));
}

// Catches messages misread: missing defaults, other people's values, ends of a watch.
TEST(EtcdMessagesTests, ReadsWhatAWatchSays) {
  const EtcdMessages messages("u/");
  // "dS91bml0cw==" is "u/units"; the value is a binary property list of "miles".
  const JSON change = messages.change("units", PropertyList("miles"), "1", "d", 0);
  const std::string value = change["success"][0]["request_put"]["value"].stringValue();
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
  EXPECT_FALSE(put.isProgress);
  EXPECT_FALSE(messages.watchMessage(R"({"result":{"created":true}})").isProgress);
  EXPECT_TRUE(messages.watchMessage(R"({"result":{"header":{"revision":"9"}}})").isProgress);
  EXPECT_EQ(
      messages.watchMessage(R"({"result":{"canceled":true,"compact_revision":"7"}})").ended->kind,
      EtcdError::Kind::compacted);
  EXPECT_EQ(messages.watchMessage(R"({"error":{"message":"lost"}})").ended->message, "lost");
  EXPECT_THROW(static_cast<void>(messages.watchMessage("<html>")), JSONError);
  const std::string_view tooGreat = R"({"header":{"revision":"9223372036854775807"}})";
  EXPECT_THROW(static_cast<void>(messages.snapshot(bytesOf(tooGreat))), JSONError);
  // "dS//" is "u/" and a byte that begins no character.
  const auto foreign = messages.watchMessage(
      R"({"result":{"events":[{"kv":{"key":"dS//","value":")" + value + R"("}}]}})");
  EXPECT_THAT(foreign.events, IsEmpty());
}

// Catches a change that is made again, dropped, or kept for ever, by the wrong reading of the mark.
TEST(EtcdMessagesTests, TellsByTheMarkWhatBecameOfAChange) {
  const std::string earlier = makeChangeId(), id = makeChangeId(), later = makeChangeId();
  const std::string before = "another run/9223372036854775807/ID", former = "ID";
  struct Case {
    std::string mark, id;
    bool isMade, isOvertaken;
  };
  const Case cases[] = {
      // clang-format off
      {earlier, id,     false, false},
      {id,      id,     true,  false},
      {later,   id,     false, true},
      {before,  id,     false, false},
      {id,      before, false, true},
      {former,  former, true,  false},
      {"?",     former, false, false},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mark + " for " + c.id);
    std::string answer = R"({"responses":[{"response_range":{"kvs":[{"mod_revision":"7","value":")";
    appendBase64(answer, bytesOf(c.mark));
    answer += R"("}]}}]})";
    const auto result = EtcdMessages::changeResult(bytesOf(answer), c.id);
    EXPECT_EQ(result.revision, c.isMade ? std::optional<std::int64_t>(7) : std::nullopt);
    EXPECT_EQ(result.isOvertaken, c.isOvertaken);
    EXPECT_EQ(result.markRevision, 7);
  }
}

// Catches a change that is dropped for good, or kept for good, by the wrong reading of a refusal.
TEST(EtcdMessagesTests, TellsRefusalsApartByTheirText) {
  using enum EtcdError::Kind;
  const std::pair<const char*, EtcdError::Kind> cases[] = {
      // clang-format off
      {R"({"error":"etcdserver: request is too large","code":3})",          tooLarge},
      {R"({"error":"grpc: received message larger than max (3 vs. 2) ","code":8})", tooLarge},
      {R"({"error":"etcdserver: user name is empty","code":3})",            wantsLogin},
      {R"({"error":"etcdserver: invalid auth token","code":16})",           wantsLogin},
      {R"({"error":"etcdserver: authentication is not enabled","code":9})", authenticationIsOff},
      {R"({"error":"etcdserver: mvcc: database space exceeded","code":8})", other},
      {R"({"error":"etcdserver: key is not provided","code":3})",           other},
      {"404 page not found",                                                other},
      // clang-format on
  };
  for (const auto& [answer, kind] : cases) {
    EXPECT_EQ(EtcdMessages::error(bytesOf(std::string_view(answer))).kind, kind) << answer;
  }
}

}  // namespace
}  // namespace ombrix::platform::detail
