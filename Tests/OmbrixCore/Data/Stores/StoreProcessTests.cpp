#include <gtest/gtest.h>

#include "OmbrixCore/Data/Stores/Persisted.hpp"
#include "OmbrixTesting/ChildProcess.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

using platform::URL;

// Catches values that a process has set and not written when its main function returns.
TEST(PersistedProcessTests, AnEndingProcessWritesWhatItHasSet) {
  const testing::ScopedDir dir;
  constexpr int kRuns = 5, kOthers = 60;
  for (int i = 0; i < kRuns; ++i) {
    testing::ChildProcess agent({STORE_AGENT, "launch", dir.path(), std::to_string(kOthers)});
    EXPECT_EQ(agent.wait(), 0);
  }
  const URL folder = URL::fileURL(dir.path().string(), true);
  EXPECT_EQ(Persisted<int>(0, folder, "launches").wrappedValue(), kRuns);
  for (int i = 0; i < kOthers; ++i) {
    EXPECT_EQ(Persisted<int>(-1, folder, "other" + std::to_string(i)).wrappedValue(), i);
  }
}

}  // namespace
}  // namespace ombrix
