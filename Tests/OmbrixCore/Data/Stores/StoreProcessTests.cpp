#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>

#include "OmbrixCore/Data/Stores/PlistKeyedItemStore.hpp"
#include "OmbrixTesting/ChildProcess.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

using platform::URL;
using testing::ChildProcess;
using Command = std::vector<std::string>;

/// How often to try; the environment asks for more in long runs.
int roundsFrom(const char* variable, int fallback) {
  const char* const value = std::getenv(variable);
  return value != nullptr ? std::atoi(value) : fallback;
}

class KilledWriterTests : public ::testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(, KilledWriterTests, ::testing::Values(200, 20'000, 1'000'000));

// Catches a value that is a mixture of two, or harm to another key, when a writer is killed while
// it overwrites values by equal, shorter and longer ones. OMBRIX_KILL_ROUNDS: how often.
TEST_P(KilledWriterTests, LeavesOneValueOrNone) {
  const testing::ScopedDir dir;
  testing::RecordingLog log;
  const std::string folder = dir.path() / "keyed";
  const std::vector<std::size_t> sizes{GetParam(), GetParam(), GetParam() / 2, GetParam()};
  const PlistKeyedItemStore<std::string> other(URL::fileURL(folder, true));
  other.store("untouched", "other").get();
  std::mt19937 random(3);
  int undecodable = 0;
  for (int round = roundsFrom("OMBRIX_KILL_ROUNDS", 6); round > 0; --round) {
    Command command{STORE_AGENT, "write", folder};
    for (const auto size : sizes) command.push_back(std::to_string(size));
    ChildProcess writer(command);
    ASSERT_EQ(writer.readLine(), "ready");
    const auto until =
        std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 20'000);
    while (std::chrono::steady_clock::now() < until) {
    }
    writer.kill();
    const PlistKeyedItemStore<std::string> store(URL::fileURL(folder, true));
    const bool wasThere = store.exists("k").get();
    const auto value = store.value("k").get();
    EXPECT_EQ(store.exists("k").get(), value.has_value());
    if (wasThere && !value) ++undecodable;
    if (value) {
      EXPECT_THAT(sizes, ::testing::Contains(value->size()));
      EXPECT_EQ(value->find_first_not_of(value->front()), std::string::npos);
    }
  }
  EXPECT_EQ(other.value("other").get(), "untouched");
  log.takeErrors();
  RecordProperty("undecodable", undecodable);
}

// Catches values that are torn or lost when several processes share a file and a folder of keys.
// OMBRIX_SHARING_PROCESSES, OMBRIX_SHARING_ROUNDS: how many, how long.
TEST(SharedStoreTests, ProcessesSeeWholeValues) {
  const testing::ScopedDir dir;
  const std::string rounds = std::to_string(roundsFrom("OMBRIX_SHARING_ROUNDS", 200));
  std::vector<std::unique_ptr<ChildProcess>> processes;
  for (int i = roundsFrom("OMBRIX_SHARING_PROCESSES", 3); i > 0; --i) {
    processes.push_back(
        std::make_unique<ChildProcess>(Command{STORE_AGENT, "share", dir.path(), rounds}));
  }
  for (const auto& process : processes) EXPECT_EQ(process->wait(), 0);
}

}  // namespace
}  // namespace ombrix
