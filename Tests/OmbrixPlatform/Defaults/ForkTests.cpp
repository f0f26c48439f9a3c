// Processes that are forked, and run no other program, while others are at a file.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <optional>

#include "OmbrixPlatform/Defaults/Detail/DictionaryFile.hpp"
#include "OmbrixPlatform/Defaults/Detail/QueuedFileLock.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

using namespace std::chrono_literals;

/// A forked child that waits until it is told to go on, answers, and lives as long as this object.
class Child {
 public:
  Child() : isOpen_(::pipe(toChild_.data()) == 0 && ::pipe(toParent_.data()) == 0) {}
  ~Child() {
    if (id_ > 0) ::kill(id_, SIGKILL);
    if (id_ > 0) ::waitpid(id_, nullptr, 0);
    for (const int end : {toChild_[0], toChild_[1], toParent_[0], toParent_[1]}) ::close(end);
  }

  /// Returns in the parent only.
  void fork(const std::function<bool()>& work) {
    ASSERT_TRUE(isOpen_);
    id_ = ::fork();
    if (id_ != 0) return;
    ::alarm(60);
    char byte = 0;
    if (::read(toChild_[0], &byte, 1) != 1) ::_exit(1);
    byte = work() ? 1 : 0;
    if (::write(toParent_[1], &byte, 1) != 1) ::_exit(1);
    ::pause();
    ::_exit(0);
  }

  /// Has it go on, and waits for its answer.
  bool succeeds() {
    ::close(std::exchange(toParent_[1], -1));  // the end of the child is an answer, too
    char byte = 0;
    return ::write(toChild_[1], &byte, 1) == 1 && ::read(toParent_[0], &byte, 1) == 1 && byte == 1;
  }

 private:
  std::array<int, 2> toChild_{-1, -1}, toParent_{-1, -1};
  const bool isOpen_;
  pid_t id_ = 0;
};

// Catches a child that was forked in the middle of a write and waits for ever for a lock of its
// parent's, or keeps the lock among processes for as long as it lives.
TEST(ForkTests, AForkMayFallIntoAWrite) {
  const testing::ScopedDir dir;
  const auto path = dir.path() / "test.plist";
  DictionaryFile file(path);
  Child child;
  const auto written = file.update(
      [&](const PropertyList::Dictionary&) {
        child.fork([&] { return file.write({{"child", 1}}).isSaved; });
        return std::vector<DictionaryFile::Edit>{{"parent", 1}};
      },
      DictionaryFile::IfUnsaved::keep);
  EXPECT_TRUE(written.isSaved);
  EXPECT_TRUE(child.succeeds());
  DictionaryFile other(path);
  EXPECT_TRUE(other.write({{"other", 1}}).isSaved);
  EXPECT_EQ(other.contents().values,
            (PropertyList::Dictionary{{"parent", 1}, {"child", 1}, {"other", 1}}));
}

// Catches a lock that came after its wait had been given up, and that a child has since then.
TEST(ForkTests, AChildKeepsNoLockThatItsParentGaveUp) {
  const testing::ScopedDir dir;
  const std::string path = dir.path() / "lock";
  detail::QueuedFileLock queue;
  Child child;
  {
    detail::QueuedFileLock other;
    const auto held = other.acquire(path, 0s);
    ASSERT_TRUE(held);
    ASSERT_FALSE(queue.acquire(path, 10ms));
    child.fork([] { return true; });
  }
  const auto probe = detail::openFile(path, O_RDWR);
  EXPECT_TRUE(testing::eventually([&] { return ::flock(probe.get(), LOCK_EX | LOCK_NB) == 0; }));
}

// Catches a child that trusts a watch which did not come along, and shows what was set long ago.
TEST(ForkTests, AChildSeesWhatOthersSet) {
  const testing::ScopedDir dir;
  const auto open = [&] { return UserDefaults::make({.folder = dir.path(), .domain = "test"}); };
  const auto defaults = open();
  const auto token =
      defaults->observe("key", KeyValueObservingOptions::newValue, [](const auto&) {});
  defaults->setObject("early", "key");
  EXPECT_TRUE(defaults->synchronize());
  Child child;
  child.fork([&] { return defaults->stringForKey("key") == "late"; });
  const auto other = open();
  other->setObject("late", "key");
  EXPECT_TRUE(other->synchronize());
  EXPECT_TRUE(child.succeeds());
}

}  // namespace
}  // namespace ombrix::platform
