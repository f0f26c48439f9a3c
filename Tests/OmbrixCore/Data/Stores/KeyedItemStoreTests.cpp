#include "OmbrixCore/Data/Stores/KeyedItemStore.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <random>
#include <semaphore>
#include <thread>

#include "OmbrixCore/Data/Stores/CachedKeyedItemStore.hpp"
#include "OmbrixCore/Data/Stores/PlistFileStore.hpp"
#include "OmbrixPlatform/Files/FileManager.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/ScopedService.hpp"
#include "StoredDay.hpp"

namespace ombrix {
namespace {

namespace fs = std::filesystem;
using platform::Data;
using platform::URL;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using testing::RecordingLog;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

// Catches a file name that leads out of its folder, or is not the one other versions use.
TEST(SanitizedFileNameTests, KeepsWhatFileNamesMayHold) {
  struct Case {
    std::string_view key, name;
  };
  const Case cases[] = {
      {"plain key-1.2", "plain key-1.2"},
      {"a/b", "ab"},
      {"../../etc", "....etc"},
      {"\\?%*|\"<>/", ""},
      {"$+<=>^`|~", ""},
      {"!#&'(),-.:;@[]_{}", "!#&'(),-.:;@[]_{}"},
      {"line\nbreak\r\v\f", "linebreak"},
      {std::string_view("nul\0nul", 7), "nulnul"},
      {"tab\tstays", "tab\tstays"},
      {"Zürich Ångström é", "Zurich Angstrom e"},
      {"e\xCC\x81", "e"},
      {"Straße Æsir Øre Þór", "Strase AEsir Ore thor"},
      {"Łódź", "odz"},
      {"a\xC2\xA0"
       "b…",
       "a b..."},
      {"日本", ""},
      {"\xFF\xFE", ""},
  };
  for (const auto& [key, name] : cases) EXPECT_EQ(sanitizedFileName(key), name) << key;
}

class InMemoryKeyedStoreTests : public ::testing::Test {
 protected:
  using Store = InMemoryKeyedStore<int>;

  void put(const Store& store, const std::string& key, int value) {
    store.store(value, key).get();
    clock_->advance(platform::TimeInterval(1));
  }

  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  testing::ScopedService<platform::Clock> scopedClock_{platform::services().clock, clock_};
};

// Catches the wrong item going, or none, when a full store takes one more, new or not.
TEST_F(InMemoryKeyedStoreTests, FullStoreEvictsTheOldest) {
  const Store store(3);
  for (const char* key : {"a", "b", "c"}) put(store, key, 1);
  put(store, "d", 1);
  EXPECT_THAT(store.keys().get(), UnorderedElementsAre("b", "c", "d"));
  put(store, "d", 2);
  EXPECT_THAT(store.keys().get(), UnorderedElementsAre("c", "d")) << "replacing evicts, too";
  EXPECT_EQ(store.value("d").get(), 2);
  EXPECT_EQ(store.size().get(), 2 * sizeof(int));
  EXPECT_EQ(store.age("d").get(), 1.0);
  EXPECT_EQ(store.age("a").get(), std::nullopt);

  const Store none(0);
  put(none, "a", 1);
  put(none, "b", 1);
  EXPECT_THAT(none.keys().get(), ElementsAre("b")) << "the new one always stays";
}

// Catches evictions in another order than a sort by date, when the clock stands or goes back, and
// an index that no longer fits after replacing and removing; and counts that are off.
TEST_F(InMemoryKeyedStoreTests, EvictsInTheOrderOfDates) {
  std::mt19937 random(7);
  const Store store;
  std::vector<std::tuple<platform::Date, int, std::string>> expected;
  for (int i = 0; i < 300; ++i) {
    clock_->setNow(platform::dateSince1970(static_cast<double>(random() % 20)));
    const std::string key = std::to_string(random() % 100);
    std::erase_if(expected, [&](const auto& entry) { return std::get<2>(entry) == key; });
    if (random() % 5 == 0) {
      store.purge(key).get();
    } else {
      store.store(i, key).get();
      expected.emplace_back(clock_->now(), i, key);
    }
  }
  std::ranges::sort(expected);
  const auto count = static_cast<std::int64_t>(expected.size());
  store.purgeOldest(count).get();
  store.purgeOldest(count + 5).get();
  EXPECT_EQ(store.keys().get().size(), expected.size());
  store.purgeOldest(20).get();
  std::vector<std::string> left;
  for (const auto& [date, order, key] : std::span(expected).last(20)) left.push_back(key);
  EXPECT_THAT(store.keys().get(), ::testing::UnorderedElementsAreArray(left));
  store.purgeOldest(-3).get();
  EXPECT_THAT(store.keys().get(), IsEmpty());
  EXPECT_DEATH(store.purgeOldest(INT64_MIN).get(), "too few");
  EXPECT_DEATH(Store(INT64_MIN).store(1, "a").get(), "too low");
}

// Catches a memory warning that reaches no store, one that was not to hear of it, or a dead one.
TEST_F(InMemoryKeyedStoreTests, MemoryWarningEmptiesTheStore) {
  const testing::ScopedService scoped(platform::services().memoryWarnings,
                                      std::make_shared<platform::MemoryWarningSource>());
  auto& warning = platform::UIApplicationDidReceiveMemoryWarningNotification();
  const Store plain(std::nullopt, false);
  put(plain, "a", 1);
  Store(std::nullopt, true).keys().get();
  const Store purging(std::nullopt, true);
  put(purging, "a", 1);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (purging.exists("a").get() && std::chrono::steady_clock::now() < deadline) {
    warning.send();
    std::this_thread::yield();
  }
  EXPECT_FALSE(purging.exists("a").get());
  EXPECT_TRUE(plain.exists("a").get());
}

class DiskKeyedStoreTests : public ::testing::TestWithParam<bool> {
 protected:
  DiskKeyedStoreTests() {
    if (GetParam()) directories_.setGroupContainer(true);
  }
  fs::path folder() const {
    return directories_.dir().path() / (GetParam() ? "group" : "elsewhere") / "days";
  }
  URL url() const { return URL::fileURL(folder().string(), true); }

