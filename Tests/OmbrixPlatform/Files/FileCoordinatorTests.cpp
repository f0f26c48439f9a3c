#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>
#include <latch>
#include <semaphore>
#include <thread>

#include "OmbrixPlatform/Concurrency/NSOperationQueue.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Files/NSFileCoordinator.hpp"
#include "OmbrixTesting/Processes/ChildProcess.hpp"
#include "OmbrixTesting/Sanitizers.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/WithoutOverride.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::ChildProcess;
using Reading = NSFileCoordinator::ReadingOptions;
using Writing = NSFileCoordinator::WritingOptions;

/// Counts what it is told, on the pool.
class Presenter final : public NSFilePresenter {
 public:
  explicit Presenter(URL url, const NSFilePresenter* represented = nullptr)
      : url_(std::move(url)), represented_(represented != nullptr ? represented : this) {}
  std::optional<URL> presentedItemURL() const override { return url_; }
  std::shared_ptr<NSOperationQueue> presentedItemOperationQueue() const override { return nullptr; }
  bool represents(const NSFilePresenter& presenter) const override {
    return &presenter == represented_;
  }
  void presentedItemDidChange() override { told_.release(); }

  bool isTold(std::chrono::steady_clock::duration within = 30s) {
    return told_.try_acquire_for(within);
  }

 private:
  const URL url_;
  const NSFilePresenter* const represented_;
  std::counting_semaphore<> told_{0};
};

class FileCoordinatorTests : public ::testing::Test {
 protected:
  FileCoordinatorTests() { fs::create_directory(dir_.path() / "data"); }

  URL url(const fs::path& name) const {
    return URL::fileURL((dir_.path() / "data" / name).string());
  }
  URL locks() const { return URL::fileURL((dir_.path() / "locks").string(), true); }
  NSFileCoordinator coordinator(std::shared_ptr<NSFilePresenter> presenter = nullptr) const {
    return NSFileCoordinator(std::move(presenter), locks());
  }
  std::unique_ptr<ChildProcess> agent(const std::string& command, const URL& file,
                                      const std::string& argument = {}) const {
    return std::make_unique<ChildProcess>(std::vector<std::string>{
        TEST_AGENT, "coordinate", command, locks().path(), file.path(), argument});
  }
  void write(const URL& file, std::string_view text,
             std::shared_ptr<NSFilePresenter> presenter = nullptr) const {
    ASSERT_TRUE(coordinator(std::move(presenter))
                    .coordinateWritingItemAtURL(file, Writing::forMerging, [&](const URL& url) {
                      std::ofstream(url.path()) << text;
                    }));
  }

  testing::ScopedDir dir_;
};

// Catches access that is not exclusive: among processes, threads, or both, also while the data
// folder is removed again and again.
TEST_F(FileCoordinatorTests, WritersExcludeEachOther) {
  const int rounds = testing::kUnderSanitizer ? 30 : 100;
  const URL file = url("count");
  const auto first = agent("count", file, std::to_string(rounds));
  const auto second = agent("count", file, std::to_string(rounds));
  const auto count = [&] {
    const auto own = coordinator();
    for (int i = 0; i < rounds; ++i) {
      ASSERT_TRUE(own.coordinateWritingItemAtURL(file, Writing::none, [&](const URL& url) {
        long number = 0;
        std::ifstream(url.path()) >> number;
        fs::remove_all(dir_.path() / "data");
        fs::create_directory(dir_.path() / "data");
        std::ofstream(url.path()) << number + 1;
      }));
    }
  };
  std::thread other(count);
  count();
  other.join();
  EXPECT_EQ(first->wait(), 0);
  EXPECT_EQ(second->wait(), 0);
  long total = 0;
  std::ifstream(file.path()) >> total;
  EXPECT_EQ(total, 4L * rounds);
}

// Catches readers that exclude each other, a writer that enters beside a reader, and a stream of
// readers that keeps a writer out for ever.
TEST_F(FileCoordinatorTests, ReadersShareAndLetWritersIn) {
  const auto own = coordinator();
  std::atomic<int> readers = 0;
  std::atomic<bool> isDone = false;
  std::atomic<bool> sawReader = false;
  const auto read = [&] {
    while (!isDone) {
      ASSERT_TRUE(own.coordinateReadingItemAtURL(url("a"), Reading::none, [&](const URL&) {
        ++readers;
        // The first two meet inside: if they excluded each other, neither would go on.
        while (readers < 2 && !isDone && !sawReader) std::this_thread::yield();
        std::this_thread::yield();
        sawReader = true;
        --readers;
      }));
    }
  };
  std::thread one(read), two(read);
  while (!sawReader) std::this_thread::yield();
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(own.coordinateWritingItemAtURL(url("a"), Writing::none,
                                               [&](const URL&) { EXPECT_EQ(readers, 0); }));
  }
  isDone = true;
  one.join();
  two.join();
}

