// The cache on disk while writers are killed, the disk fills and empties, and others have written
// into its database: no answer is served that is torn or outdated, and nothing hangs.

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Faults/FaultRun.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswerCoding.hpp"
#include "OmbrixPlatform/Network/CachingSamples.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Processes/SmallDisk.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::faults {
namespace {

namespace fs = std::filesystem;
using namespace platform;
using namespace platform::samples;
using testing::ChildProcess;

constexpr std::int64_t kMiB = 1 << 20;

struct Run {
  const Plan& plan;
  Outcomes& outcomes;
  std::mt19937_64 random{plan.seed};

  std::size_t below(std::size_t bound) { return random() % bound; }
};

std::shared_ptr<URLCache> cacheAt(const fs::path& folder, std::int64_t bytes) {
  return URLCache::make(0, bytes, URL::fileURL(folder.string(), true));
}

std::string bodyIn(URLCache& cache, int n) {
  const auto found = cache.cachedResponse(numberedRequest(n));
  return found ? std::string(textOf(*found->data)) : "-";
}

void put(URLCache& cache, int n, std::string_view body) {
  cache.storeCachedResponse(answerOf(200, "Cache-Control: max-age=1000", body), numberedRequest(n));
}

/// Whether a cache that has just been made keeps and finds an answer.
bool isAlive(const fs::path& folder, std::int64_t bytes, int n) {
  const auto cache = cacheAt(folder, bytes);
  put(*cache, n, numberedBody(n));
  cache->flush();
  return bodyIn(*cacheAt(folder, bytes), n) == numberedBody(n);
}

void killedWriters(Run& run) {
  constexpr std::int64_t kPlenty = 256 * kMiB;
  for (std::size_t round = run.plan.rounds(6, 150); round > 0; --round) {
    const testing::ScopedDir dir;
    std::vector<std::unique_ptr<ChildProcess>> writers;
    for (int i = 0; i < 2; ++i) {
      auto& writer = writers.emplace_back(std::make_unique<ChildProcess>(
          std::vector<std::string>{TEST_AGENT, "cache", dir.path(), std::to_string(kPlenty)}));
      writer->send("fill");
      run.outcomes.expect(writer->readLine() == "filling", "a writer keeps answers");
    }
    const auto cache = cacheAt(dir.path(), kPlenty);
    for (std::size_t reads = run.below(2'000); reads > 0; --reads) bodyIn(*cache, 1);
    for (const auto& writer : writers) writer->kill();
    for (int n = 0; n < 64; ++n) {
      run.outcomes.expect(bodyIn(*cache, n) == numberedBody(n), "what was on disk outlives a kill");
    }
    for (int n = 64; n < 2'000; ++n) {
      const std::string body = bodyIn(*cache, n);
      run.outcomes.expect(body == "-" || body == numberedBody(n), "an answer is whole or missing");
    }
    run.outcomes.expect(isAlive(dir.path(), kPlenty, -1), "the next writer is not kept waiting");
    run.outcomes.expect(!fs::exists(dir.path() / "Cache.db.damaged"), "no kill does damage");
  }
}

/// Fills the disk up to some bytes, or as far as the cache, which writes meanwhile, lets it.
void fillUp(const testing::SmallDisk& disk, std::size_t bytesLeft) {
  const fs::path file = disk.folder().path() / "filling";
  std::ofstream(file, std::ios::trunc).close();
  const std::size_t free = fs::space(file).available;
  std::ofstream(file) << std::string(free > bytesLeft ? free - bytesLeft : 0, 'x');
}

void fullDisks(Run& run, const testing::SmallDisk& disk) {
  if (!disk.isMounted()) return run.outcomes.good("without small disks: mounting is not allowed");
  constexpr std::int64_t kBudget = kMiB;
  constexpr int kKeys = 40;
  for (std::size_t round = run.plan.rounds(20, 400); round > 0; --round) {
    const fs::path folder = disk.folder().path() / "cache";
    fillUp(disk, 4 * kMiB);
    std::map<int, std::string> latest;
    const auto check = [&] {
      const auto fresh = cacheAt(folder, kBudget);
      for (const auto& [n, body] : latest) {
        const std::string found = bodyIn(*fresh, n);
        run.outcomes.expect(found == "-" || found == body, "no outdated answer is served",
                            found.substr(0, 20) + " for " + body.substr(0, 20));
        if (found != "-") run.outcomes.good("an answer is there");
      }
    };
    // A cache that was refused leaves the disk alone for a minute: each turn has its own.
    for (int turn = 0; turn < 6; ++turn) {
      const auto cache = cacheAt(folder, kBudget);
      for (int i = 0; i < 25; ++i) {
        if (i % 8 == 7) fillUp(disk, run.below(3) * run.below(400'000));
        const int n = static_cast<int>(run.below(kKeys));
        if (run.below(3) == 0) {
          cache->removeCachedResponse(numberedRequest(n));
          latest[n] = "-";
        } else {
          latest[n] = std::to_string(run.random()) + std::string(run.below(20'000), 'x');
          put(*cache, n, latest[n]);
        }
        if (run.below(4) == 0) cache->flush();
      }
      cache->flush();
      check();
      fillUp(disk, 4 * kMiB);
      check();
    }
    run.outcomes.expect(isAlive(folder, kBudget, -1), "with room again, answers are kept");
    fs::remove_all(folder);
  }
}

/// Changes a value, a row, a record or the tables at random, as no release of ours would.
void spoil(Run& run, const fs::path& database) {
  constexpr const char* kTargets[]{"entry SET hash",   "entry SET used", "entry SET size",
                                   "entry SET record", "body SET data",  "total SET uses",
                                   "entry SET id",     "body SET id"};
  constexpr const char* kValues[]{"'x' || random()",
                                  "random() * 1e300",
                                  "9223372036854775807",
                                  "-9223372036854775807 - 1",
                                  "0",
                                  "zeroblob(100000)",
                                  "randomblob(50)",
                                  "0.5"};
  constexpr const char* kWhich[]{"", " WHERE id % 3 = 0", " WHERE id = 1"};
  constexpr const char* kOthers[]{
      "DELETE FROM body WHERE id % 2",
      "DELETE FROM total",
      "INSERT INTO body SELECT id + 100000, data FROM body",
      "CREATE TABLE more(x); INSERT INTO more SELECT randomblob(500000)",
      "CREATE TRIGGER t AFTER INSERT ON entry BEGIN DELETE FROM total; END",
      "CREATE TRIGGER never AFTER INSERT ON entry BEGIN INSERT INTO body(data) SELECT max(n) FROM "
      "(WITH RECURSIVE c(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM c) SELECT n FROM c); END",
      "DROP INDEX entry_used",
      "DROP TRIGGER entry_removed",
      "PRAGMA user_version = 0",
      "PRAGMA user_version = 7"};
  sqlite3* connection = nullptr;
  ::sqlite3_open(database.c_str(), &connection);
  for (std::size_t i = 1 + run.below(4); i > 0; --i) {
    const std::string sql = run.below(4) == 0
                                ? kOthers[run.below(std::size(kOthers))]
                                : "UPDATE OR IGNORE " + std::string(kTargets[run.below(8)]) +
                                      " = " + kValues[run.below(8)] + kWhich[run.below(3)];
    ::sqlite3_exec(connection, sql.c_str(), nullptr, nullptr, nullptr);
  }
  if (run.below(3) == 0) {
    // Records with bytes changed and a checksum that says they are right.
    sqlite3_stmt* all = nullptr;
    sqlite3_stmt* set = nullptr;
    ::sqlite3_prepare_v2(connection, "SELECT id, record FROM entry LIMIT 20", -1, &all, nullptr);
    ::sqlite3_prepare_v2(connection, "UPDATE entry SET record = ? WHERE id = ?", -1, &set, nullptr);
    while (all != nullptr && set != nullptr && ::sqlite3_step(all) == SQLITE_ROW) {
      const auto* bytes = static_cast<const std::byte*>(::sqlite3_column_blob(all, 1));
      Data record(bytes, bytes + ::sqlite3_column_bytes(all, 1));
      for (std::size_t change = 3; change > 0 && record.size() > 20; --change) {
        record[9 + run.below(record.size() - 9)] = static_cast<std::byte>(run.random());
      }
      detail::sealRecord(record);
      ::sqlite3_bind_blob(set, 1, record.data(), static_cast<int>(record.size()), SQLITE_STATIC);
      ::sqlite3_bind_int64(set, 2, ::sqlite3_column_int64(all, 0));
      ::sqlite3_step(set);
      ::sqlite3_reset(set);
    }
    ::sqlite3_finalize(all);
    ::sqlite3_finalize(set);
  }
  ::sqlite3_close(connection);
}

void hostileRows(Run& run) {
  constexpr std::int64_t kBudget = kMiB;
  for (std::size_t round = run.plan.rounds(40, 1'200); round > 0; --round) {
    const testing::ScopedDir dir;
    {
      const auto cache = cacheAt(dir.path(), kBudget);
      for (int n = 0; n < 80; ++n) put(*cache, n, numberedBody(n));
      cache->flush();
    }
    spoil(run, dir.path() / "Cache.db");
    const auto cache = cacheAt(dir.path(), kBudget);
    for (int n = 0; n < 80; ++n) {
      const std::string body = bodyIn(*cache, n);
      run.outcomes.expect(body == "-" || body == numberedBody(n), "a body is its own or missing");
    }
    for (int n = 80; n < 300; ++n) {
      put(*cache, n, numberedBody(n));
      if (n % 40 == 0) cache->flush();
    }
    cache->flush();
    std::int64_t bytes = 0;
    for (const char* name : {"Cache.db", "Cache.db-wal", "Cache.db-shm"}) {
      std::error_code none;
      const auto size = fs::file_size(dir.path() / name, none);
      if (!none) bytes += static_cast<std::int64_t>(size);
    }
    run.outcomes.expect(bytes <= 2 * kBudget, "the budget holds", std::to_string(bytes));
    run.outcomes.expect(isAlive(dir.path(), kBudget, -1), "the cache goes on");
  }
}

}  // namespace

void run(const Plan& plan, Outcomes& outcomes) {
  const testing::SmallDisk disk(6 * kMiB);  // first: threads see what was mounted before them
  Run run{plan, outcomes};
  killedWriters(run);
  fullDisks(run, disk);
  hostileRows(run);
}

}  // namespace ombrix::faults
