#include "OmbrixPlatform/Files/FolderWatcher.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using testing::EventLog;

FolderWatcher::Handler into(EventLog& told) {
  return [&told](const FolderChange& change) {
    static constexpr const char* kNames[] = {"written ", "replaced ", "removed ", "look again"};
    told.add(kNames[static_cast<int>(change.kind)] + std::string(change.name));
  };
}

// Catches changes that are missed or told as another kind, and a watch that needs its folder, or is
// lost when the folder or one above it is made, removed, or made anew.
TEST(FolderWatcherTests, FollowsAPathWhateverIsThere) {
  const testing::ScopedDir dir;
  FolderWatcher watcher;
  EventLog told;
  const auto folder = dir.path() / "one" / "two" / "three";
  auto token = watcher.watch(folder, into(told));
  for (int round = 0; round < 3; ++round) {
    fs::create_directories(folder);
    EXPECT_THAT(told.takeOnce("look again"), ElementsAre("look again"));
    dir.write("one/two/three/a", "1");
    EXPECT_THAT(told.takeOnce("written a"), ElementsAre("replaced a", "written a"));
    fs::rename(folder / "a", folder / "b");
    EXPECT_THAT(told.takeOnce("replaced b"), ElementsAre("removed a", "replaced b"));
    fs::remove_all(dir.path() / "one");
    EXPECT_THAT(told.takeOnce("look again"), ElementsAre("removed b", "look again"));
  }
  dir.write("one", "a file in the way");
  fs::remove(dir.path() / "one");
  fs::create_directories(folder);
  EXPECT_THAT(told.takeOnce("look again"), ElementsAre("look again"));
}

// Catches watches of one folder that end or disturb each other.
TEST(FolderWatcherTests, WatchesOfOneFolderAreIndependent) {
  const testing::ScopedDir dir;
  FolderWatcher watcher;
  EventLog first, second, above;
  auto a = watcher.watch(dir.path(), into(first));
  auto b = watcher.watch(dir.path() / "", into(second));
  auto c = watcher.watch(dir.path() / "later", into(above));
  a.cancel();
  dir.write("x", "1");
  EXPECT_THAT(second.takeOnce("written x"), ElementsAre("replaced x", "written x"));
  b.cancel();
  fs::create_directory(dir.path() / "later");
  EXPECT_THAT(above.takeOnce("look again"), ElementsAre("look again"));
  auto again = watcher.watch(dir.path(), into(first));
  dir.write("z", "1");
  EXPECT_THAT(first.takeOnce("written z"), ElementsAre("replaced z", "written z"));
}

}  // namespace
}  // namespace ombrix::platform
