#include "OmbrixCore/Data/Stores/ItemStore.hpp"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <barrier>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <semaphore>
#include <thread>

#include "OmbrixCore/Data/Stores/CachedItemStore.hpp"
#include "OmbrixCore/Data/Stores/Persisted.hpp"
#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/WithoutOverride.hpp"
#include "StoredDay.hpp"

namespace ombrix {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using platform::Data;
using platform::URL;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::RecordingLog;
using ::testing::StartsWith;

static_assert(ItemStore<PlistFileStore<StoredDay>> && ItemStore<CachedItemStore<StoredDay>>);
static_assert(!std::default_initializable<CachedItemStore<int>>);

/// Every store is tried inside the group container, with coordination, and outside.
class ItemStoreTests : public ::testing::TestWithParam<bool> {
 protected:
  ItemStoreTests() {
    if (GetParam()) directories_.setGroupContainer(true);
  }

  fs::path path(const fs::path& name = "item.data") const {
    return directories_.dir().path() / (GetParam() ? "group" : "elsewhere") / "stores" / name;
  }
  URL url(const fs::path& name = "item.data") const { return URL::fileURL(path(name).string()); }

  testing::ScopedDirectories directories_;
  RecordingLog log_;
};

INSTANTIATE_TEST_SUITE_P(, ItemStoreTests, ::testing::Values(false, true), [](const auto& test) {
  return test.param ? "Coordinated" : "Uncoordinated";
});

// Catches bytes that do not come back, an old tail behind a shorter value, a folder that is not
// made, and a purge that fails or logs without need.
TEST_P(ItemStoreTests, DataComesBack) {
  const DataFileStore store(url());
  EXPECT_EQ(store.coordinator() != nullptr, GetParam());
  EXPECT_FALSE(store.exists());
  EXPECT_EQ(store.size(), 0U);
  store.purge();
  for (const std::size_t size : {1000UL, 1UL, 0UL, 5000UL}) {
    const Data bytes(size, std::byte{7});
    store.setValue(bytes);
    EXPECT_EQ(store.value(), bytes) << size;
    EXPECT_TRUE(store.exists());
  }
  EXPECT_GE(store.size(), 5000U);
  store.setValue(std::nullopt);
  EXPECT_FALSE(store.exists());
}

// Catches a wrong or missing message, a value made up for a broken file, and a broken file that
// stays: what is there, what reading it logs, and whether it is there afterwards.
TEST_P(ItemStoreTests, BadFilesAreLogged) {
  constexpr std::string_view kReading = "Error reading the object: ";
  constexpr std::string_view kDecoding = "Data: Error reading plist for store, deleting: ";
  const Data whole = platform::PropertyListEncoder().encode(StoredDay{"Monday", 7, {1, 2}});
  const std::string file(platform::textOf(whole));
  struct Case {
    const char* name;
    std::string contents;
    std::string_view message;
  };
  const Case cases[] = {
      {"noPropertyList", "not a property list", kDecoding},
      {"cut", file.substr(0, file.size() - 9), kDecoding},
      {"empty", "", kDecoding},
      {"unfinishedWrite", '\0' + file.substr(1), kDecoding},
      {"anotherType", std::string(platform::textOf(platform::PropertyListEncoder().encode(5))),
       kDecoding},
      {"xmlOfAnotherType", "<plist version=\"1.0\"><array/></plist>", kDecoding},
  };
  for (const Case& bad : cases) {
    fs::create_directories(path().parent_path());
    directories_.dir().write(path(bad.name), bad.contents);
    EXPECT_EQ(PlistFileStore<StoredDay>(url(bad.name)).value(), std::nullopt) << bad.name;
    EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith(std::string(bad.message)))) << bad.name;
    EXPECT_FALSE(fs::exists(path(bad.name))) << bad.name;
  }
  EXPECT_EQ(PlistFileStore<StoredDay>(url("missing")).value(), std::nullopt);
  EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith(std::string(kReading))));
  EXPECT_EQ(log_.lines().back().file, "OmbrixCore/Data/ItemStore");
  EXPECT_EQ(log_.lines().back().function, "doRead(url:)");
}

