#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using Store = NSUbiquitousKeyValueStore;
using ::testing::ElementsAre;

// Catches values that are not shared between processes, and changes that are not told.
TEST(UbiquitousKeyValueStoreTests, ProcessesShareTheStoreAndHearOfEachOther) {
  const testing::ScopedDir dir;
  const auto mine = makeFileUbiquitousKeyValueStore(dir.path(), "cloud");
  const auto other = makeFileUbiquitousKeyValueStore(dir.path(), "cloud");
  std::promise<Store::ExternalChange> told;
  auto token = mine->observeExternalChanges([&](const auto& change) { told.set_value(change); });
  mine->setObject(true, "flag");
  other->setObject("miles", "units");
  const auto change = told.get_future().get();
  EXPECT_EQ(change.reason, Store::ChangeReason::serverChange);
  EXPECT_THAT(change.keys, ElementsAre("units"));
  EXPECT_TRUE(mine->synchronize());
  EXPECT_EQ(mine->stringForKey("units"), "miles");
  EXPECT_TRUE(other->synchronize());  // a read does not wait for a write that is under way
  EXPECT_TRUE(other->boolForKey("flag"));
  token.cancel();
  other->removeObjectForKey("units");
  EXPECT_TRUE(other->synchronize());
  EXPECT_TRUE(mine->synchronize());
  EXPECT_EQ(mine->objectForKey("units"), std::nullopt);
}

// Catches a store that takes more than the user's cloud does.
TEST(UbiquitousKeyValueStoreTests, WhatGoesBeyondTheLimitsIsRefusedAndTold) {
  const testing::ScopedDir dir;
  const auto store = makeFileUbiquitousKeyValueStore(dir.path(), "cloud");
  std::vector<std::string> refused;
  auto token = store->observeExternalChanges([&](const auto& change) {
    EXPECT_EQ(change.reason, Store::ChangeReason::quotaViolation);
    refused.push_back(change.keys.at(0));
  });
  store->setObject(std::string(Store::kMaxBytes - 100, 'x'), "large");
  store->setObject(std::string(200, 'x'), "too much");
  store->setObject("small", "large");
  EXPECT_THAT(refused, ElementsAre("too much"));
  EXPECT_EQ(store->dictionaryRepresentation(), (PropertyList::Dictionary{{"large", "small"}}));
}

}  // namespace
}  // namespace ombrix::platform
