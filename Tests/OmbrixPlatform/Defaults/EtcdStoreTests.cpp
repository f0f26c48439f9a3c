#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/file.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <random>
#include <set>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/CertificateAuthorities.hpp"
#include "OmbrixPlatform/Defaults/Etcd/Detail/CloudMirror.hpp"
#include "OmbrixPlatform/Defaults/Etcd/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Values/Error.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Processes/EtcdServer.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using Store = NSUbiquitousKeyValueStore;
using ::testing::Contains;
using ::testing::Each;
using testing::EtcdServer;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

/// Keeps the keys that a store tells of, and lets the test wait for one.
class Changes {
 public:
  explicit Changes(Store& store)
      : token_(store.observeExternalChanges([this](const Store::ExternalChange& change) {
          const std::lock_guard lock(mutex_);
          for (const auto& key : change.keys) keys_.emplace_back(change.reason, key);
          changed_.notify_all();
        })) {}

  bool waitFor(Store::ChangeReason reason, const std::string& key) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(30), [&] {
      return std::ranges::find(keys_, std::pair(reason, key)) != keys_.end();
    });
  }
  std::size_t count(const std::string& key) {
    const std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::ranges::count(keys_, key, &std::pair<Store::ChangeReason, std::string>::second));
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::pair<Store::ChangeReason, std::string>> keys_;
  ObservationToken token_;
};

class EtcdStoreTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!EtcdServer::isInstalled()) {
      GTEST_SKIP() << "etcd is not installed (scripts/setup --with-servers)";
    }
    server.emplace(dir.path() / "server");
  }

  std::shared_ptr<Store> device(const std::string& name) {
    return makeEtcdUbiquitousKeyValueStore(
        {.endpoint = server->url(), .prefix = "user/", .folder = dir.path(), .domain = name});
  }

  /// Another process of a device.
  std::unique_ptr<testing::ChildProcess> process(const std::string& name) const {
    auto process = std::make_unique<testing::ChildProcess>(std::vector<std::string>{
        TEST_AGENT, "cloud", server->url().absoluteString(), dir.path().string(), name, "0"});
    EXPECT_EQ(process->readLine(), "ready");
    return process;
  }

  const testing::ScopedDir dir;
  std::optional<EtcdServer> server;
};

// Catches values that do not reach the other device, that arrive twice, or that come back as news
// to the device that set them.
TEST_F(EtcdStoreTests, DevicesSeeEachOthersChangesOnce) {
  const auto phone = device("phone"), desktop = device("desktop");
  Changes atPhone(*phone), atDesktop(*desktop);
  ASSERT_TRUE(phone->synchronize());
  ASSERT_TRUE(desktop->synchronize());
  phone->setObject("miles", "units");
  ASSERT_TRUE(atDesktop.waitFor(Store::ChangeReason::serverChange, "units"));
  EXPECT_EQ(desktop->stringForKey("units"), "miles");
  desktop->removeObjectForKey("units");
  ASSERT_TRUE(atPhone.waitFor(Store::ChangeReason::serverChange, "units"));
  EXPECT_EQ(phone->objectForKey("units"), std::nullopt);
  ASSERT_TRUE(phone->synchronize());
  ASSERT_TRUE(desktop->synchronize());
  EXPECT_EQ(atPhone.count("units"), 1u);
  EXPECT_EQ(atDesktop.count("units"), 1u);

  phone->close();  // reads on in the copy that other programs keep, and tells nobody
  desktop->setObject("kilometers", "units");
  ASSERT_TRUE(desktop->synchronize());
  ASSERT_TRUE(device("phone")->synchronize());
  EXPECT_EQ(phone->stringForKey("units"), "kilometers");
  phone->setObject(std::string(Store::kMaxBytes, 'x'), "units");
  phone->close();
  EXPECT_EQ(atPhone.count("units"), 1u);
}