// Catches a call that waits for its own thread, an inner end that releases the outer access, and
// two spellings of a path that do not meet.
TEST_F(FileCoordinatorTests, CallsNestOnOneThread) {
  fs::create_directory_symlink(dir_.path() / "data", dir_.path() / "link");
  const URL plain = url("a");
  const URL linked = URL::fileURL((dir_.path() / "link/./a").string());
  const auto outer = coordinator();
  const auto inner = coordinator();
  const auto isFree = [&] {
    const auto other = agent("write", plain, "x");
    return other->wait() == 0;
  };
  int calls = 0;
  const auto count = [&](const URL&) { ++calls; };
  std::future<bool> taken;
  ASSERT_TRUE(outer.coordinateWritingItemAtURL(plain, Writing::none, [&](const URL&) {
    EXPECT_TRUE(inner.coordinateReadingItemAtURL(linked, Reading::none, count));
    EXPECT_TRUE(inner.coordinateWritingItemAtURL(linked, Writing::forDeleting, count));
    taken = std::async(std::launch::async, isFree);
    EXPECT_EQ(taken.wait_for(50ms), std::future_status::timeout);
  }));
  EXPECT_TRUE(taken.get());
  ASSERT_TRUE(outer.coordinateReadingItemAtURL(plain, Reading::none, [&](const URL&) {
    EXPECT_TRUE(inner.coordinateWritingItemAtURL(linked, Writing::none, count));
    // Shared again: another reader enters, a writer does not.
    std::async(std::launch::async, [&] {
      EXPECT_TRUE(inner.coordinateReadingItemAtURL(plain, Reading::none, count));
    }).get();
    taken = std::async(std::launch::async, isFree);
    EXPECT_EQ(taken.wait_for(50ms), std::future_status::timeout);
  }));
  EXPECT_TRUE(taken.get());
  ASSERT_TRUE(outer.coordinateReadingItemAtURLWritingItemAtURL(
      plain, Reading::none, linked, Writing::none, [&](const URL&, const URL&) { ++calls; }));
  EXPECT_EQ(calls, 5);
}

// Catches two readers that both turn writer and wait for each other for ever.
TEST_F(FileCoordinatorTests, OneOfTwoReadersThatTurnWriterFails) {
  const auto own = coordinator();
  std::atomic<int> readers = 0, errors = 0, written = 0;
  const auto run = [&] {
    ASSERT_TRUE(own.coordinateReadingItemAtURL(url("a"), Reading::none, [&](const URL&) {
      ++readers;
      while (readers < 2) std::this_thread::yield();
      const auto result =
          own.coordinateWritingItemAtURL(url("a"), Writing::none, [&](const URL&) { ++written; });
      if (!result && result.error().code() == EDEADLK) ++errors;
    }));
  };
  std::thread one(run), two(run);
  one.join();
  two.join();
  EXPECT_EQ(errors, 1);
  EXPECT_EQ(written, 1);
}

// Catches two calls on the same two files, named in opposite orders, that wait for each other.
TEST_F(FileCoordinatorTests, PairsAreTakenInOneOrder) {
  const auto run = [&](const URL& one, const URL& two) {
    const auto own = coordinator();
    for (int i = 0; i < 200; ++i) {
      ASSERT_TRUE(own.coordinateWritingItemAtURLWritingItemAtURL(
          one, Writing::none, two, Writing::none,
          [&](const URL& first, const URL&) { EXPECT_EQ(first, one); }));
      ASSERT_TRUE(own.coordinateReadingItemAtURLWritingItemAtURL(
          one, Reading::none, two, Writing::none, [](const URL&, const URL&) {}));
    }
  };
  std::thread other([&] { run(url("b"), url("a")); });
  run(url("a"), url("b"));
  other.join();
}

