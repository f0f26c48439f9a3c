#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswerCoding.hpp"
#include "OmbrixPlatform/Network/URLSessionConfiguration.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "URLCacheDiskFixture.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using namespace samples;

using URLCacheDiskTests = URLCacheDiskFixture;

// Catches an answer that is not seen before it is written, or lost or changed by a restart; and a
// token on the disk.
TEST_F(URLCacheDiskTests, KeepsAnswersAcrossRestarts) {
  const auto authorised = requestFor("http://a.test/x", "Authorization: Bearer secret|Accept: a");
  const std::string fields = std::string(kFresh) + "|Vary: Accept|Content-Type: text/plain";
  {
    const auto cache = open();
    for (int n = 0; n < 200; ++n) {
      put(*cache, n);
      ASSERT_EQ(get(*cache, n), numberedBody(n));
    }
    load(*cache, authorised, answerOf(404, fields + "|Authorization: Bearer next", "body"));
    EXPECT_GT(cache->currentDiskUsage(), 200 * 4500);
    cache->flush();
  }
  clock->advance(TimeInterval(999));
  const auto cache = open();
  for (int n = 0; n < 200; ++n) ASSERT_EQ(get(*cache, n), numberedBody(n));
  const auto decided = cache->decide(authorised);
  ASSERT_EQ(decided.kind, Kind::serve);
  EXPECT_EQ(decided.answer->response->statusCode(), 404);
  EXPECT_EQ(fieldsText(decided.answer->response->headers()), fields + "|Age: 999");
  EXPECT_EQ(decision(*cache, requestFor("http://a.test/x", "Accept: a")), "load");
  clock->advance(TimeInterval(2));
  EXPECT_EQ(decision(*cache, numberedRequest(7)), "validate If-None-Match: \"1\"");

  for (const auto& file : fs::directory_iterator(folder)) {
    const auto bytes = dir.read(fs::relative(file.path(), dir.path()));
    EXPECT_EQ(bytes.find("secret"), std::string::npos) << file.path();
    EXPECT_EQ(bytes.find("Bearer"), std::string::npos) << file.path();
  }
}

// Catches what was dropped and comes back: from the queue, from the file, after a restart.
TEST_F(URLCacheDiskTests, DropsForGood) {
  for (const bool isFlushed : {false, true}) {
    const auto cache = open(isFlushed ? kMiB : 0);
    for (int n = 0; n < 20; ++n) put(*cache, n);
    if (isFlushed) cache->flush();
    auto change = numberedRequest(3);
    change.httpMethod = "PATCH";
    load(*cache, change, answerOf(204, "Content-Location: /4"));
    cache->removeCachedResponse(numberedRequest(5));
    load(*cache, numberedRequest(6), answerOf(200, kFresh, std::string(kMiB, 'x')));  // too large
    cache->storeCachedResponse(answerOf(200, "Cache-Control: max-age=9|no name: x"),
                               numberedRequest(8));
    for (const int n : {3, 4, 5}) EXPECT_EQ(get(*cache, n), "-");
    EXPECT_EQ(get(*cache, 7), numberedBody(7));
    cache->flush();
    const auto later = open();
    for (const int n : {3, 4, 5, 6, 8}) EXPECT_EQ(get(*later, n), "-");
    EXPECT_EQ(get(*later, 7), numberedBody(7));
    cache->removeAllCachedResponses();
    EXPECT_EQ(cache->currentDiskUsage(), 0);
    EXPECT_EQ(get(*later, 7), "-");
    EXPECT_EQ(get(*cache, 7), "-");
  }
}