/// Two arrays of 4,096 references, each to the next object, and a truth value.
std::string expandingList() {
  const auto array = [](char next) {
    return std::string("\xAF\x11\x10\0", 4) + std::string(4096, next);
  };
  return "bplist00" + array(1) + array(2) + '\x09' +
         std::string(
             "\0\x08\x10\x0C\x20\x10\0\0\0\0\0\0\x02\x01"
             "\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x20\x11",
             38);
}

// Catches a file that is removed, waited for or believed though nothing says that it is broken.
TEST_P(ItemStoreTests, FilesThatCannotBeReadStay) {
  PlistFileStore<StoredDay>(url("large")).setValue(StoredDay{"large", 1, std::vector(200, 1.0)});
  directories_.dir().write(path("endless"), "bplist00");
  fs::resize_file(path("endless"), std::uintmax_t{1} << 40);
  ASSERT_EQ(::mkfifo(path("pipe").c_str(), 0600), 0);
  PlistFileStore<Unholdable>(url("unholdable")).setValue(Unholdable());
  directories_.dir().write(path("expanding"), expandingList());
  using Expanding = std::vector<std::vector<bool>>;
  EXPECT_EQ(PlistFileStore<Expanding>(url("expanding")).value(), std::nullopt);
  EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Error reading the object: The property")));
  EXPECT_TRUE(fs::exists(path("expanding")));
  DataFileStore::setSizeLimitBytes(1000);
  for (const char* name : {"large", "endless", "pipe", "unholdable"}) {
    EXPECT_EQ(PlistFileStore<Unholdable>(url(name)).value(), std::nullopt) << name;
    EXPECT_EQ(CachedItemStore<Unholdable>(url(name), {}).value(), Unholdable()) << name;
    EXPECT_THAT(log_.takeErrors(), ::testing::SizeIs(2)) << name;
    EXPECT_THAT(log_.lines().back().message, StartsWith("Error reading the object: ")) << name;
    EXPECT_TRUE(fs::exists(path(name))) << name;
  }
  const CachedItemStore<Uncopyable> copied(url("copied"), {});
  directories_.dir().write(path("copied"),
                           "<plist><dict><key>number</key><integer>7</integer>"
                           "</dict></plist>");
  Uncopyable::hasNoMemory = true;
  EXPECT_THROW(static_cast<void>(copied.value()), std::bad_alloc);
  Uncopyable::hasNoMemory = false;
  EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Error reading the object: ")));
  EXPECT_EQ(copied.value().number, 7);
  const DataFileStore limited(url("limited")), pipe(url("pipe"));
  limited.setValue(Data(1000));
  limited.setValue(Data(1001));
  pipe.setValue(Data(1));
  EXPECT_THAT(log_.takeErrors(), ::testing::SizeIs(2));
  EXPECT_EQ(limited.value()->size(), 1000U);
  DataFileStore::setSizeLimitBytes(DataFileStore::kUsualSizeLimitBytes);
}

// Catches a reader of a broken file that removes, or misses, what is stored before it is done.
TEST_P(ItemStoreTests, WhatIsStoredMeanwhileStays) {
  using Store = PlistFileStore<Interrupted>;
  directories_.dir().write(path(), "<plist version=\"1.0\"><integer>1</integer></plist>");
  Interrupted::whileDecoding = [&] {
    Store(url()).setValue(Interrupted{7});
    throw std::runtime_error("broken");
  };
  EXPECT_EQ(Store(url()).value(), Interrupted{7});
  EXPECT_TRUE(fs::exists(path()));
  EXPECT_THAT(log_.takeErrors(), ::testing::SizeIs(1));
  // Somebody is still writing.
  std::ofstream writing(path("begun"));
  const CachedItemStore<int> store(url("begun"), 0);
  EXPECT_EQ(store.value(), 0);
  EXPECT_TRUE(fs::exists(path("begun")));
  writing << "<plist version=\"1.0\"><integer>7</integer></plist>";
  writing.close();
  EXPECT_EQ(store.value(), 7);
  log_.takeErrors();
}