// Catches a change that is not sent while the copy here cannot be written, and one that is sent
// again, over another device's.
TEST_F(EtcdStoreTests, WhatTheServerHasIsNotSentAgain) {
  const auto phone = device("phone"), desktop = device("desktop");
  Changes atDesktop(*desktop);
  phone->setObject("sent", "first");
  ASSERT_TRUE(phone->synchronize());
  ASSERT_TRUE(desktop->synchronize());
  const auto isInTheWay = [&] {
    std::error_code fileIsBeingWritten;
    return std::filesystem::create_directory(dir.path() / ".phone.plist.new", fileIsBeingWritten);
  };
  ASSERT_TRUE(testing::eventually(isInTheWay));
  phone->setObject("in memory alone", "unwritten");
  EXPECT_TRUE(phone->synchronize());
  ASSERT_TRUE(atDesktop.waitFor(Store::ChangeReason::serverChange, "unwritten"));
  std::filesystem::remove(dir.path() / ".phone.plist.new");

  server->pause();
  phone->setObject("mine", "units");
  detail::CloudMirror copy(dir.path() / "phone.plist");
  ASSERT_TRUE(
      testing::eventually([&] { return copy.refresh().errors.empty() && copy.nextPending(); }));
  ASSERT_TRUE(testing::eventually(isInTheWay));
  server->resume();
  ASSERT_TRUE(atDesktop.waitFor(Store::ChangeReason::serverChange, "units"));
  desktop->setObject("theirs", "units");
  ASSERT_TRUE(desktop->synchronize());
  for (int attempt = 0; attempt < 3; ++attempt) EXPECT_TRUE(phone->synchronize());
  EXPECT_TRUE(desktop->synchronize());
  EXPECT_EQ(desktop->stringForKey("units"), "theirs");
  std::filesystem::remove(dir.path() / ".phone.plist.new");
  EXPECT_TRUE(phone->synchronize());
  EXPECT_EQ(phone->stringForKey("units"), "theirs");
}

/// Processes of a device that send for themselves, as far as they like, to a server that gets
/// requests late, and loses answers.
class Device {
 public:
  Device(const EtcdServer& server, const std::filesystem::path& folder, unsigned seed)
      : server_(server), random_(seed), folder_(folder), messages_(folder.filename().string()) {
    std::filesystem::create_directory(folder);
    for (std::size_t i = 0; i < 3; ++i) mirrors_.emplace_back(folder / "cloud.plist");
    CloudMirror::Outcome ignored;
    device_ = mirrors_.front().deviceIdentifier(ignored);
  }

  void step() {
    auto& mirror = mirrors_.at(pick(mirrors_.size()));
    switch (pick(8)) {
      case 0:
        set(mirror, "k" + std::to_string(pick(3)));
        break;
      case 1:
        if (!std::filesystem::remove(inTheWay())) std::filesystem::create_directory(inTheWay());
        break;
      case 2:
        read(mirror);
        break;
      case 3:
        if (!late_.empty()) ask(late_.at(pick(late_.size())));
        break;
      case 4: {  // another device
        auto put = messages_.change("k0", PropertyList("theirs"), "", "other", 0)["success"];
        server_.call("/v3/kv/put", put[0]["request_put"]);
        break;
      }
      default:
        send(mirror, pick(3));
    }
  }

  void end() {
    std::filesystem::remove(inTheWay());
    for (const Request& request : late_) ask(request);
    for (auto& mirror : mirrors_) {
      EXPECT_TRUE(mirror.flush().isSaved);
      while (send(mirror, 2)) {
      }
    }
    for (const Request& request : late_) ask(request);
    EXPECT_EQ(lastMade_, lastSet_);
    for (auto& mirror : mirrors_) {
      read(mirror);
      CloudMirror::Outcome ignored;
      EXPECT_EQ(mirror.values(ignored), values());
    }
  }

 private:
  using CloudMirror = detail::CloudMirror;
  using Messages = detail::EtcdMessages;
  struct Request {
    CloudMirror::Pending change;
    JSON json;
  };

  std::size_t pick(std::size_t count) { return random_() % count; }
  std::filesystem::path inTheWay() const { return folder_ / ".cloud.plist.new"; }

  void set(CloudMirror& mirror, const std::string& key) {
    lastSet_[key] = ++count_;
    mirror.set(key, count_);
    static_cast<void>(mirror.flush());
  }

  /// Everything the server has.
  detail::EtcdSnapshot all() const {
    return messages_.snapshot(server_.call("/v3/kv/txn", messages_.range()).rawData());
  }
  PropertyList::Dictionary values() const {
    PropertyList::Dictionary values;
    for (const auto& each : all().values) values.set(each.key, *each.value);
    return values;
  }
  void read(CloudMirror& mirror) {
    const auto asked = mirror.position();
    mirror.take(all(), asked);
  }

