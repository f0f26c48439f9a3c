#include <gtest/gtest.h>

#include "OmbrixCore/Data/Stores/Persisted.hpp"
#include "OmbrixTesting/ChildProcess.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix {
namespace {

using platform::URL;

// Catches values that a process has set and not written when its main function returns, or that it
// has written wrongly then, in the container too.
TEST(PersistedProcessTests, AnEndingProcessWritesWhatItHasSet) {
  const testing::ScopedDir dir;
  constexpr int kRuns = 10, kOthers = 60;
  for (const char* name : {"elsewhere", "group"}) {
    const std::string path = dir.path() / name;
    for (int i = 0; i < kRuns; ++i) {
      testing::ChildProcess agent(
          {STORE_AGENT, "launch", path, std::to_string(kOthers), dir.path() / "group"});
      EXPECT_EQ(agent.wait(), 0);
    }
    const URL folder = URL::fileURL(path, true);
    EXPECT_EQ(Persisted<int>(0, folder, "launches").wrappedValue(), kRuns) << name;
    for (int i = 0; i < kOthers; ++i) {
      EXPECT_EQ(Persisted<int>(-1, folder, "other" + std::to_string(i)).wrappedValue(), i) << name;
    }
  }
}

}  // namespace
}  // namespace ombrix
