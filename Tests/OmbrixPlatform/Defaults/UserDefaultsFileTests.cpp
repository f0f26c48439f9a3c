#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <optional>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/EventLog.hpp"
#include "OmbrixTesting/Eventually.hpp"
#include "OmbrixTesting/ManualClock.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"
#include "OmbrixTesting/WithoutOverride.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class UserDefaultsFileTests : public ::testing::Test {
 protected:
  std::shared_ptr<UserDefaults> open() {
    return UserDefaults::make({.folder = dir.path(),
                               .domain = "test",
                               .onError = [this](auto& error) { errors.add(error); }});
  }

  testing::EventLog errors;
  testing::ScopedDir dir;
};

// Catches a crash, a silent loss, bytes of a damaged file that are thrown away, and values that are
// lost although a running process still knows them.
TEST_F(UserDefaultsFileTests, ADamagedFileIsSetAsideAndReported) {
  const std::string damaged[] = {"bplist00garbage", "<plist><array/></plist>", "\xff\xfe"};
  int copies = 0;
  for (const auto& bytes : damaged) {
    dir.write("test.plist", bytes);
    const auto defaults = open();
    EXPECT_FALSE(defaults->objectForKey("units"));
    EXPECT_THAT(errors.take(), ElementsAre(HasSubstr("is damaged and was set aside as")));
    const auto aside = "test.plist.damaged" + (++copies == 1 ? "" : "-" + std::to_string(copies));
    EXPECT_EQ(dir.read(aside), bytes);
    EXPECT_FALSE(fs::exists(defaults->file()));
    defaults->setObject("miles", "units");
    EXPECT_TRUE(defaults->synchronize());
    dir.write("test.plist", "bplist00 cut sho");
    EXPECT_EQ(defaults->stringForKey("units"), "miles");
    EXPECT_EQ(errors.take().size(), 1U);
    EXPECT_EQ(open()->stringForKey("units"), "miles");
    EXPECT_THAT(errors.take(), IsEmpty());
    ++copies;
  }
}

// Catches a file that is taken for damaged, or for the loss of all values, while an editor writes
// it: editors empty a file first.
TEST_F(UserDefaultsFileTests, AnEmptyFileChangesNothingUntilItIsWritten) {
  const auto defaults = open();
  defaults->setObject("miles", "units");
  defaults->synchronize();
  dir.write("test.plist", "");
  EXPECT_EQ(defaults->stringForKey("units"), "miles");
  const auto list =
      PropertyListSerialization::write(PropertyList::Dictionary{{"units", "british"}});
  dir.write("test.plist", textOf(list));
  EXPECT_EQ(defaults->stringForKey("units"), "british");
  EXPECT_THAT(errors.take(), IsEmpty());
  dir.write("test.plist", "");
  defaults->setObject(1, "n");
  EXPECT_TRUE(defaults->synchronize());
  EXPECT_THAT(errors.take(), ElementsAre(HasSubstr("was empty")));
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"units", "british"}, {"n", 1}}));
}

// Catches a failed write that leaves half a file, stops the program, is told of again and again or
// never again, or forgets what it could not write; and a file that others may read.
TEST_F(UserDefaultsFileTests, AFailedReplacementLeavesTheOldFile) {
  const auto clock = std::make_shared<testing::ManualClock>(dateSince1970(0));
  const testing::ScopedService scoped(services().clock, clock);
  const auto defaults = open();
  defaults->setObject(1, "n");
  defaults->synchronize();
  fs::create_directory(dir.path() / ".test.plist.new");  // in the way of the new file
  for (const int attempt : {4, 3, 2}) {
    defaults->setObject(attempt, "n");
    EXPECT_FALSE(defaults->synchronize());
  }
  EXPECT_THAT(errors.take(), ElementsAre(HasSubstr("Cannot write")));
  clock->advance(std::chrono::minutes(1));
  EXPECT_FALSE(defaults->synchronize());
  EXPECT_THAT(errors.take(), ElementsAre(HasSubstr("Cannot write")));
  EXPECT_EQ(defaults->integerForKey("n"), 2);
  EXPECT_EQ(open()->integerForKey("n"), 1);
  fs::remove(dir.path() / ".test.plist.new");
  EXPECT_TRUE(defaults->synchronize());
  EXPECT_EQ(fs::status(defaults->file()).permissions() & fs::perms::mask, fs::perms(0600));
  defaults->setObject(3, "m");
  defaults->synchronize();
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"n", 2}, {"m", 3}}));
}