  /// What the process has to send next: 0 is late, 1 loses its answer; whether one was settled.
  bool send(CloudMirror& mirror, std::size_t how) {
    static_cast<void>(mirror.refresh());
    const auto pending = mirror.nextPending();
    if (!pending) return false;
    std::int64_t mark = 0;  // of what is no later change
    while (true) {
      const Request request{
          *pending, messages_.change(pending->key, pending->value, pending->id, device_, mark)};
      const bool isAsRead = mark != 0 || pick(2) == 0;
      if (how == 0 && isAsRead) late_.push_back(request);
      if (how == 0 && isAsRead) return false;
      const auto result = ask(request);
      if (how == 1 && isAsRead) return false;
      if (result.revision) mirror.sent(*pending, *result.revision);
      if (result.isOvertaken) mirror.withdrawn(*pending);
      if (result.revision || result.isOvertaken) return true;
      mark = result.markRevision;
    }
  }

  detail::EtcdChangeResult ask(const Request& request) {
    const auto& [key, value, id, order] = request.change;
    const JSON answer = server_.call("/v3/kv/txn", request.json);
    const auto result = Messages::changeResult(answer.rawData(), id);
    if (answer["succeeded"].boolean().value_or(false)) {
      EXPECT_TRUE(made_.insert(id).second) << "made twice: " << key;
      EXPECT_GT(*value->integer(), lastMade_[key]) << "undoes a later one: " << key;
      lastMade_[key] = *value->integer();
    }
    return result;
  }

  const EtcdServer& server_;
  std::mt19937 random_;
  const std::filesystem::path folder_;
  const Messages messages_;
  std::deque<CloudMirror> mirrors_;
  std::string device_;
  std::vector<Request> late_;
  std::map<std::string, std::int64_t> lastSet_, lastMade_;
  std::set<std::string> made_;  // by their ids
  std::int64_t count_ = 0;
};

// Catches a change that is made twice, or that undoes a later one of its device or is lost to an
// earlier one, while the disk is full now and then, answers get lost, requests come late, and each
// process sends when it likes.
TEST_F(EtcdStoreTests, AChangeIsMadeOnceAndUndoesNoLaterOneOfItsDevice) {
  for (const unsigned seed : {1U, 2U, 3U, 4U}) {
    SCOPED_TRACE(seed);
    Device device(*server, dir.path() / ("device" + std::to_string(seed)), seed);
    for (int i = 0; i < 150; ++i) device.step();
    device.end();
  }
}

// Catches changes that an earlier release has left and that are made again, or never.
TEST_F(EtcdStoreTests, WhatAnEarlierReleaseHasLeftIsTakenOver) {
  using Entry = PropertyList::Dictionary;
  DictionaryFile(dir.path() / "phone.plist")
      .write({{"~", Entry{{"id", "D"}, {"order", 2}}},
              {"#", Entry{{"epoch", 0}, {"revision", 1}}},
              {"=made", 1},
              {"+made", Entry{{"id", "A"}, {"order", 1}, {"value", 1}, {"revision", 1}}},
              {"=waits", 2},
              {"+waits", Entry{{"id", "B"}, {"order", 2}, {"value", 2}, {"revision", 1}}},
              {"^made", 1},
              {"@waits", 1}});
  server->call("/v3/kv/put", JSON::Dictionary{{"key", EtcdServer::coded({"user/\0sent/D", 12})},
                                              {"value", EtcdServer::coded("A")}});
  const auto desktop = device("desktop"), phone = device("phone");
  desktop->setObject("theirs", "made");
  ASSERT_TRUE(desktop->synchronize());
  ASSERT_TRUE(phone->synchronize());
  ASSERT_TRUE(desktop->synchronize());
  for (const auto& store : {desktop, phone}) {
    EXPECT_EQ(store->dictionaryRepresentation(),
              (PropertyList::Dictionary{{"made", "theirs"}, {"waits", 2}}));
  }
}

