#include "OmbrixPlatform/Defaults/UserDefaults.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using enum KeyValueObservingOptions;
using ::testing::ElementsAre;
using testing::EventLog;

class UserDefaultsTests : public ::testing::Test {
 protected:
  std::shared_ptr<UserDefaults> open() const {
    return UserDefaults::make({.folder = dir.path() / "config", .domain = "test"});
  }

  testing::ScopedDir dir;
};

// Catches a wrong search order, and registered defaults that count as set.
TEST_F(UserDefaultsTests, ArgumentsWinOverStoredValuesOverRegisteredOnes) {
  const auto defaults = open();
  defaults->registerDefaults({{"units", "kilometers"}, {"other", 1}});
  defaults->registerDefaults({{"units", "miles"}});
  EXPECT_EQ(defaults->stringForKey("units"), "miles");
  EXPECT_EQ(defaults->explicitObjectForKey("units"), std::nullopt);
  defaults->setObject("british", "units");
  EXPECT_EQ(defaults->stringForKey("units"), "british");
  EXPECT_EQ(defaults->explicitObjectForKey("units"), "british");
  defaults->setArguments({{"units", "furlongs"}});
  EXPECT_EQ(defaults->stringForKey("units"), "furlongs");
  EXPECT_EQ(defaults->dictionaryRepresentation(),
            (PropertyList::Dictionary{{"units", "furlongs"}, {"other", 1}}));
  EXPECT_EQ(defaults->persistentDomain(), (PropertyList::Dictionary{{"units", "british"}}));
  defaults->setArguments({});
  defaults->removeObjectForKey("units");
  EXPECT_EQ(defaults->stringForKey("units"), "miles");
}

// Catches options that are taken for values and values that are taken for options.
TEST_F(UserDefaultsTests, ArgumentsAreReadFromACommandLine) {
  const char* line[] = {"ombrix", "-units", "miles",  "--verbose", "-n", "-5",  "-x",
                        "-y",     "file",   "-empty", "",          "-",  "-end"};
  EXPECT_EQ(
      UserDefaults::argumentsFrom(line),
      (PropertyList::Dictionary{{"units", "miles"}, {"n", "-5"}, {"y", "file"}, {"empty", ""}}));
}

// Catches files that are made by reading, and values that are lost between two runs.
TEST_F(UserDefaultsTests, TheFileIsMadeByTheFirstChangeAndReadByTheNextRun) {
  const auto first = open();
  EXPECT_FALSE(first->boolForKey("flag"));
  EXPECT_FALSE(fs::exists(dir.path() / "config"));
  first->setObject(true, "flag");
  first->setObject("gone", "removed");
  first->removeObjectForKey("removed");
  EXPECT_TRUE(first->synchronize());
  EXPECT_TRUE(open()->boolForKey("flag"));
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"flag", true}}));
  EXPECT_THROW(UserDefaults::make({.folder = dir.path(), .domain = "a/b"}), Error);
}

// Catches stale reads, kept values that outlive a change, and revisions shared by two objects.
TEST_F(UserDefaultsTests, ReadsAndRevisionsFollowEveryChangeWithoutAWatch) {
  const auto a = open(), b = open();
  a->setObject(1, "n");
  a->synchronize();
  EXPECT_EQ(b->integerForKey("n"), 1);
  const auto before = b->revision();
  EXPECT_EQ(b->revision(), before);
  for (int i = 2; i < 20; ++i) {
    a->setObject(i, "n");
    a->synchronize();
    EXPECT_NE(b->revision(), before);
    ASSERT_EQ(b->integerForKey("n"), i);
  }
  EXPECT_NE(a->revision(), b->revision());
}

// Catches an announcement that is missing, doubled, too early, or made for no change.
TEST_F(UserDefaultsTests, OwnChangesAreAnnouncedOnceBeforeTheSetterReturns) {
  const auto defaults = open();
  defaults->registerDefaults({{"n", 0}});
  std::vector<std::string> calls;
  auto token = defaults->observe("n", newValue | oldValue | prior, [&](const auto& change) {
    const auto text = [](const PropertyList* value) {
      return value ? std::to_string(*value->integer()) : "-";
    };
    calls.push_back((change.isPrior ? "will " : "did ") + text(change.oldValue) + ">" +
                    text(change.newValue) + " reads " +
                    std::to_string(defaults->integerForKey("n")));
  });
  defaults->setObject(1, "n");
  defaults->setObject(1, "n");
  defaults->setObject(5, "m");
  defaults->removeObjectForKey("n");
  defaults->removeObjectForKey("n");
  defaults->synchronize();
  EXPECT_THAT(calls, ElementsAre("will 0>- reads 0", "did 0>1 reads 1",  //
                                 "will 1>- reads 1", "did 1>0 reads 0"));
}