// Catches a choice that waited for room on the disk and undoes what another process has chosen
// since.
TEST_F(UserDefaultsFileTests, WhatWaitedForRoomUndoesNothing) {
  const auto waiting = open(), other = open();
  waiting->setObject("first", "units");
  EXPECT_TRUE(waiting->synchronize());
  fs::create_directory(dir.path() / ".test.plist.new");
  waiting->setObject("early", "units");
  waiting->setObject(1, "n");
  EXPECT_FALSE(waiting->synchronize());
  fs::remove(dir.path() / ".test.plist.new");
  other->setObject("later", "units");
  EXPECT_TRUE(other->synchronize());
  EXPECT_TRUE(waiting->synchronize());
  EXPECT_EQ(waiting->stringForKey("units"), "later");
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"units", "later"}, {"n", 1}}));
}

// Catches a run as another user, such as root's, that keeps a user out of his settings from then
// on, and a file that others may read no more.
TEST_F(UserDefaultsFileTests, TheFileStaysWhoseItIs) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a file of somebody else";
  constexpr uid_t kUser = 12345;
  struct Case {
    const char* name;
    std::optional<mode_t> mode;  // of the user's file; nothing: there is none
    bool mayGiveAway;
    bool isSaved;
    mode_t expected;
  };
  constexpr Case kCases[] = {
      {"replaced", 0640, true, true, 0640},
      {"made", std::nullopt, true, true, 0600},
      {"written over, since all may", 0666, false, true, 0666},
      {"left alone", 0644, false, false, 0644},
  };
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.name);
    const testing::ScopedDir home;
    const auto file = home.path() / "test.plist";
    if (row.mode) {
      home.write(
          "test.plist",
          textOf(PropertyListSerialization::write(PropertyList::Dictionary{{"units", "british"}})));
      ASSERT_EQ(::chown(file.c_str(), kUser, kUser) + ::chmod(file.c_str(), *row.mode), 0);
    }
    ASSERT_EQ(row.mayGiveAway ? ::chown(home.path().c_str(), kUser, kUser) : 0, 0);
    {
      std::optional<testing::WithoutOverride> withoutOverride;
      if (!row.mayGiveAway) withoutOverride.emplace();
      const auto defaults = UserDefaults::make(
          {.folder = home.path(), .domain = "test", .onError = [this](auto& error) {
             errors.add(error);
           }});
      defaults->setObject(1, "n");
      EXPECT_EQ(defaults->synchronize(), row.isSaved);
    }
    for (const char* made : {"test.plist", ".test.plist.lock"}) {
      struct stat found{};
      ASSERT_EQ(::stat((home.path() / made).c_str(), &found), 0);
      const bool isFile = fs::path(made) == file.filename();
      EXPECT_EQ(found.st_uid, isFile || row.mayGiveAway ? kUser : 0) << made;
      EXPECT_EQ(found.st_mode & 07777, isFile ? row.expected : 0600) << made;
    }
    EXPECT_FALSE(fs::exists(home.path() / ".test.plist.new"));
    EXPECT_THAT(errors.take(), ::testing::SizeIs(row.isSaved ? 0 : 1));
    const auto read = UserDefaults::make({.folder = home.path(), .domain = "test"});
    EXPECT_EQ(read->integerForKey("n"), row.isSaved ? 1 : 0);
    EXPECT_EQ(read->stringForKey("units").has_value(), row.mode.has_value());
  }
}

// Catches a file that is replaced although it could not be read, a wait without end on what is no
// file, a file that takes all memory with it, and one that is written and cannot be read again.
TEST_F(UserDefaultsFileTests, WhatCannotBeReadIsReportedAndLeftAlone) {
  const auto path = dir.path() / "test.plist";
  for (const std::string reason : {"is a FIFO, not a regular file", "File too large"}) {
    if (reason.starts_with("is a FIFO")) {
      ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    } else {
      dir.write("test.plist", "x");
      fs::resize_file(path, std::uintmax_t{1} << 40);
    }
    const auto type = fs::status(path).type();
    {
      const auto defaults = open();
      EXPECT_FALSE(defaults->objectForKey("units"));
      defaults->setObject("miles", "units");
      EXPECT_EQ(defaults->stringForKey("units"), "miles");
      EXPECT_FALSE(defaults->synchronize());
    }
    EXPECT_EQ(fs::status(path).type(), type);
    EXPECT_THAT(errors.take(), ElementsAre(HasSubstr(reason)));
    EXPECT_TRUE(fs::remove(path));
  }
  const auto defaults = open();
  defaults->setObject(Data(std::size_t{17} << 20), "large");
  EXPECT_FALSE(defaults->synchronize());
  defaults->removeObjectForKey("large");
  EXPECT_TRUE(defaults->synchronize());
  EXPECT_EQ(errors.take().size(), 1U);
}