// Catches a wait without end for a process that stands still inside a file, a writer who has given
// up and keeps readers out, and a lock that comes to nobody, or to a reader, afterwards.
TEST_F(FileCoordinatorTests, AProcessThatStandsStillIsNotWaitedForWithoutEnd) {
  const auto holder = agent("hold", url("a"));
  ASSERT_EQ(holder->readLine(), "held");
  holder->signal(SIGSTOP);
  const auto own = coordinator();
  const auto start = [&](bool isWriter, const URL& file) {
    return std::async(std::launch::async, [&own, isWriter, file] {
      const auto nothing = [](const URL&) {};
      const auto result = isWriter ? own.coordinateWritingItemAtURL(file, Writing::none, nothing)
                                   : own.coordinateReadingItemAtURL(file, Reading::none, nothing);
      return result ? 0 : result.error().code();
    });
  };
  auto reader = start(false, url("a")), writer = start(true, url("a"));
  // A reader that would write beside another one.
  std::latch bothRead(2), hasGivenUp(1);
  auto other = std::async(std::launch::async, [&] {
    EXPECT_TRUE(own.coordinateReadingItemAtURL(url("c"), Reading::none, [&](const URL&) {
      bothRead.arrive_and_wait();
      hasGivenUp.wait();
    }));
  });
  auto upgrade = std::async(std::launch::async, [&] {
    EXPECT_TRUE(own.coordinateReadingItemAtURL(url("c"), Reading::none, [&](const URL& file) {
      bothRead.arrive_and_wait();
      const auto inner = own.coordinateWritingItemAtURL(file, Writing::none, [](const URL&) {});
      EXPECT_EQ(inner ? 0 : inner.error().code(), ETIMEDOUT);
      hasGivenUp.count_down();
      other.get();
      EXPECT_EQ(start(false, file).get(), 0) << "the write was granted later";
    }));
  });
  ASSERT_TRUE(own.coordinateReadingItemAtURL(url("b"), Reading::none, [&](const URL&) {
    EXPECT_EQ(start(true, url("b")).get(), ETIMEDOUT);
    EXPECT_EQ(start(false, url("b")).get(), 0);
  }));
  EXPECT_EQ(reader.get(), ETIMEDOUT);
  EXPECT_EQ(writer.get(), ETIMEDOUT);
  upgrade.get();
  holder->kill();
  write(url("a"), "after");
  write(url("b"), "after");
}

// Catches a child that is forked inside an access and ends it for its parent.
TEST_F(FileCoordinatorTests, AForkedChildLeavesItsParentsAccess) {
  const auto isLocked = [&] {
    const auto file = detail::openFile(dir_.path() / "locks/.filecoordination", O_RDWR);
    struct flock lock{};
    lock.l_type = F_WRLCK;
    EXPECT_EQ(::fcntl(file.get(), F_OFD_GETLK, &lock), 0);
    return lock.l_type != F_UNLCK;
  };
  const pid_t parent = ::getpid();
  ASSERT_TRUE(coordinator().coordinateWritingItemAtURL(url("a"), Writing::none, [&](const URL&) {
    const pid_t child = ::fork();
    if (child == 0) return;
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(isLocked());
  }));
  if (::getpid() != parent) ::_exit(0);
  EXPECT_FALSE(isLocked());
}

// Catches a child that waits for the presenters, since a thread of its parent was at them.
TEST_F(FileCoordinatorTests, AForkedChildWrites) {
  if (testing::kUnderSanitizer) GTEST_SKIP() << "their allocators are held at a fork";
  const auto presenter = std::make_shared<Presenter>(url("a"));
  NSFileCoordinator::addFilePresenter(presenter);
  std::jthread writer([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) write(url("a"), "text", presenter);
  });
  for (int i = 0; i < 200; ++i) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::alarm(30);
      const auto written =
          coordinator().coordinateWritingItemAtURL(url("b"), Writing::none, [](const URL&) {});
      ::_exit(written ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0) << i;
  }
  writer = {};
  NSFileCoordinator::removeFilePresenter(presenter);
}

// Catches a lock that outlives its killed holder, an exception that keeps it, lock files that pile
// up or lie among the data, and a lock folder that is not made anew.
TEST_F(FileCoordinatorTests, NothingStaysBehind) {
  const auto holder = agent("hold", url("a"));
  ASSERT_EQ(holder->readLine(), "held");
  auto waiting = std::async(std::launch::async, [&] { write(url("a"), "after"); });
  EXPECT_EQ(waiting.wait_for(50ms), std::future_status::timeout);
  holder->kill();
  waiting.get();
  EXPECT_EQ(dir_.read("data/a"), "after");
  EXPECT_THROW((void)coordinator().coordinateWritingItemAtURL(
                   url("a"), Writing::none, [](const URL&) { throw std::runtime_error("no"); }),
               std::runtime_error);
  for (int i = 0; i < 50; ++i) write(url("f" + std::to_string(i)), "x");
  const auto countOf = [](const fs::path& folder) {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
  };
  EXPECT_EQ(countOf(dir_.path() / "data"), 51);
  EXPECT_EQ(countOf(dir_.path() / "locks"), 1);
  fs::remove_all(dir_.path() / "locks");
  write(url("a"), "x");
}

