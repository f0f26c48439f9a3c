#include "OmbrixPlatform/Files/FolderWatcher.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;

/// Collects what a watch tells, up to a mark.
class Told {
 public:
  FolderWatcher::Handler handler() {
    return [this](const FolderChange& change) {
      static constexpr const char* kNames[] = {"written ", "replaced ", "removed ", "look again"};
      const std::lock_guard lock(mutex_);
      calls_.push_back(kNames[static_cast<int>(change.kind)] + std::string(change.name));
      added_.notify_all();
    };
  }

  /// Waits until the call was made; the calls so far, that one included.
  std::vector<std::string> takeUntil(const std::string& last) {
    std::unique_lock lock(mutex_);
    if (!added_.wait_for(lock, std::chrono::seconds(30),
                         [&] { return !calls_.empty() && calls_.back() == last; })) {
      calls_.push_back("(no " + last + ")");
    }
    return std::exchange(calls_, {});
  }

 private:
  std::mutex mutex_;
  std::condition_variable added_;
  std::vector<std::string> calls_;
};

// Catches changes that are missed, told as another kind, or told of folders below.
TEST(FolderWatcherTests, TellsWhatHappensToEntries) {
  const testing::ScopedDir dir;
  FolderWatcher watcher;
  Told told;
  fs::create_directory(dir.path() / "sub");
  auto token = watcher.watch(dir.path(), told.handler());
  dir.write("a", "1");
  EXPECT_THAT(told.takeUntil("written a"), ElementsAre("replaced a", "written a"));
  dir.write("sub/b", "1");
  fs::rename(dir.path() / "sub/b", dir.path() / "a");
  EXPECT_THAT(told.takeUntil("replaced a"), ElementsAre("replaced a"));
  fs::rename(dir.path() / "a", dir.path() / "c");
  EXPECT_THAT(told.takeUntil("replaced c"), ElementsAre("removed a", "replaced c"));
  fs::remove(dir.path() / "c");
  EXPECT_THAT(told.takeUntil("removed c"), ElementsAre("removed c"));
}

// Catches a watch that needs its folder, or is lost when the folder or one above it is made,
// removed, or made anew.
TEST(FolderWatcherTests, FollowsAPathWhateverIsThere) {
  const testing::ScopedDir dir;
  FolderWatcher watcher;
  Told told;
  const auto folder = dir.path() / "one" / "two" / "three";
  auto token = watcher.watch(folder, told.handler());
  for (int round = 0; round < 3; ++round) {
    fs::create_directories(folder);
    EXPECT_THAT(told.takeUntil("look again"), ElementsAre("look again"));
    dir.write("one/two/three/a", "1");
    told.takeUntil("written a");
    fs::remove_all(dir.path() / "one");
    EXPECT_THAT(told.takeUntil("look again"), ElementsAre("removed a", "look again"));
  }
  dir.write("one", "a file in the way");
  fs::remove(dir.path() / "one");
  fs::create_directories(folder);
  EXPECT_THAT(told.takeUntil("look again"), ElementsAre("look again"));
}

// Catches watches of one folder that end or disturb each other.
TEST(FolderWatcherTests, WatchesOfOneFolderAreIndependent) {
  const testing::ScopedDir dir;
  FolderWatcher watcher;
  Told first, second, above;
  auto a = watcher.watch(dir.path(), first.handler());
  auto b = watcher.watch(dir.path() / "", second.handler());
  auto c = watcher.watch(dir.path() / "later", above.handler());
  a.cancel();
  dir.write("x", "1");
  EXPECT_THAT(second.takeUntil("written x"), ElementsAre("replaced x", "written x"));
  fs::create_directory(dir.path() / "later");
  EXPECT_THAT(above.takeUntil("look again"), ElementsAre("look again"));
  b.cancel();
  dir.write("later/y", "1");
  EXPECT_THAT(above.takeUntil("written y"), ElementsAre("replaced y", "written y"));
  c.cancel();
  auto again = watcher.watch(dir.path(), first.handler());
  dir.write("z", "1");
  EXPECT_THAT(first.takeUntil("written z"), ElementsAre("replaced z", "written z"));
}

}  // namespace
}  // namespace ombrix::platform