// Catches a writer who gives up while another process is removing the broken file, or keeps other
// files waiting for that, too.
TEST(ItemStoreRemovalTests, AWriterWaitsForARemovalAlone) {
  const testing::ScopedDir dir;
  RecordingLog log;
  const auto path = dir.write("a/item", "broken"), other = dir.write("b/item", "broken");
  platform::detail::Descriptor removing(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  ::fcntl(removing.get(), F_SETSIG, SIGURG);
  if (::fcntl(removing.get(), F_SETLEASE, F_RDLCK) != 0) GTEST_SKIP() << "no leases on this disk";
  std::jthread writer([&path] { PlistFileStore<int>(URL::fileURL(path.string())).setValue(1); });
  EXPECT_TRUE(testing::eventually([&] { return ::fcntl(removing.get(), F_GETLEASE) != F_RDLCK; }));
  const PlistFileStore<int> another(URL::fileURL(other.string()));
  another.setValue(2);
  EXPECT_EQ(another.value(), 2);
  removing.reset();
  writer.join();
  EXPECT_EQ(PlistFileStore<int>(URL::fileURL(path.string())).value(), 1);
  EXPECT_THAT(log.takeErrors(), IsEmpty());
}

// Catches wrong messages, or any harm to what is there, where files cannot be read or written.
TEST_P(ItemStoreTests, FailingFilesAreLogged) {
  constexpr const char* kSaving = "Data: Error saving data to file for in store: ";
  fs::create_directories(path("folder/child"));
  const PlistFileStore<int> folder(url("folder"));
  folder.setValue(1);
  EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith(kSaving)));
  EXPECT_EQ(folder.value(), std::nullopt);
  EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Error reading the object: ")));
  EXPECT_TRUE(fs::exists(path("folder/child")));

  const PlistFileStore<int> kept(url("kept"));
  kept.setValue(1);
  fs::permissions(path("kept"), fs::perms::none);
  fs::permissions(path().parent_path(), fs::perms::owner_read | fs::perms::owner_exec);
  {
    const testing::WithoutOverride withoutOverride;
    EXPECT_EQ(kept.value(), std::nullopt);
    EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Error reading the object: ")));
    kept.setValue(2);
    EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith(kSaving)));
    kept.purge();
    EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Error writing the object: ")));
    PlistFileStore<int>(url("new/one")).setValue(1);
    EXPECT_THAT(log_.takeErrors(), ElementsAre(StartsWith("Filesystem: Error creating folder: "),
                                               StartsWith(kSaving)));
  }
  fs::permissions(path().parent_path(), fs::perms::owner_all);
  fs::permissions(path("kept"), fs::perms::owner_all);
  EXPECT_EQ(kept.value(), 1);
  PlistFileStore<Unencodable>(url("kept")).setValue(Unencodable());
  EXPECT_THAT(log_.takeErrors(),
              ElementsAre(StartsWith("Data: Error encoding plist for in store: ")));
  EXPECT_EQ(kept.value(), 1);
}

// Catches coordination errors that are swallowed, mislabelled, or do not keep off the file.
TEST(ItemStoreCoordinationTests, CoordinationErrorsAreLogged) {
  testing::ScopedDirectories directories;
  RecordingLog log;
  directories.setGroupContainer(true);
  const fs::path group = directories.dir().path() / "group";
  const DataFileStore store(URL::fileURL((group / "a").string()));
  fs::create_directories(group / ".filecoordination");
  EXPECT_EQ(store.value(), std::nullopt);
  store.setValue(Data(3));
  store.purge();
  EXPECT_THAT(log.takeErrors(), ElementsAre(StartsWith("Error reading the object: "),
                                            StartsWith("Error saving the object: "),
                                            StartsWith("Error purging the object: ")));
  EXPECT_FALSE(store.exists());
  // By characters, not by path components.
  const DataFileStore near(URL::fileURL(group.string() + "-2/a"));
  EXPECT_NE(near.coordinator(), nullptr);
}

