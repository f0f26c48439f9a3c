#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "URLCacheFixture.hpp"

namespace ombrix::platform {

inline constexpr std::int64_t kMiB = 1 << 20;
inline constexpr auto kFresh = "Cache-Control: max-age=1000|ETag: \"1\"";

/// Caches on one folder, in this process and in others, of answers that follow from numbers.
class URLCacheDiskFixture : public URLCacheFixture {
 protected:
  std::shared_ptr<URLCache> open(std::int64_t memory = 0, std::int64_t disk = 8 * kMiB) const {
    return URLCache::make(memory, disk, URL::fileURL(folder.string(), true));
  }
  std::unique_ptr<testing::ChildProcess> agent(std::int64_t disk = 8 * kMiB) const {
    return std::make_unique<testing::ChildProcess>(
        std::vector<std::string>{TEST_AGENT, "cache", folder, std::to_string(disk)});
  }
  /// What an agent answers to a line.
  static std::string ask(testing::ChildProcess& agent, const std::string& line) {
    agent.send(line);
    return agent.readLine().value_or("no answer");
  }
  /// An answer that another process keeps, on disk when this returns.
  static void put(testing::ChildProcess& agent, int n) {
    agent.send("put " + std::to_string(n));
    EXPECT_EQ(ask(agent, "flush"), "flushed");
  }
  void put(URLCache& cache, int n) const {
    load(cache, samples::numberedRequest(n),
         samples::answerOf(200, kFresh, samples::numberedBody(n)));
  }
  static std::string get(URLCache& cache, int n) {
    const auto found = cache.cachedResponse(samples::numberedRequest(n));
    return found ? std::string(textOf(*found->data)) : "-";
  }
  std::int64_t bytesOnDisk() const {
    std::int64_t bytes = 0;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
      bytes += static_cast<std::int64_t>(file.file_size());
    }
    return bytes;
  }
  std::filesystem::path database() const { return folder / "Cache.db"; }
  std::unique_ptr<sqlite3, decltype(&::sqlite3_close)> connect() const {
    sqlite3* connection = nullptr;
    EXPECT_EQ(::sqlite3_open(database().c_str(), &connection), SQLITE_OK);
    return {connection, &::sqlite3_close};
  }
  void execute(const char* sql) const {
    EXPECT_EQ(::sqlite3_exec(connect().get(), sql, nullptr, nullptr, nullptr), SQLITE_OK);
  }
  bool hasDamaged() const { return std::filesystem::exists(folder / "Cache.db.damaged"); }

  testing::ScopedDir dir;
  std::filesystem::path folder = dir.path() / "cache";
};

}  // namespace ombrix::platform