KeyValueObserving<PropertyList>::Handler into(EventLog& told) {
  return [&told](const auto& change) {
    const auto* text = change.newValue ? change.newValue->text() : nullptr;
    told.add((change.isPrior ? "will " : "did ") + std::string(change.key) +
             (text ? " " + *text : ""));
  };
}

// Catches others' changes that are missed or announced twice: found by a write on the way, by the
// watch, by both; and a watch that dies when the file is replaced, deleted, written in place, or
// its folder is made late.
TEST_F(UserDefaultsTests, OthersChangesAreAnnouncedOnceWhateverHappensToTheFile) {
  const auto mine = open(), other = open();
  EventLog told;
  auto a = mine->observe("a", newValue | prior, into(told));
  auto end = mine->observe("end", newValue, into(told));
  // What is told twice would come before the mark of the next step.
  const auto expectOnce = [&](const std::string& mark, std::vector<std::string> expected) {
    other->setObject(mark, "end");
    other->synchronize();
    expected.push_back("did end " + mark);
    EXPECT_EQ(told.takeOnce("did end " + mark), expected);
  };
  other->setObject("1", "a");
  other->synchronize();
  expectOnce("after the folder was made", {"will a", "did a 1"});

  other->setObject("2", "a");
  other->synchronize();
  mine->setObject("x", "unrelated");  // finds the change of "a" on its way
  mine->synchronize();
  expectOnce("after it was found by a write", {"will a", "did a 2"});

  fs::remove(mine->file());
  told.takeOnce("did end");
  other->setObject("3", "a");
  other->synchronize();
  expectOnce("after the file was deleted", {"will a", "did a 3"});

  const auto bytes = PropertyListSerialization::write(PropertyList::Dictionary{{"a", "4"}});
  dir.write("config/test.plist", textOf(bytes));  // in place
  EXPECT_THAT(told.takeOnce("did end"), ElementsAre("will a", "did a 4", "did end"));
}

// Catches a change that nobody is told of, that is told twice, or as none at all, since threads set
// the value at once: the same one, or different ones.
TEST_F(UserDefaultsTests, EachChangeIsToldOnceThoughThreadsSetAtOnce) {
  const auto defaults = open();
  std::atomic<std::uint64_t> announced = 0, told = 0, unchanged = 0;
  const auto token = defaults->observe("n", newValue | oldValue | prior, [&](const auto& change) {
    ++(change.isPrior ? announced : told);
    if (change.isPrior) return;
    const bool isSame = change.oldValue != nullptr && *change.oldValue == *change.newValue;
    if (isSame) ++unchanged;
  });
  constexpr int kThreads = 4, kRounds = 500;
  for (const int values : {1, 2, 3}) {
    const auto before = defaults->revision();
    announced = told = 0;
    std::barrier together(kThreads);
    {
      std::vector<std::jthread> threads;
      for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
          for (int round = 0; round < kRounds; ++round) {
            together.arrive_and_wait();
            defaults->setObject(round * values + thread % values, "n");
          }
        });
      }
    }
    EXPECT_EQ(told, defaults->revision() - before);
    EXPECT_EQ(announced, told);
    if (values == 1) {
      EXPECT_EQ(told, kRounds);
    }
  }
  EXPECT_EQ(unchanged, 0U);
}

// Catches a value of this process that another one's older change undoes before it is in the file,
// and one that is not written because readers had it already when another process's was.
TEST_F(UserDefaultsTests, WhatIsSetLastStays) {
  const auto mine = open(), other = open();
  EventLog told;
  auto token = mine->observe("n", newValue, into(told));
  for (int i = 0; i < 50; ++i) {
    other->setObject("theirs", "n");
    other->synchronize();
    mine->setObject("mine", "n");
    EXPECT_EQ(mine->stringForKey("n"), "mine");
    EXPECT_TRUE(mine->synchronize());
    ASSERT_EQ(other->stringForKey("n"), "mine");
    ASSERT_EQ(mine->stringForKey("n"), "mine");
  }
}

}  // namespace
}  // namespace ombrix::platform