// Catches a presenter that is told of its own writes (or of writes to other files), one that is not
// told of others' in this process or another, coordinated or not, and calls after its removal.
TEST_F(FileCoordinatorTests, PresentersHearOfOthersOnly) {
  const auto presenter = std::make_shared<Presenter>(url("a"));
  const auto other = std::make_shared<Presenter>(url("b"));
  NSFileCoordinator::addFilePresenter(presenter);
  NSFileCoordinator::addFilePresenter(other);
  for (int i = 0; i < 20; ++i) write(url("a"), i % 2 == 0 ? "own" : "OWN", presenter);
  EXPECT_FALSE(presenter->isTold(100ms));

  write(url("a"), "here");
  EXPECT_TRUE(presenter->isTold());
  EXPECT_FALSE(presenter->isTold(50ms)) << "told twice, by the folder too";

  EXPECT_EQ(agent("write", url("a"), "there")->wait(), 0);
  EXPECT_TRUE(presenter->isTold());
  while (presenter->isTold(50ms)) {
  }
  // Another's write right before an own one, of the same length.
  EXPECT_EQ(agent("write", url("a"), "THERE")->wait(), 0);
  write(url("a"), "these", presenter);
  EXPECT_TRUE(presenter->isTold());
  while (presenter->isTold(50ms)) {
  }
  fs::remove(dir_.path() / "data/a");
  EXPECT_TRUE(presenter->isTold());
  EXPECT_FALSE(other->isTold(0ms));

  NSFileCoordinator::removeFilePresenter(presenter);
  NSFileCoordinator::removeFilePresenter(other);
  write(url("a"), "unheard");
  EXPECT_FALSE(presenter->isTold(50ms));
}

// Catches a presenter that is told of a write which did not happen, one that is not told of a write
// that leaves size and clock tick as they were, and one that hears of its own writes by way of a
// coordinator that another presenter stands in at.
TEST_F(FileCoordinatorTests, PresentersHearOfChangesOnly) {
  const auto presenter = std::make_shared<Presenter>(url("a"));
  const auto standIn = std::make_shared<Presenter>(url("a"), presenter.get());
  write(url("a"), "text");
  NSFileCoordinator::addFilePresenter(presenter);
  for (int i = 0; i < 20; ++i) {
    ASSERT_TRUE(coordinator().coordinateWritingItemAtURL(url("a"), Writing::none, [](auto&) {}));
    write(url("a"), "sets", standIn);
  }
  ASSERT_TRUE(coordinator().coordinateWritingItemAtURL(url("b"), Writing::none, [](auto&) {}));
  EXPECT_FALSE(presenter->isTold(100ms));
  for (int i = 0; i < 20; ++i) {
    write(url("a"), "text");
    EXPECT_TRUE(presenter->isTold()) << i;
  }
  EXPECT_FALSE(presenter->isTold(50ms)) << "told twice";
  NSFileCoordinator::removeFilePresenter(presenter);
}

// Catches a folder that stays watched when its last presenter goes while the file is written.
TEST_F(FileCoordinatorTests, APresenterMayGoDuringAWrite) {
  const auto watches = [] {
    std::size_t count = 0;
    for (const auto& file : fs::directory_iterator("/proc/self/fdinfo")) {
      std::ifstream lines(file.path());
      for (std::string line; std::getline(lines, line);) count += line.starts_with("inotify");
    }
    return count;
  };
  const std::size_t before = watches();
  const auto presenter = std::make_shared<Presenter>(url("a"));
  NSFileCoordinator::addFilePresenter(presenter);
  EXPECT_GT(watches(), before);
  ASSERT_TRUE(coordinator().coordinateWritingItemAtURL(url("a"), Writing::none, [&](const URL&) {
    NSFileCoordinator::removeFilePresenter(presenter);
  }));
  EXPECT_EQ(watches(), before);
}

// Catches a reader of locks that it may not change who is told of a deadlock when it would write.
TEST_F(FileCoordinatorTests, AReaderWithoutWriteAccessIsToldWhy) {
  write(url("a"), "text");
  const fs::path lockFile = dir_.path() / "locks/.filecoordination";
  fs::permissions(lockFile, fs::perms::owner_read);
  const testing::WithoutOverride withoutOverride;
  int code = 0;
  EXPECT_TRUE(coordinator().coordinateReadingItemAtURL(url("a"), Reading::none, [&](const URL&) {
    const auto nested =
        coordinator().coordinateWritingItemAtURL(url("a"), Writing::none, [](const URL&) {});
    if (!nested) code = nested.error().code();
  }));
  EXPECT_EQ(code, EACCES);
}

}  // namespace
}  // namespace ombrix::platform