// Catches a registered store that publishes again when it has written or purged its own file, and
// one that does not hear of what others write.
TEST(ItemStoreCoordinationTests, RegisteredStoreHearsOfOthersOnly) {
  testing::ScopedDirectories directories;
  RecordingLog log;
  directories.setGroupContainer(true);
  const URL url = URL::fileURL((directories.dir().path() / "group/item.data").string());
  PlistFileStore<int>(url).setValue(1);
  const CachedItemStore<int> store(url, 0);
  const PlistFileStore<int> other(url);
  EXPECT_EQ(store.value(), 1);
  std::mutex mutex;
  std::vector<int> seen;
  std::counting_semaphore<> published{0};
  auto subscription = store.sink([&](const int& value) {
    const std::lock_guard lock(mutex);
    seen.push_back(value);
    published.release();
  });
  const auto takeSeen = [&] {
    const std::lock_guard lock(mutex);
    return std::exchange(seen, {});
  };
  const auto isPublished = [&](std::chrono::milliseconds within) {
    return published.try_acquire_for(within);
  };
  platform::NSFileCoordinator::addFilePresenter(store.filePresenter());
  for (int i = 2; i < 12; ++i) {
    store.setValue(i);
    store.flush();
    EXPECT_EQ(other.value(), i);
  }
  store.purge();
  EXPECT_THAT(takeSeen(), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0));
  while (isPublished(0ms)) {
  }
  EXPECT_FALSE(isPublished(100ms));
  other.setValue(7);
  EXPECT_TRUE(isPublished(30s));
  EXPECT_FALSE(isPublished(50ms));
  EXPECT_THAT(takeSeen(), ElementsAre(0)) << "the value in memory, again";
  log.takeErrors();  // reads after the purge, if any
  platform::NSFileCoordinator::removeFilePresenter(store.filePresenter());
}

// Catches a default that is not used, values that subscribers miss or see twice, a value that is
// not written back, and a load that happens twice or not at all.
TEST_P(ItemStoreTests, CachedValueIsPublishedAndKept) {
  const StoredDay none{"none", 0, {}}, monday{"Monday", 1, {1.5}}, tuesday{"Tuesday", 2, {}};
  {
    const CachedItemStore<StoredDay> store(url(), none);
    std::vector<std::string> seen;
    auto subscription = store.sink([&](const StoredDay& day) { seen.push_back(day.name); });
    EXPECT_EQ(store.value(), none);
    log_.takeErrors();  // the missing file
    store.setValue(monday);
    EXPECT_EQ(store.value(), monday);
    store.presentedItemDidChange();
    store.flush();
    EXPECT_GT(store.size(), 0U);
    EXPECT_THAT(seen, ElementsAre("none", "Monday", "Monday"));
    EXPECT_EQ(store.presentedItemURL(), url());
    EXPECT_EQ(store.presentedItemOperationQueue()->name(), "Store for item.data");
    EXPECT_EQ(store.presentedItemOperationQueue()->maxConcurrentOperationCount(), 1);
  }
  EXPECT_EQ(PlistFileStore<StoredDay>(url()).value(), monday);
  const CachedItemStore<StoredDay> store(url(), none);
  store.setValue(tuesday);
  store.flush();
  EXPECT_EQ(PlistFileStore<StoredDay>(url()).value(), tuesday);
  PlistFileStore<StoredDay>(url()).setValue(monday);
  EXPECT_EQ(store.value(), monday) << "the first read takes the file's value";
  PlistFileStore<StoredDay>(url()).setValue(tuesday);
  EXPECT_EQ(store.value(), monday) << "the file is read once";
  store.purge();
  EXPECT_FALSE(store.exists());
  PlistFileStore<StoredDay>(url()).setValue(tuesday);
  EXPECT_EQ(store.value(), none) << "not even after a purge";
}

// Catches a write that lands after a later one, or after a purge.
TEST_P(ItemStoreTests, TheLastWriteStays) {
  const CachedItemStore<int> store(url(), 0);
  const PlistFileStore<int> file(url());
  for (int round = 0; round < 50; ++round) {
    for (int i = 0; i <= round % 7; ++i) store.setValue(100 * round + i);
    store.flush();
    EXPECT_EQ(file.value(), 100 * round + round % 7);
    store.setValue(-1);
    store.purge();
    EXPECT_FALSE(store.exists());
    store.flush();
    EXPECT_FALSE(store.exists()) << "it came back";
  }
  // Of threads that set at once, the disk has what memory has.
  PlistFileStore<int>(url("shared")).setValue(1);
  const CachedItemStore<int> shared(url("shared"), 0);
  EXPECT_EQ(shared.value(), 1);
  // Others who have it published again do not bring an older value back.
  std::jthread teller([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) shared.presentedItemDidChange();
  });
  for (int i = 0; i < 5'000; ++i) {
    shared.setValue(i);
    ASSERT_EQ(shared.value(), i);
  }
  teller = {};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 100; ++round) shared.setValue(1000 * i + round);
    });
  }
  for (auto& thread : threads) thread.join();
  shared.flush();
  EXPECT_EQ(shared.value(), CachedItemStore<int>(url("shared"), 0).value());
}