// Catches a link that is replaced by a file, so that what it led to is never changed again.
TEST_F(UserDefaultsFileTests, ASymbolicLinkStaysOne) {
  dir.write("elsewhere/real.plist", "");
  const std::pair<const char*, const char*> links[] = {{"elsewhere/real.plist", "to a file"},
                                                       {"missing.plist", "to nothing yet"}};
  for (const auto& [target, name] : links) {
    fs::create_symlink(target, dir.path() / "test.plist");
    const auto watching = open();
    testing::EventLog told;
    const auto token = watching->observe("n", KeyValueObservingOptions::none,
                                         [&](const auto&) { told.add("changed"); });
    const auto defaults = open();
    defaults->setObject(1, "n");
    EXPECT_TRUE(defaults->synchronize()) << name;
    EXPECT_TRUE(fs::is_symlink(dir.path() / "test.plist")) << name;
    EXPECT_EQ(told.takeOnce("changed").size(), 1U) << name;
    EXPECT_EQ(UserDefaults::make({.folder = (dir.path() / target).parent_path(),
                                  .domain = fs::path(target).stem().string()})
                  ->integerForKey("n"),
              1)
        << name;
    fs::remove(dir.path() / "test.plist");
  }
}

// Catches a setter that waits for another process, which may stand still while it has the file, and
// a value that is not written when the other one goes on.
TEST_F(UserDefaultsFileTests, ASetterWaitsForNobody) {
  const auto defaults = open();
  defaults->setObject(1, "n");
  EXPECT_TRUE(defaults->synchronize());
  auto other = detail::openFile((dir.path() / ".test.plist.lock").string(), O_RDWR);
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  for (const int value : {2, 3}) {
    defaults->setObject(value, "n");
    EXPECT_EQ(defaults->integerForKey("n"), value);
  }
  EXPECT_EQ(open()->integerForKey("n"), 1);
  other.reset();
  EXPECT_TRUE(testing::eventually([&] { return open()->integerForKey("n") == 3; }));
}

// Catches settings that are lost by an update of the program: the bytes were written by version 1.
TEST_F(UserDefaultsFileTests, AFileOfAnEarlierVersionIsTakenOver) {
  constexpr unsigned char kBytes[] = {
      0x62, 0x70, 0x6c, 0x69, 0x73, 0x74, 0x30, 0x30, 0x55, 0x75, 0x6e, 0x69, 0x74, 0x73, 0x57,
      0x62, 0x72, 0x69, 0x74, 0x69, 0x73, 0x68, 0x5f, 0x10, 0x12, 0x65, 0x6e, 0x61, 0x62, 0x6c,
      0x65, 0x45, 0x78, 0x74, 0x72, 0x61, 0x4c, 0x6f, 0x67, 0x67, 0x69, 0x6e, 0x67, 0x09, 0xd2,
      0x01, 0x03, 0x02, 0x04, 0x2c, 0x08, 0x0e, 0x16, 0x2b, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x31};
  dir.write("test.plist", {reinterpret_cast<const char*>(kBytes), sizeof kBytes});
  const auto defaults = open();
  defaults->setObject(1, "n");
  EXPECT_TRUE(defaults->synchronize());
  EXPECT_EQ(
      open()->persistentDomain(),
      (PropertyList::Dictionary{{"enableExtraLogging", true}, {"units", "british"}, {"n", 1}}));
}

// Catches one bad value that keeps every later one from being written.
TEST_F(UserDefaultsFileTests, WhatNoPropertyListCanHoldIsRefused) {
  const auto defaults = open();
  EXPECT_THROW(defaults->setObject("\xff", "bad"), PropertyListError);
  EXPECT_THROW(defaults->setObject(1, "\xff"), PropertyListError);
  defaults->setObject(1, "good");
  defaults->synchronize();
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"good", 1}}));
}

}  // namespace
}  // namespace ombrix::platform