  testing::ScopedDirectories directories_;
  RecordingLog log_;
};

INSTANTIATE_TEST_SUITE_P(, DiskKeyedStoreTests, ::testing::Values(false, true),
                         [](const auto& test) {
                           return test.param ? "Coordinated" : "Uncoordinated";
                         });

// Catches values that do not come back, also in a later run, files of other names, and a store that
// lists, counts or removes what is not its own.
TEST_P(DiskKeyedStoreTests, ItemsComeBackByKey) {
  const StoredDay monday{"Monday", 1, {}}, tuesday{"Tuesday", 2, {3}};
  const PlistKeyedItemStore<StoredDay> store(url(), 3);
  EXPECT_THAT(store.keys().get(), IsEmpty());
  EXPECT_EQ(store.size().get(), 0U);
  EXPECT_EQ(store.age("Monday").get(), std::nullopt);
  store.purgeOldest(1).get();
  EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Data: Error purging in disk store: ")));

  store.store(monday).get();
  store.store(tuesday, "a/b").get();
  EXPECT_TRUE(fs::exists(folder() / "Monday.data"));
  EXPECT_EQ(store.value("ab").get(), tuesday) << "the same file";
  directories_.dir().write(folder() / "sub/other.data", "x");
  directories_.dir().write(folder() / "sub/ab.data", "x");
  directories_.dir().write(folder() / "note.txt", "x");
  directories_.dir().write(folder() / ".data", "x");
  EXPECT_THAT(store.keys().get(), UnorderedElementsAre("Monday", "ab", "other"));
  EXPECT_GE(store.size().get(), 4096U);
  EXPECT_THAT(store.age("Monday").get(), ::testing::Optional(::testing::Lt(60.0)));
  EXPECT_TRUE(store.exists("a/b").get());

  const PlistKeyedItemStore<StoredDay> later(url());
  later.purge("Monday").get();
  EXPECT_TRUE(later.exists("Monday").get()) << "not opened by this store";
  EXPECT_EQ(later.value("Monday").get(), monday);
  later.purge(monday).get();
  EXPECT_FALSE(later.exists("Monday").get());
  store.purge().get();
  EXPECT_FALSE(fs::exists(folder()));
  store.purge().get();
  store.store(tuesday, "a/b").get();
  EXPECT_EQ(store.value("a/b").get(), tuesday);
}

// Catches an eviction that goes by the key, or removes files that nobody has opened by full name.
TEST_P(DiskKeyedStoreTests, OldestGoOnlyByFullName) {
  const DataKeyedItemStore store(url(), "data", 1);
  for (const char* key : {"a", "b", "c"}) store.store(Data(10), key).get();
  store.purgeOldest(0).get();
  EXPECT_EQ(store.keys().get().size(), 3U);
  // Opens "a.data.data", which then is written; its key is the name of another file.
  store.store(Data(10), "a.data").get();
  for (const auto& [file, age] : {std::pair("a", 40), {"b", 30}, {"c", 20}, {"a.data", 10}}) {
    fs::last_write_time(folder() / (std::string(file) + ".data"),
                        fs::file_time_type::clock::now() - std::chrono::seconds(age));
  }
  store.purgeOldest(4).get();
  EXPECT_TRUE(store.exists("a.data").get());
  store.purgeOldest(3).get();
  EXPECT_THAT(store.keys().get(), UnorderedElementsAre("a", "b", "c"));
}

// Catches a broken file that stays, is reported wrongly, or harms another key.
TEST_P(DiskKeyedStoreTests, BadFilesAreLogged) {
  const PlistKeyedItemStore<StoredDay> store(url());
  const StoredDay good{"good", 1, {}};
  store.store(good).get();
  directories_.dir().write(folder() / "bad.data", "no property list");
  EXPECT_EQ(store.value("bad").get(), std::nullopt);
  EXPECT_THAT(log_.takeErrors(),
              ElementsAre(StartsWith("Data: Error reading plist for bad in store, deleting: ")));
  EXPECT_EQ(log_.lines().back().file, "OmbrixCore/Data/KeyedItemStore");
  EXPECT_FALSE(fs::exists(folder() / "bad.data"));
  EXPECT_EQ(store.value("good").get(), good);
  EXPECT_EQ(store.value("missing").get(), std::nullopt);
  EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Error reading the object: ")));

  const std::string tooLong(300, 'x');
  store.store(good, tooLong).get();
  EXPECT_THAT(log_.takeErrors(),
              ElementsAre(StartsWith("Data: Error saving data to file for in store: ")));
  PlistKeyedItemStore<Unencodable>(url()).store(Unencodable(), "good").get();
  EXPECT_THAT(log_.takeErrors(),
              ElementsAre(StartsWith("Data: Error encoding plist for good in store: ")));
  EXPECT_EQ(store.value("good").get(), good);

  const PlistKeyedItemStore<StoredDay> file(URL::fileURL((folder() / "good.data").string(), true));
  EXPECT_THAT(file.keys().get(), IsEmpty());
  EXPECT_THAT(log_.takeErrors(),
              ElementsAre(StartsWith("Data: Error getting keys for disk store: ")));
}

// Catches a reader of a broken file that removes, or misses, what is stored before it is done; and
// memory that stays for every key that was asked for in vain.
TEST_P(DiskKeyedStoreTests, WhatIsStoredMeanwhileStays) {
  const PlistKeyedItemStore<Interrupted> store(url());
  directories_.dir().write(folder() / "k.data",
                           "<plist version=\"1.0\"><integer>1</integer></plist>");
  Interrupted::whileDecoding = [&] {
    PlistFileStore<Interrupted>(store.backingDiskStore().path("k")).setValue(Interrupted{7});
    throw std::runtime_error("broken");
  };
  EXPECT_EQ(store.value("k").get(), Interrupted{7});
  const DataKeyedItemStore data(url(), "data");
  for (int i = 0; i < 1100; ++i) data.value("miss" + std::to_string(i)).get();
  for (const char* key : {"miss0", "miss1099"}) {
    directories_.dir().write(folder() / (std::string(key) + ".data"), "x");
    data.purge(key).get();
  }
  EXPECT_TRUE(data.exists("miss0").get()) << "forgotten";
  EXPECT_FALSE(data.exists("miss1099").get()) << "counts as opened";
  for (int i = 0; i < 1100; ++i) data.value("polled").get();
  data.value("another").get();
  directories_.dir().write(folder() / "polled.data", "x");
  data.purge("polled").get();
  EXPECT_FALSE(data.exists("polled").get()) << "forgotten too early";
  log_.takeErrors();
}

// Catches a cache that answers from the wrong store, misses what is only in one, or is not filled.
TEST_P(DiskKeyedStoreTests, CacheJoinsBothStores) {
  using Store = CachedKeyedItemStore<StoredDay>;
  const InMemoryKeyedStore<StoredDay> memory(10);
  const PlistKeyedItemStore<StoredDay> disk(url());
  const Store store(memory, disk);
  const StoredDay day{"a/b", 1, {}};
  store.store(day).get();
  EXPECT_TRUE(memory.exists("a/b").get());
  EXPECT_TRUE(disk.exists("a/b").get());
  store.store(day, "m", Store::StoreType::memory).get();
  store.store(day, "d", Store::StoreType::disk).get();
  EXPECT_THAT(store.keys().get(), UnorderedElementsAre("a/b", "m", "d"));
  EXPECT_FALSE(memory.exists("d").get());
  EXPECT_TRUE(store.exists("d").get());
  EXPECT_EQ(store.value("d").get(), day);
  EXPECT_TRUE(memory.exists("d").get());
  EXPECT_EQ(store.value("m").get(), day);
  EXPECT_TRUE(store.age("m").get().has_value());
  EXPECT_GT(store.size().get(), 2 * 4096U);
  store.purgeOldest(1).get();
  EXPECT_THAT(memory.keys().get(), ElementsAre("d"));
  EXPECT_EQ(disk.keys().get().size(), 2U);
  store.purge("d").get();
  EXPECT_FALSE(store.exists("d").get());
  store.purge().get();
  EXPECT_THAT(store.keys().get(), IsEmpty());
}

// Catches a reader that puts what it has found on disk into memory after it was replaced or purged
// there.
TEST(CachedKeyedItemStoreTests, WhatIsReplacedStaysReplaced) {
  testing::ScopedDirectories directories;
  RecordingLog log;
  using Store = CachedKeyedItemStore<Interrupted>;
  struct Case {
    const char* name;
    std::function<platform::Async<void>(const Store&)> change;
    std::optional<int> expected;
  };
  const Case cases[] = {
      {"stored", [](const Store& s) { return s.store(Interrupted{2}, "k"); }, 2},
      {"inMemory",
       [](const Store& s) { return s.store(Interrupted{2}, "k", Store::StoreType::memory); }, 2},
      {"removed", [](const Store& s) { return s.store(std::nullopt, "k"); }, std::nullopt},
      {"purged", [](const Store& s) { return s.purge("k"); }, std::nullopt},
      {"allPurged", [](const Store& s) { return s.purge(); }, std::nullopt},
      {"another", [](const Store& s) { return s.store(Interrupted{2}, "other"); }, 1},
  };
  for (const auto& [name, change, expected] : cases) {
    const URL folder = URL::fileURL((directories.dir().path() / name).string(), true);
    const Store store{InMemoryKeyedStore<Interrupted>(), PlistKeyedItemStore<Interrupted>(folder)};
    store.store(Interrupted{1}, "k", Store::StoreType::disk).get();
    std::binary_semaphore decoding{0}, mayGoOn{0};
    Interrupted::whileDecoding = [&] {
      decoding.release();
      mayGoOn.acquire();
    };
    auto reading = store.value("k").start();
    decoding.acquire();
    auto changing = change(store).start();
    // Those that encode wait for the reader.
    const std::string_view changed = name;
    if (changed != "stored" && changed != "another") changing.get();
    mayGoOn.release();
    EXPECT_EQ(reading.get()->number, 1) << name;
    changing.get();
    if (changed == "another") fs::remove_all(folder.path());  // memory has it
    const auto after = store.value("k").get();
    EXPECT_EQ(after ? std::optional(after->number) : std::nullopt, expected) << name;
  }
  log.takeErrors();  // of the files that are gone
}

// Catches memory that keeps another value than the disk, after a reader beside a writer, two
// writers of one key, and a writer beside a purge.
TEST(CachedKeyedItemStoreTests, MemoryAndDiskAgree) {
  testing::ScopedDirectories directories;
  RecordingLog log;
  using Store = CachedKeyedItemStore<Interrupted>;
  const URL folder = URL::fileURL((directories.dir().path() / "items").string(), true);
  const PlistKeyedItemStore<Interrupted> disk(folder);
  const Store store{InMemoryKeyedStore<Interrupted>(), disk};
  for (int round = 0; round < 20; ++round) {
    store.purge("k").get();
    store.store(Interrupted{1}, "k", Store::StoreType::disk).get();
    std::binary_semaphore encoding{0}, mayGoOn{0};
    Interrupted::whileEncoding = [&] {
      encoding.release();
      mayGoOn.acquire();
    };
    auto changing = store.store(Interrupted{2}, "k", Store::StoreType::disk).start();
    encoding.acquire();
    auto reading = store.value("k").start();
    for (int i = 0; i < 10; ++i) disk.age("k").get();  // mostly the reader has the file by then
    mayGoOn.release();
    reading.get();
    changing.get();
    EXPECT_EQ(store.value("k").get(), Interrupted{2});
  }
  const std::function<platform::Async<void>()> others[] = {
      [&] { return store.store(Interrupted{3}, "k"); },
      [&] { return store.purge("k"); },
      [&] { return store.purge(); },
  };
  for (const auto& other : others) {
    for (int round = 0; round < 200; ++round) {
      auto storing = store.store(Interrupted{2}, "k").start();
      auto changing = other().start();
      storing.get();
      changing.get();
      EXPECT_EQ(store.value("k").get(), disk.value("k").get()) << &other - others;
    }
  }
  log.takeErrors();  // of the files that are gone
}

}  // namespace
}  // namespace ombrix