// Catches a coordinator that keeps the store alive, and a presenter that leads nowhere after it.
TEST_P(ItemStoreTests, CoordinatorHoldsTheStoreWeakly) {
  auto store = std::make_unique<CachedItemStore<int>>(url(), 1);
  const std::weak_ptr<platform::NSFilePresenter> presenter = store->filePresenter();
  const detail::PresenterWrapper wrapper(presenter);
  EXPECT_EQ(wrapper.presentedItemURL(), url());
  EXPECT_EQ(wrapper.presentedItemOperationQueue(), store->presentedItemOperationQueue());
  store.reset();
  EXPECT_TRUE(presenter.expired());
  EXPECT_EQ(wrapper.presentedItemURL(), std::nullopt);
  EXPECT_EQ(wrapper.presentedItemOperationQueue()->name(), "PresenterWrapper weak queue");
}

// Catches first readers that load twice or return before the load, and writers or readers of one
// file in one process that see each other's half-written values, however they name the file.
TEST_P(ItemStoreTests, ThreadsShareOneFile) {
  const std::vector<double> ones(2000, 1), twos(900, 2);
  const StoredDay first{"first", 1, ones}, second{"second", 2, twos};
  PlistFileStore<StoredDay>(url()).setValue(first);
  fs::create_directory_symlink(path().parent_path(), path("link"));
  fs::create_symlink("item.data", path("alias"));
  fs::create_symlink("nothing yet", path("dangling"));
  const char* const names[] = {"item.data", "link/./item.data", "alias", "link/alias"};
  const CachedItemStore<StoredDay> cached(url(), StoredDay{});
  std::barrier loaded(4);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      EXPECT_EQ(cached.value(), first);
      loaded.arrive_and_wait();
      const PlistFileStore<StoredDay> own(url(names[i]));
      for (int round = 0; round < 50; ++round) {
        if (i % 2 == 0) own.setValue(round % 2 == 0 ? second : first);
        const auto value = own.value();
        EXPECT_TRUE(value == first || value == second);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const PlistFileStore<int> alias(url("alias")), dangling(url("dangling"));
  EXPECT_GE(alias.size(), 1000U);
  alias.purge();
  EXPECT_FALSE(fs::exists(path())) << "what the link leads to";
  dangling.setValue(3);
  EXPECT_EQ(PlistFileStore<int>(url("nothing yet")).value(), 3);
}

// Catches a wrapper that keeps a value of its own, loses a change that ends early, or does not
// publish.
TEST_P(ItemStoreTests, PersistedIsAFaceOfItsStore) {
  const URL folder = url().deletingLastPathComponent();
  const Persisted<int> count(5, folder, "count");
  EXPECT_EQ(count.wrappedValue(), 5);
  log_.takeErrors();
  const Persisted<int> copy = count;
  std::vector<int> seen;
  auto subscription = count.projectedValue().sink([&](const int& value) { seen.push_back(value); });
  copy.setWrappedValue(6);
  count.modifyWrappedValue([](int& value) { ++value; });
  EXPECT_THROW(count.modifyWrappedValue([](int& value) {
    value = 9;
    throw std::runtime_error("early");
  }),
               std::runtime_error);
  EXPECT_EQ(copy.wrappedValue(), 9);
  EXPECT_THAT(seen, ElementsAre(5, 6, 7, 9));
  count.flush();
  EXPECT_EQ(PlistFileStore<int>(url("count")).value(), 9);
}

}  // namespace
}  // namespace ombrix