// Catches a program that waits for ever, and computes, while another of its device has the turn to
// send and does not get on; and one that must have the turn, whose file may be another user's.
TEST_F(EtcdStoreTests, AnotherProgramsTurnIsNotWaitedForWithoutEnd) {
  const auto phone = device("phone");
  ASSERT_TRUE(phone->synchronize());
  const auto name = dir.path() / ".phone.sending";
  const auto turn = detail::openFile(name.string(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(::flock(turn.get(), LOCK_EX), 0);
  phone->setObject("first", "units");
  const auto begin = std::clock();
  EXPECT_TRUE(phone->synchronize());
  EXPECT_LT(std::clock() - begin, 2 * CLOCKS_PER_SEC);
  std::filesystem::remove(name);
  std::filesystem::create_directory(name);  // whoever the tests run as
  phone->setObject("second", "units");
  EXPECT_TRUE(phone->synchronize());
}

// Catches a setter or a reader that waits for another program, which may stand still while it has
// the copy, and a value that is not written when that one goes on.
TEST_F(EtcdStoreTests, ASetterWaitsForNobody) {
  const auto phone = device("phone");
  ASSERT_TRUE(phone->synchronize());
  auto other = detail::openFile((dir.path() / ".phone.plist.lock").string(), O_RDWR);
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  auto setting = std::async(std::launch::async, [&] {
    for (int i = 0; i < 5; ++i) {
      phone->setObject(i, "n");
      EXPECT_EQ(phone->longLongForKey("n"), i);
    }
  });
  EXPECT_EQ(setting.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  other.reset();
  EXPECT_TRUE(phone->synchronize());
  EXPECT_EQ(device("phone")->longLongForKey("n"), 4);
}

// Catches a first reading that is not told, and values of another user that get in.
TEST_F(EtcdStoreTests, ANewDeviceIsToldOfWhatIsThere) {
  device("phone")->setObject("miles", "units");
  const auto other = makeEtcdUbiquitousKeyValueStore({.endpoint = server->url(),
                                                      .prefix = "user0",
                                                      .folder = dir.path(),
                                                      .domain = "somebody else"});
  other->setObject("x", "theirs");
  ASSERT_TRUE(other->synchronize());
  ASSERT_TRUE(device("phone")->synchronize());
  const auto tablet = device("tablet");
  Changes atTablet(*tablet);
  ASSERT_TRUE(atTablet.waitFor(Store::ChangeReason::initialSync, "units"));
  EXPECT_EQ(tablet->dictionaryRepresentation(), (PropertyList::Dictionary{{"units", "miles"}}));
}

// Catches a change that another process of the device made last and took with it, or left waiting,
// and that a connected one does not send; and news that one process hears and the other never
// shows.
TEST_F(EtcdStoreTests, ProcessesOfADeviceSendForEachOther) {
  const auto phone = device("phone"), desktop = device("desktop");
  Changes atPhone(*phone), atDesktop(*desktop);
  ASSERT_TRUE(phone->synchronize());
  server->pause();
  const auto other = process("phone");
  other->send("last units miles");
  EXPECT_EQ(other->wait(), 0);
  server->resume();
  ASSERT_TRUE(atPhone.waitFor(Store::ChangeReason::serverChange, "units"));
  ASSERT_TRUE(atDesktop.waitFor(Store::ChangeReason::serverChange, "units"));
  EXPECT_EQ(desktop->stringForKey("units"), "miles");
}

// Catches a login that drops a change, a server that is full and keeps others' news away, and a
// change that is kept for ever though it can never be taken.
TEST_F(EtcdStoreTests, WhatTheServerDoesNotTakeIsKeptUnlessItNeverWill) {
  server.emplace(dir.path() / "strict", EtcdServer::Options{true, {"--max-request-bytes", "4096"}});
  EtcdConfiguration configuration{.endpoint = server->url(),
                                  .prefix = "user/",
                                  .certificateAuthorities = server->certificateAuthority(),
                                  .folder = dir.path(),
                                  .domain = "stranger"};
  const auto stranger = makeEtcdUbiquitousKeyValueStore(configuration);
  testing::EventLog told;
  configuration.onError = [&](const auto& message) { told.add(message); };
  configuration.domain = "member";
  configuration.credentials = {"skier", "powder"};
  const auto member = makeEtcdUbiquitousKeyValueStore(configuration);
  Changes atStranger(*stranger), atMember(*member);
  ASSERT_TRUE(member->synchronize());

  server->requireLogin("skier", "powder", "user/");
  stranger->setObject("kept", "of the stranger");
  EXPECT_FALSE(stranger->synchronize());
  member->setObject("taken", "of the member");
  EXPECT_TRUE(member->synchronize());
  server->stopRequiringLogin();
  EXPECT_TRUE(stranger->synchronize());
  EXPECT_EQ(stranger->stringForKey("of the member"), "taken");
  ASSERT_TRUE(atMember.waitFor(Store::ChangeReason::serverChange, "of the stranger"));

  member->setObject(std::string(8192, 'x'), "of the stranger");
  ASSERT_TRUE(atMember.waitFor(Store::ChangeReason::quotaViolation, "of the stranger"));
  EXPECT_EQ(member->stringForKey("of the stranger"), "kept");
  const auto messages = told.take();
  EXPECT_THAT(messages, Contains(StartsWith("\"of the stranger\" cannot be kept in the cloud: ")));
  EXPECT_THAT(messages, Each(Not(HasSubstr("certificate")))) << "the watch trusts the server, too";

  stranger->setObject("old", "read");
  ASSERT_TRUE(atMember.waitFor(Store::ChangeReason::serverChange, "read"));
  server->setFull(true);
  member->setObject("waits", "unsent");
  EXPECT_FALSE(member->synchronize());
  // Room is for removals only: another's removal is heard while nothing can be sent.
  server->call("/v3/kv/deleterange",
               JSON::Dictionary{{"key", EtcdServer::coded("user/of the member")}});
  ASSERT_TRUE(atMember.waitFor(Store::ChangeReason::serverChange, "of the member"));
  server->setFull(false);
  EXPECT_TRUE(member->synchronize());
  EXPECT_TRUE(stranger->synchronize());
  EXPECT_EQ(stranger->stringForKey("unsent"), "waits");
}

// Catches a server that is believed though its certificate is somebody else's.
TEST_F(EtcdStoreTests, AServerWithoutTheRightCertificateGetsNothing) {
  const EtcdServer impostor(dir.path() / "impostor", {.isSecure = true, .arguments = {}});
  const EtcdServer right(dir.path() / "right", {.isSecure = true, .arguments = {}});
  const auto store =
      makeEtcdUbiquitousKeyValueStore({.endpoint = impostor.url(),
                                       .prefix = "user/",
                                       .certificateAuthorities = right.certificateAuthority(),
                                       .folder = dir.path(),
                                       .domain = "phone"});
  EXPECT_FALSE(store->synchronize());
}

TEST(EtcdConfigurationTests, RefusesWhatIsNoAddressAndNoName) {
  const auto make = [](const char* url, const char* domain) {
    return makeEtcdUbiquitousKeyValueStore(
        {.endpoint = *URL::parse(url), .prefix = "", .folder = "/tmp", .domain = domain});
  };
  EXPECT_THROW(make("ftp://host", "a"), platform::Error);
  EXPECT_THROW(make("http:///path", "a"), platform::Error);
  EXPECT_THROW(make("http://host", ""), platform::Error);
  EXPECT_THROW(make("http://host", "a/b"), platform::Error);
  EXPECT_THROW(makeEtcdUbiquitousKeyValueStore({.endpoint = *URL::parse("https://host"),
                                                .prefix = "",
                                                .certificateAuthorities = "/dev/null",
                                                .folder = "/tmp",
                                                .domain = "a"}),
               platform::Error);
}

// Catches OpenSSL cleaned up, as it does by itself, while network threads still use it.
TEST(EtcdConfigurationDeathTests, OpenSSLOutlivesTheEndOfTheProcess) {
  const auto useAndExit = [] {
    std::atexit([] {  // called last
      if (::OPENSSL_init_crypto(0, nullptr) == 1) std::fputs("still there", stderr);
    });
    EXPECT_THROW(detail::CertificateAuthorities("/dev/null").check(), platform::Error);
    std::exit(0);
  };
  EXPECT_EXIT(useAndExit(), ::testing::ExitedWithCode(0), "still there");
}

}  // namespace
}  // namespace ombrix::platform
