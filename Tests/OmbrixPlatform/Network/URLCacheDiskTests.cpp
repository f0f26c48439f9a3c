#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include "OmbrixPlatform/Files/Bundle.hpp"
#include "OmbrixPlatform/Network/Detail/Caching/CachedAnswerCoding.hpp"
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
  EXPECT_EQ(fieldsText(decided.answer->response->headers()), fields);
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
    for (const int n : {3, 4, 5}) EXPECT_EQ(get(*cache, n), "-");
    EXPECT_EQ(get(*cache, 7), numberedBody(7));
    cache->flush();
    const auto later = open();
    for (const int n : {3, 4, 5, 6}) EXPECT_EQ(get(*later, n), "-");
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

// Catches variants that are mixed up on disk, and one that does not replace its own.
TEST_F(URLCacheDiskTests, KeepsVariants) {
  const auto cache = open();
  const auto request = [](const std::string& language) {
    return requestFor("http://a.test/", "Accept-Language: " + language);
  };
  for (const std::string body : {"de", "fr", "it"}) {
    load(*cache, request(body), answerOf(200, "Vary: Accept-Language", body));
    cache->flush();
  }
  load(*cache, request("fr"), answerOf(200, "Vary: Accept-Language", "FR"));
  cache->flush();
  const auto later = open();
  const auto body = [&](const URLRequest& asked) {
    const auto found = later->cachedResponse(asked);
    return found ? std::string(textOf(*found->data)) : "-";
  };
  EXPECT_EQ(body(request("de")), "de");
  EXPECT_EQ(body(request("fr")), "FR");
  EXPECT_EQ(body(request("it")), "it");
  EXPECT_EQ(body(request("en")), "-");
  EXPECT_EQ(body(requestFor("http://a.test/")), "-");
}

// Catches a process that goes on with files that another has cleared, or spoils the new ones.
TEST_F(URLCacheDiskTests, ProcessesShareAFolder) {
  const auto cache = open();
  const auto other = agent();
  for (int round = 0; round < 5; ++round) {
    SCOPED_TRACE(round);
    put(*cache, 10);
    cache->flush();
    EXPECT_EQ(ask(*other, "get 10"), numberedBody(10));
    put(*other, 11);
    EXPECT_EQ(get(*cache, 11), numberedBody(11));
    if (round % 2 == 0) {
      cache->removeAllCachedResponses();
    } else {
      other->send("clear");
    }
    EXPECT_EQ(ask(*other, "get 10"), "-");
    EXPECT_EQ(get(*cache, 11), "-");
    put(*other, 12);
    EXPECT_EQ(get(*cache, 12), numberedBody(12));
    EXPECT_EQ(ask(*other, "usage"), std::to_string(cache->currentDiskUsage()));
  }
  EXPECT_FALSE(hasDamaged());
}

// Catches a database that a killed writer has harmed, or that keeps others from writing.
TEST_F(URLCacheDiskTests, OutlivesKilledWriters) {
  constexpr std::int64_t kPlenty = 256 * kMiB;  // a busy writer must not push out the first ones
  const auto cache = open(0, kPlenty);
  std::mt19937 random(7);
  for (int round = 0; round < (testing::kUnderSanitizer ? 4 : 15); ++round) {
    const auto writer = agent(kPlenty);
    writer->send("fill");
    ASSERT_EQ(writer->readLine(), "filling");
    for (auto reads = random() % 500; reads > 0; --reads) get(*cache, static_cast<int>(reads));
    writer->kill();
    int found = 0;
    for (int n = 0; n < 64; ++n) {
      const std::string body = get(*cache, n);
      EXPECT_TRUE(body == "-" || body == numberedBody(n)) << n;
      found += body != "-" ? 1 : 0;
    }
    EXPECT_TRUE(found == 64 || round > 0) << found;
    put(*cache, 1'000'000 + round);
    cache->flush();
    EXPECT_EQ(get(*cache, 1'000'000 + round), numberedBody(1'000'000 + round));
    ASSERT_FALSE(hasDamaged());
  }
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
  cache->flush();
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit unlimited{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &unlimited), 0);
  const rlimit full{.rlim_cur = 200'000, .rlim_max = unlimited.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);
  for (int n = 0; n < 200; ++n) put(*cache, n);
  cache->flush();
  for (int n = 0; n < 200; ++n) EXPECT_EQ(get(*cache, n), numberedBody(n));
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &unlimited), 0);
  cache->removeAllCachedResponses();
  put(*cache, 5);
  cache->flush();
  EXPECT_EQ(get(*open(), 5), numberedBody(5));
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
}

}  // namespace
}  // namespace ombrix::platform
