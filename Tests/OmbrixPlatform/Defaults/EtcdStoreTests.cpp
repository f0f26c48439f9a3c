#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/file.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <future>
#include <mutex>

#include "OmbrixPlatform/Coding/JSON.hpp"
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
        CLOUD_AGENT, server->url().absoluteString(), dir.path().string(), name, "0"});
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
  for (int attempt = 0; attempt < 3; ++attempt) EXPECT_FALSE(phone->synchronize());
  EXPECT_TRUE(desktop->synchronize());
  EXPECT_EQ(desktop->stringForKey("units"), "theirs");
  std::filesystem::remove(dir.path() / ".phone.plist.new");
  EXPECT_TRUE(phone->synchronize());
  EXPECT_EQ(phone->stringForKey("units"), "theirs");
}

// Catches a program that waits for ever, and computes, while another of its device has the turn to
// send and does not get on.
TEST_F(EtcdStoreTests, AnotherProgramsTurnIsNotWaitedForWithoutEnd) {
  const auto phone = device("phone");
  ASSERT_TRUE(phone->synchronize());
  const auto turn =
      detail::openFile((dir.path() / ".phone.sending").string(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(::flock(turn.get(), LOCK_EX), 0);
  phone->setObject("waits", "units");
  const auto begin = std::clock();
  EXPECT_FALSE(phone->synchronize());
  EXPECT_LT(std::clock() - begin, 2 * CLOCKS_PER_SEC);
  ASSERT_EQ(::flock(turn.get(), LOCK_UN), 0);
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
