#include "OmbrixPlatform/Network/Detail/Caching/CacheKeyTable.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "OmbrixPlatform/Network/Detail/Caching/CachedAnswerCoding.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "URLCacheDiskFixture.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using namespace samples;
using detail::CacheKeyTable;

// Where the fields of a table's header lie.
constexpr int kMagicAt = 0, kBootAt = 8, kWidthAt = 44, kFileAt = 56, kBitsSetAt = 72,
              kStateAt = 80, kBitsAt = 128;

class CacheKeyTableTests : public URLCacheDiskFixture {
 protected:
  fs::path keys() const { return folder / "Cache.keys"; }
  void overwrite(int at, std::uint32_t value, int times = 1) const {
    std::fstream file(keys(), std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(at);
    for (; times > 0; --times) file.write(reinterpret_cast<const char*>(&value), sizeof value);
  }
  detail::FileIdentity databaseIdentity() const {
    return detail::identityOf(database()).value_or(detail::FileIdentity{});
  }
  std::unique_ptr<CacheKeyTable> table(std::int64_t bytes = kMiB) const {
    return std::make_unique<CacheKeyTable>(keys(), database(), bytes);
  }
  /// The server's word that a URL's answer must not be kept.
  void forbid(URLCache& cache, int n) const {
    load(cache, numberedRequest(n), answerOf(200, "Cache-Control: no-store", "secret"));
  }
  static std::int64_t hashOf(int n) {
    return detail::hashOf(numberedRequest(n).url.absoluteString());
  }
};

// Catches a key that is excluded although it was added here or elsewhere, and a table that is
// believed after it was retired, replaced or outgrown.
TEST_F(CacheKeyTableTests, IsOneForAllWhoMapIt) {
  dir.write("cache/Cache.db", "");
  const auto identity = databaseIdentity();
  constexpr std::int64_t kSmall = 10'000;
  const auto first = table(kSmall), second = table(), smaller = table(0);
  EXPECT_FALSE(first->excludes(hashOf(1)));
  EXPECT_TRUE(first->isNone());
  ASSERT_TRUE(first->make(identity, {hashOf(1), hashOf(2)}));
  EXPECT_EQ(static_cast<std::int64_t>(fs::file_size(keys())), CacheKeyTable::bytesWithin(kSmall));
  EXPECT_LE(CacheKeyTable::bytesWithin(kSmall), kSmall);
  ASSERT_TRUE(second->map(identity));
  EXPECT_FALSE(smaller->map(identity));
  for (const auto& each : {first.get(), second.get()}) {
    EXPECT_TRUE(each->serves(identity));
    EXPECT_FALSE(each->excludes(hashOf(1)) || each->excludes(hashOf(2)));
    EXPECT_TRUE(each->excludes(hashOf(3)));
  }
  second->add(hashOf(3));
  EXPECT_FALSE(first->excludes(hashOf(3)));

  ASSERT_TRUE(second->make(identity, {}));
  EXPECT_FALSE(first->excludes(hashOf(4)));
  EXPECT_FALSE(first->serves(identity));
  EXPECT_FALSE(first->map(identity));  // larger than its own
  ASSERT_TRUE(smaller->make(identity, {}));
  ASSERT_TRUE(first->map(identity));
  std::mt19937_64 random(1);
  int added = 0;
  for (; first->serves(identity); ++added) smaller->add(static_cast<std::int64_t>(random()));
  EXPECT_GT(added, 8192);  // half of its bits
  EXPECT_LT(added, 3 * 8192 / 2);
  EXPECT_TRUE(first->retire());
  EXPECT_TRUE(smaller->isNone());
  EXPECT_FALSE(smaller->serves(identity));
  for (std::int64_t n = 0; n < 100; ++n) EXPECT_FALSE(smaller->excludes(n << 54));
}

// Catches an answer that is lost to a table which is damaged, stale or another's; and such a table
// that stays.
TEST_F(CacheKeyTableTests, IsMadeAnewWhereItIsNotRight) {
  // clang-format off
  const struct {
    const char* name;
    std::function<void()> damage;
  } rows[]{
      {"missing",             [&] { fs::remove(keys()); }},
      {"empty",               [&] { fs::resize_file(keys(), 0); }},
      {"a cut header",        [&] { fs::resize_file(keys(), 100); }},
      {"short by a byte",     [&] { fs::resize_file(keys(), fs::file_size(keys()) - 1); }},
      {"long by a byte",      [&] { fs::resize_file(keys(), fs::file_size(keys()) + 1); }},
      {"another kind",        [&] { overwrite(kMagicAt, 1); }},
      {"of another boot",     [&] { overwrite(kBootAt, 1); }},
      {"of another database", [&] { overwrite(kFileAt, 1); }},
      {"no width",            [&] { overwrite(kWidthAt, 0); }},
      {"too large a width",   [&] { overwrite(kWidthAt, 77); }},
      {"not ready",           [&] { overwrite(kStateAt, 0); }},
      {"retired",             [&] { overwrite(kStateAt, 2); }},
      {"a link to another",   [&] { fs::rename(keys(), dir.path() / "other");
                                    fs::create_symlink(dir.path() / "other", keys()); }},
      {"a folder",            [&] { fs::remove(keys()), fs::create_directory(keys()); }},
  };
  // clang-format on
  for (const auto& [name, damage] : rows) {
    SCOPED_TRACE(name);
    const auto fill = [&](int from, int to) {
      const auto cache = open();
      for (int n = 0; n < from; ++n) EXPECT_EQ(get(*cache, n), numberedBody(n));
      for (int n = from; n < to; ++n) put(*cache, n);
      cache->flush();
    };
    fill(0, 10);
    overwrite(kBitsAt, 0, static_cast<int>((fs::file_size(keys()) - kBitsAt) / 4));
    damage();
    fill(10, 11);
    const auto made = table();
    EXPECT_EQ(made->map(databaseIdentity()), fs::is_regular_file(fs::symlink_status(keys())));
    for (int n = 0; n < 11; ++n) EXPECT_FALSE(made->excludes(hashOf(n))) << n;
    EXPECT_FALSE(hasDamaged());
    fs::remove_all(folder);
  }
}

// Catches an answer of another process that is taken for missing, while both write, clear and make
// the table anew.
TEST_F(CacheKeyTableTests, HidesNothingThatAnotherProcessKept) {
  const auto cache = open();
  const auto other = agent();
  std::jthread busy([&](const std::stop_token& stop) {
    const auto third = open();
    for (int n = 1'000'000; !stop.stop_requested(); ++n) {
      put(*third, n);
      third->flush();
      EXPECT_EQ(get(*third, -n), "-");
    }
  });
  for (int n = 0; n < (testing::kUnderSanitizer ? 60 : 300); ++n) {
    if (n % 3 == 0) {
      put(*cache, n);
      cache->flush();
      ASSERT_TRUE(ask(*other, "get " + std::to_string(n)) == numberedBody(n)) << n;
    } else {
      put(*other, n);
      ASSERT_TRUE(get(*cache, n) == numberedBody(n)) << n;
    }
    if (n % 10 == 5) overwrite(kBitsSetAt, 1U << 30);  // too full: the next to write makes it anew
    if (n % 50 == 49) cache->removeAllCachedResponses();
    if (n % 50 == 24) {
      other->send("clear");
      ASSERT_EQ(ask(*other, "flush"), "flushed");
    }
  }
}

// Catches a removal that writes although nothing is there, and one that is left out although there
// is something: on its way to the disk, on it, put there by another process.
TEST_F(CacheKeyTableTests, RemovesWhatIsThereAndNothingElse) {
  const auto cache = open();
  for (int n = 0; n < 20; ++n) forbid(*cache, n);
  cache->removeCachedResponse(numberedRequest(1));
  cache->flush();
  EXPECT_FALSE(fs::exists(folder));

  for (int n = 0; n < 10; ++n) put(*cache, n);
  forbid(*cache, 4);
  cache->flush();
  {
    // Whoever wrote now would wait in vain, and the disk be left alone after that.
    const auto writer = connect();
    ASSERT_EQ(::sqlite3_exec(writer.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr),
              SQLITE_OK);
    for (int n = 100; n < 120; ++n) forbid(*cache, n);
    cache->flush();
    EXPECT_EQ(get(*cache, 1), numberedBody(1));
  }

  const auto other = agent();
  put(*other, 10);
  forbid(*cache, 10);
  forbid(*cache, 5);
  cache->flush();
  for (int n = 0; n <= 10; ++n) {
    const bool isForbidden = n == 4 || n == 5 || n == 10;
    EXPECT_EQ(ask(*other, "get " + std::to_string(n)), isForbidden ? "-" : numberedBody(n)) << n;
  }
}

// Catches a disk without room for the table that loses answers, and a process that goes on without
// one when another has made it after all.
TEST_F(CacheKeyTableTests, IsDoneWithoutWhereThereIsNoRoom) {
  constexpr std::int64_t kCapacity = 64 * kMiB;
  {
    const auto cache = open(0, kCapacity);
    put(*cache, 0);
    cache->flush();
    execute("PRAGMA wal_checkpoint(TRUNCATE)");
  }
  fs::remove(keys());
  const auto cache = open(0, kCapacity);
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
  const rlimit full{.rlim_cur = 1 << 17, .rlim_max = unlimited.rlim_max};  // the table needs more
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  put(*cache, 1);
  cache->flush();
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  EXPECT_FALSE(fs::exists(keys()));
  for (const int n : {0, 1}) EXPECT_EQ(get(*cache, n), numberedBody(n));
  EXPECT_EQ(get(*cache, 2), "-");

  const auto other = agent(kCapacity);
  put(*other, 2);
  EXPECT_TRUE(fs::exists(keys()));
  put(*cache, 3);
  forbid(*cache, 0);
  cache->flush();
  EXPECT_EQ(ask(*other, "get 0"), "-");
  for (int n = 1; n <= 3; ++n) {
    EXPECT_EQ(get(*cache, n), numberedBody(n));
    EXPECT_EQ(ask(*other, "get " + std::to_string(n)), numberedBody(n));
  }
}

// Catches a table that is believed for good after somebody took the folder away.
TEST_F(CacheKeyTableTests, NoticesAFolderThatIsGone) {
  const auto cache = open();
  put(*cache, 1);
  cache->flush();
  EXPECT_EQ(get(*cache, 2), "-");
  fs::remove_all(folder);
  const auto other = agent();
  put(*other, 2);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (get(*cache, 2) == "-" && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  EXPECT_EQ(get(*cache, 2), numberedBody(2));
}

}  // namespace
}  // namespace ombrix::platform
