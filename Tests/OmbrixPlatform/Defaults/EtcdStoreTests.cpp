#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

#include "OmbrixPlatform/Defaults/EtcdUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Values/Error.hpp"
#include "OmbrixTesting/EtcdServer.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using Store = NSUbiquitousKeyValueStore;
using testing::EtcdServer;

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
}

// Catches changes lost while the server is away, in a running program and over its restart.
TEST_F(EtcdStoreTests, WhatIsChangedWithoutTheServerIsSentWhenItIsBack) {
  auto phone = device("phone");
  const auto desktop = device("desktop");
  phone->setObject(1, "kept");
  phone->setObject(1, "replaced");
  ASSERT_TRUE(phone->synchronize());
  ASSERT_TRUE(desktop->synchronize());
  Changes atDesktop(*desktop);

  server->stop();
  EXPECT_FALSE(phone->synchronize());
  phone->setObject(2, "replaced");
  phone->removeObjectForKey("kept");
  desktop->setObject("d", "of the desktop");
  phone = device("phone");  // the program is started again
  EXPECT_EQ(phone->longLongForKey("replaced"), 2);
  EXPECT_FALSE(phone->synchronize());
  server->start();

  ASSERT_TRUE(atDesktop.waitFor(Store::ChangeReason::serverChange, "replaced"));
  // Each sends; whoever has read before the other sent reads again.
  ASSERT_TRUE(phone->synchronize());
  ASSERT_TRUE(desktop->synchronize());
  ASSERT_TRUE(phone->synchronize());
  const PropertyList::Dictionary expected{{"replaced", 2}, {"of the desktop", "d"}};
  EXPECT_EQ(phone->dictionaryRepresentation(), expected);
  EXPECT_EQ(desktop->dictionaryRepresentation(), expected);
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

TEST(EtcdConfigurationTests, RefusesWhatIsNoAddressAndNoName) {
  const auto make = [](const char* url, const char* domain) {
    return makeEtcdUbiquitousKeyValueStore(
        {.endpoint = *URL::parse(url), .prefix = "", .folder = "/tmp", .domain = domain});
  };
  EXPECT_THROW(make("ftp://host", "a"), platform::Error);
  EXPECT_THROW(make("http:///path", "a"), platform::Error);
  EXPECT_THROW(make("http://host", ""), platform::Error);
  EXPECT_THROW(make("http://host", "a/b"), platform::Error);
}

}  // namespace
}  // namespace ombrix::platform