// Catches a file larger than its budget, a count that drifts from what is there, and an order of
// eviction in which hits, from disk or memory, do not count.
TEST_F(URLCacheDiskTests, StaysWithinItsBudget) {
  constexpr std::int64_t kCapacity = 2 * kMiB;
  constexpr int kCount = testing::kUnderSanitizer ? 1500 : 4000;
  const auto cache = open(100'000, kCapacity);
  for (int n = 0; n < kCount; ++n) {
    put(*cache, n);
    if (n % 50 != 49) continue;
    cache->flush();
    EXPECT_LE(bytesOnDisk(), kCapacity);
    EXPECT_LE(cache->currentDiskUsage(), kCapacity);
    EXPECT_NE(get(*cache, 1), "-") << n;
    EXPECT_NE(get(*cache, 47), "-") << n;  // 3 kB and 8 kB
  }
  EXPECT_GT(cache->currentDiskUsage(), kCapacity / 2);
  EXPECT_EQ(get(*cache, 2), "-");
  EXPECT_EQ(get(*cache, kCount - 1), numberedBody(kCount - 1));
  const auto smaller = open(0, kMiB / 2);  // made anew: a file does not shrink
  put(*smaller, 1);
  smaller->flush();
  EXPECT_LE(bytesOnDisk(), kMiB / 2);
  EXPECT_EQ(get(*smaller, 1), numberedBody(1));
  const auto none = open(0, kMiB / 16);
  put(*none, 9);
  EXPECT_EQ(get(*none, 9), "-");
}

// Catches an answer of another process that is not seen, files that another has cleared and that
// this one goes on with, and new ones that it spoils; while a third writes all the time.
TEST_F(URLCacheDiskTests, ProcessesShareAFolder) {
  constexpr std::int64_t kPlenty = 256 * kMiB;  // the third must not push out what the others keep
  const auto cache = open(0, kPlenty);
  const auto other = agent(kPlenty);
  std::jthread busy([&](const std::stop_token& stop) {
    const auto third = open(0, kPlenty);
    for (int n = 1'000'000; !stop.stop_requested(); ++n) {
      put(*third, n);
      third->flush();
      EXPECT_EQ(get(*third, -n), "-");
    }
  });
  for (int n = 0; n < (testing::kUnderSanitizer ? 60 : 200); ++n) {
    if (n % 3 == 0) {
      put(*cache, n);
      cache->flush();
      ASSERT_EQ(ask(*other, "get " + std::to_string(n)), numberedBody(n));
    } else {
      put(*other, n);
      ASSERT_EQ(get(*cache, n), numberedBody(n));
    }
    if (n % 25 != 24) continue;
    if (n % 50 == 24) {
      cache->removeAllCachedResponses();
    } else {
      other->send("clear");
    }
    ASSERT_EQ(ask(*other, "get " + std::to_string(n)), "-");
    ASSERT_EQ(get(*cache, n), "-");
  }
  busy.request_stop();
  busy.join();
  EXPECT_EQ(ask(*other, "usage"), std::to_string(cache->currentDiskUsage()));
  EXPECT_FALSE(hasDamaged());
  fs::remove_all(folder);
  put(*other, 2);
  EXPECT_EQ(get(*cache, 2), numberedBody(2));
  fs::rename(folder, dir.path() / "elsewhere");
  put(*cache, 3);
  cache->flush();
  EXPECT_EQ(get(*cache, 3), numberedBody(3));
  EXPECT_EQ(get(*cache, 2), "-") << "nobody reads on in a folder that was moved";
}

// Catches a removal that writes although nothing is there, and one that is left out although there
// is something: on its way to the disk, on it, put there by another process, also after this one
// has looked for it in vain.
TEST_F(URLCacheDiskTests, RemovesWhatIsThereAndNothingElse) {
  const auto cache = open();
  const auto forbid = [&](int n) {
    load(*cache, numberedRequest(n), answerOf(200, "Cache-Control: no-store", "secret"));
  };
  for (int n = 0; n < 20; ++n) forbid(n);
  cache->removeCachedResponse(numberedRequest(1));
  cache->flush();
  EXPECT_FALSE(fs::exists(folder));

  for (int n = 0; n < 10; ++n) put(*cache, n);
  forbid(4);
  cache->flush();
  {
    // Whoever wrote now would wait in vain, and the disk be left alone after that.
    const auto writer = connect();
    ASSERT_EQ(::sqlite3_exec(writer.get(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr),
              SQLITE_OK);
    for (int n = 100; n < 120; ++n) forbid(n);
    cache->flush();
    EXPECT_EQ(get(*cache, 1), numberedBody(1));
  }

  const auto other = agent();
  for (const int n : {11, 12}) EXPECT_EQ(get(*cache, n), "-");  // which may change at once
  for (const int n : {10, 11, 12}) put(*other, n);
  for (const int n : {5, 10, 11}) forbid(n);
  auto change = numberedRequest(12);
  change.httpMethod = "PUT";
  load(*cache, change, answerOf(204, ""));
  cache->flush();
  for (int n = 0; n <= 12; ++n) {
    const bool isForbidden = n == 4 || n == 5 || n >= 10;
    EXPECT_EQ(ask(*other, "get " + std::to_string(n)), isForbidden ? "-" : numberedBody(n)) << n;
  }
}

// Catches a change to what is kept on disk that loses what an earlier release kept there.
TEST_F(URLCacheDiskTests, OpensWhatAnEarlierReleaseKept) {
  fs::create_directory(folder);
  dir.write("cache/Cache.keys", "an index that is no longer kept");
  execute(R"sql(
PRAGMA page_size = 4096;
PRAGMA journal_mode = WAL;
CREATE TABLE entry(id INTEGER PRIMARY KEY, hash INTEGER NOT NULL, used INTEGER NOT NULL,
                   size INTEGER NOT NULL, record BLOB NOT NULL);
CREATE INDEX entry_hash ON entry(hash);
CREATE INDEX entry_used ON entry(used, size);
CREATE TABLE body(id INTEGER PRIMARY KEY, data BLOB NOT NULL);
CREATE TABLE total(id INTEGER PRIMARY KEY CHECK(id = 1), uses INTEGER NOT NULL);
CREATE TRIGGER entry_removed AFTER DELETE ON entry BEGIN
  DELETE FROM body WHERE id = old.id;
END;
PRAGMA user_version = 1;
INSERT INTO total VALUES(1, 2);
INSERT INTO body VALUES(1, X'6b657074');
INSERT INTO body VALUES(2, X'706c61696e');
)sql");
  execute(
      "INSERT INTO entry VALUES(1, -4260476872942585104, 1, 416, X'"
      "01bd46d13bab913bcb0f000000687474703a2f2f612e746573742f78020000000d000000617574686f7269"
      "7a6174696f6e01bffde20413347b7a00e1363de3f97ca69e419dc0aea55f4a4a75018fab3a0e8e06000000"
      "61636365707401ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb528d4e30"
      "9ac0da41528d4e309ac0da4104000000000000006a08e111b4c77f870f000000687474703a2f2f612e7465"
      "73742f78940108000000485454502f312e31030000000d00000043616368652d436f6e74726f6c0c000000"
      "6d61782d6167653d3130303004000000455461670300000022312204000000566172790600000041636365"
      "7074"
      "')");
  execute(
      "INSERT INTO entry VALUES(2, -3167326045423768166, 2, 324, X'"
      "014efe980353cd5e160f000000687474703a2f2f612e746573742f79010000000d000000617574686f7269"
      "7a6174696f6e00d98f4e309ac0da41d98f4e309ac0da410500000000000000536ad955d93233560f000000"
      "687474703a2f2f612e746573742f79c80008000000485454502f312e31020000000d00000043616368652d"
      "436f6e74726f6c0c0000006d61782d6167653d31303030040000004554616703000000223222"
      "')");
  const auto cache = open();
  put(*cache, 1);
  cache->flush();
  const auto authorised = cache->cachedResponse(
      requestFor("http://a.test/x", "Authorization: Bearer secret|Accept: a"));
  ASSERT_TRUE(authorised);
  EXPECT_EQ(textOf(*authorised->data), "kept");
  EXPECT_EQ(authorised->response->statusCode(), 404);
  EXPECT_EQ(fieldsText(authorised->response->headers()),
            "Cache-Control: max-age=1000|ETag: \"1\"|Vary: Accept");
  const auto plain = cache->cachedResponse(requestFor("http://a.test/y"));
  ASSERT_TRUE(plain);
  EXPECT_EQ(textOf(*plain->data), "plain");
  EXPECT_FALSE(fs::exists(folder / "Cache.keys"));
  EXPECT_FALSE(hasDamaged());
}

// Catches a damaged database that stops the program or the cache, or whose bytes are served.
TEST_F(URLCacheDiskTests, SetsADamagedDatabaseAside) {
  const auto fill = [&] {
    const auto cache = open();
    for (int n = 0; n < 100; ++n) put(*cache, n);
    cache->flush();
    execute("PRAGMA wal_checkpoint(TRUNCATE)");  // the log would heal the damage
  };
  const auto overwrite = [&](std::uint64_t at, std::string_view bytes) {
    std::FILE* file = std::fopen(database().c_str(), "r+b");
    std::fseek(file, static_cast<long>(at), SEEK_SET);
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::fclose(file);
  };
  const auto size = [&] { return fs::file_size(database()); };
  const struct {
    const char* name;
    std::function<void()> damage;
  } rows[]{
      {"no database at all", [&] { overwrite(0, "This is not a database at all."); }},
      {"cut in half", [&] { fs::resize_file(database(), size() / 2); }},
      {"cut to nothing", [&] { fs::resize_file(database(), 0); }},
      {"a cut first page", [&] { fs::resize_file(database(), 1000); }},
      {"zeros throughout", [&] { overwrite(4096, std::string(size() - 4096, '\0')); }},
      {"noise throughout",
       [&] {
         std::mt19937 random(1);
         for (std::uint64_t at = 4096; at < size(); at += 512) {
           overwrite(at + random() % 500, std::string(4, static_cast<char>(random())));
         }
       }},
      {"single bytes",
       [&] {
         std::mt19937 random(2);
         for (int i = 0; i < 20; ++i) {
           overwrite(4096 + random() % (size() - 4096),
                     std::string(1, static_cast<char>(random())));
         }
       }},
      {"another program's tables",
       [&] {
         fs::remove(database());
         execute("CREATE TABLE entry(x); PRAGMA user_version=1");
       }},
      {"another version", [&] { execute("PRAGMA user_version=9"); }},
      {"a folder in its place", [&] { fs::remove(database()), fs::create_directory(database()); }},
  };
  for (const auto& [name, damage] : rows) {
    SCOPED_TRACE(name);
    fill();
    for (const char* suffix : {"-wal", "-shm"}) fs::remove(database().string() + suffix);
    damage();
    const auto cache = open(kMiB);
    for (int n = 0; n < 100; ++n) {
      const std::string body = get(*cache, n);
      ASSERT_TRUE(body == "-" || body == numberedBody(n)) << n;
    }
    for (int n = 0; n < 100; ++n) put(*cache, n);
    cache->flush();
    for (int n = 0; n < 100; ++n) ASSERT_EQ(get(*cache, n), numberedBody(n));
    cache->removeAllCachedResponses();
    put(*cache, 1);
    cache->flush();
    EXPECT_TRUE(fs::is_directory(database()) || get(*open(), 1) == numberedBody(1));
    fs::remove_all(folder);
  }
}

// Catches a database that a later release uses and that this one takes away from it.
TEST_F(URLCacheDiskTests, LeavesALaterReleaseItsDatabase) {
  fs::create_directory(folder);
  auto later = connect();
  const auto run = [&](const char* sql) {
    return ::sqlite3_exec(later.get(), sql, nullptr, nullptr, nullptr);
  };
  ASSERT_EQ(run("PRAGMA journal_mode = WAL; CREATE TABLE kept(x); INSERT INTO kept VALUES(1);"
                "PRAGMA user_version = 2"),
            SQLITE_OK);
  for (const std::int64_t memory : {std::int64_t{0}, kMiB}) {
    const auto cache = open(memory);
    put(*cache, 1);
    cache->flush();
    EXPECT_EQ(get(*cache, 1), memory > 0 ? numberedBody(1) : "-");
    cache->removeCachedResponse(numberedRequest(1));
    cache->flush();
  }
  EXPECT_FALSE(hasDamaged());
  EXPECT_EQ(run("INSERT INTO kept SELECT x FROM kept"), SQLITE_OK);
  EXPECT_EQ(::sqlite3_total_changes(later.get()), 2);
  later.reset();
  const auto cache = open();  // nobody uses it any more
  put(*cache, 1);
  cache->flush();
  EXPECT_EQ(get(*open(), 1), numberedBody(1));
}

// Catches look-ups that each wait for a process that stands still while it opens the database.
TEST_F(URLCacheDiskTests, WaitsOnceForAProcessThatStandsStill) {
  {
    const auto cache = open();
    put(*cache, 1);
    cache->flush();
  }
  const int file = ::open((folder / "Cache.lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(::flock(file, LOCK_EX), 0);
  const auto cache = open();
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 60; ++i) EXPECT_EQ(get(*cache, 1), "-");
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
  ::close(file);
  EXPECT_EQ(get(*cache, 1), numberedBody(1));
}

// Catches a disk that refuses and takes the program, the memory tier or the next answer with it.
TEST_F(URLCacheDiskTests, GoesOnInMemoryWhenTheDiskRefuses) {
  dir.write("cache", "a file where the folder should be");
  const auto blocked = open(kMiB);
  put(*blocked, 1);
  blocked->flush();
  EXPECT_EQ(get(*blocked, 1), numberedBody(1));
  EXPECT_EQ(blocked->currentDiskUsage(), 0);
  blocked->removeAllCachedResponses();
  EXPECT_EQ(get(*blocked, 1), "-");
  fs::remove(folder);

  const auto cache = open(4 * kMiB);
  put(*cache, 0);
  put(*cache, 1'000);
  cache->flush();
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
  const rlimit full{.rlim_cur = 200'000, .rlim_max = unlimited.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  for (int n = 0; n < 200; ++n) put(*cache, n);
  cache->flush();
  for (int n = 0; n < 200; ++n) EXPECT_EQ(get(*cache, n), numberedBody(n));
  // What could not be removed by a change is removed with all the rest: it is seen by nobody.
  const rlimit none{.rlim_cur = 0, .rlim_max = unlimited.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &none), 0);
  const auto other = open();
  other->removeCachedResponse(numberedRequest(1'000));
  other->flush();
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  EXPECT_EQ(get(*open(), 1'000), "-");
  cache->removeAllCachedResponses();
  put(*cache, 5);
  cache->flush();
  EXPECT_EQ(get(*open(), 5), numberedBody(5));

  // One that could not even look, for lack of descriptors, still makes known what is outdated.
  rlimit descriptors{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &descriptors), 0);
  const rlimit few{.rlim_cur = 0, .rlim_max = descriptors.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
  const auto starved = open();
  EXPECT_EQ(get(*starved, 5), "-");
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &descriptors), 0);
  starved->removeCachedResponse(numberedRequest(5));
  starved->flush();
  EXPECT_EQ(get(*open(), 5), "-");
  EXPECT_FALSE(hasDamaged());
}

// Catches races between readers, writers and those who clear, within and between caches.
TEST_F(URLCacheDiskTests, ThreadsUseItAtOnce) {
  const auto first = open(200'000, kMiB), second = open(0, kMiB);
  std::vector<std::jthread> threads;
  for (unsigned seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&, seed] {
      std::mt19937 random(seed);
      for (int i = 0; i < (testing::kUnderSanitizer ? 300 : 1500); ++i) {
        URLCache& cache = seed % 2 == 0 ? *first : *second;
        const int n = static_cast<int>(random() % 300);
        const auto action = random() % 100;
        if (action < 40) {
          put(cache, n);
        } else if (action < 92) {
          const std::string body = get(cache, n);
          EXPECT_TRUE(body == "-" || body == numberedBody(n)) << n;
        } else if (action < 97) {
          cache.removeCachedResponse(numberedRequest(n));
        } else if (action < 98) {
          EXPECT_GE(cache.currentDiskUsage(), 0);
        } else if (action < 99) {
          cache.flush();
        } else if (i % 5 == 0) {
          cache.removeAllCachedResponses();
        }
      }
    });
  }
  threads.clear();
  first->flush();
  second->flush();
  EXPECT_FALSE(hasDamaged());
}

// Catches a shared cache that lies elsewhere than where the user's caches are.
TEST_F(URLCacheDiskTests, SharedCacheLiesAmongTheCaches) {
  const testing::ScopedDirectories directories;
  const auto& cache = URLSessionConfiguration::defaultConfiguration().urlCache;
  ASSERT_EQ(cache, URLCache::shared());
  put(*cache, 1);
  cache->flush();
  EXPECT_TRUE(
      fs::exists(directories.dir().path() / "caches" / mainBundleName() / "URLCache" / "Cache.db"));
  cache->removeAllCachedResponses();
}

// Catches a record that is misread after any damage.
TEST_F(URLCacheDiskTests, ReadsRecordsWholeOrNotAtAll) {
  const auto answer = answerOf(200, "ETag: \"1\"|Content-Type: a/b", "body", "http://a.test/b");
  const detail::CachedAnswer kept{.key = "http://a.test/b",
                                  .selecting = {{"authorization", "t"}, {"accept", std::nullopt}},
                                  .times = {dateSince1970(1), dateSince1970(2)},
                                  .freshness = {},
                                  .answer = answer};
  const Data record = detail::recordOf(kept);
  const auto head = detail::readHead(record);
  ASSERT_TRUE(head);
  EXPECT_EQ(head->key, kept.key);
  EXPECT_TRUE(detail::selects(head->selecting, fieldsOf("Authorization: t")));
  EXPECT_FALSE(detail::selects(head->selecting, fieldsOf("Authorization: t|Accept: x")));
  EXPECT_FALSE(detail::selects(head->selecting, fieldsOf("Authorization: u")));
  const auto body = detail::readBody(*head);
  ASSERT_TRUE(body);
  EXPECT_EQ(body->times, kept.times);
  EXPECT_EQ(body->bodyBytes, 4);
  EXPECT_EQ(body->response->headers(), answer.response->headers());
  for (std::size_t i = 0; i < record.size(); ++i) {
    EXPECT_FALSE(detail::readHead(DataView(record).first(i)));
    Data flipped = record;
    flipped[i] ^= std::byte{4};
    EXPECT_FALSE(detail::readHead(flipped)) << i;
  }
  HTTPHeaders many;
  for (int i = 0; i < 5000; ++i) many.set("X" + std::to_string(i), "");
  for (const HTTPHeaders& fields :
       {HTTPHeaders{{"no name", "x"}}, HTTPHeaders{{"A", "b\r\nC: d"}}, many}) {
    detail::CachedAnswer bad = kept;
    bad.answer.response =
        std::make_shared<const HTTPURLResponse>(answer.response->url(), 200, fields, "HTTP/1.1");
    EXPECT_FALSE(detail::fitsRecord(bad));
    const Data written = detail::recordOf(bad);
    EXPECT_FALSE(detail::readBody(*detail::readHead(written)));
  }
}

}  // namespace
}  // namespace ombrix::platform
