#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

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
                               .onError = [this](auto& error) { errors.push_back(error); }});
  }

  testing::ScopedDir dir;
  std::vector<std::string> errors;
};

// Catches a crash, a silent loss, or bytes of a damaged file that are thrown away.
TEST_F(UserDefaultsFileTests, ADamagedFileIsSetAsideAndReported) {
  const std::string damaged[] = {"bplist00garbage", "<plist><array/></plist>", "\xff\xfe"};
  int copies = 0;
  for (const auto& bytes : damaged) {
    dir.write("test.plist", bytes);
    const auto defaults = open();
    EXPECT_FALSE(defaults->objectForKey("units"));
    EXPECT_THAT(errors, ElementsAre(HasSubstr("is damaged and was set aside as")));
    errors.clear();
    const auto aside = "test.plist.damaged" + (++copies == 1 ? "" : "-" + std::to_string(copies));
    EXPECT_EQ(dir.read(aside), bytes);
    EXPECT_FALSE(fs::exists(defaults->file()));
    defaults->setObject("miles", "units");
    EXPECT_EQ(open()->stringForKey("units"), "miles");
    EXPECT_THAT(errors, IsEmpty());
  }
}

// Catches values that are lost although a running process still knows them.
TEST_F(UserDefaultsFileTests, ARunningProcessWritesBackWhatItKnewOfADamagedFile) {
  const auto defaults = open();
  defaults->setObject("miles", "units");
  dir.write("test.plist", "bplist00 cut sho");
  EXPECT_EQ(defaults->stringForKey("units"), "miles");
  EXPECT_EQ(errors.size(), 1U);
  EXPECT_EQ(open()->stringForKey("units"), "miles");
}

// Catches a file that is taken for damaged, or for the loss of all values, while an editor writes
// it: editors empty a file first.
TEST_F(UserDefaultsFileTests, AnEmptyFileChangesNothingUntilItIsWritten) {
  const auto defaults = open();
  defaults->setObject("miles", "units");
  dir.write("test.plist", "");
  EXPECT_EQ(defaults->stringForKey("units"), "miles");
  const auto list =
      PropertyListSerialization::write(PropertyList::Dictionary{{"units", "british"}});
  dir.write("test.plist", textOf(list));
  EXPECT_EQ(defaults->stringForKey("units"), "british");
  EXPECT_THAT(errors, IsEmpty());
  dir.write("test.plist", "");
  defaults->setObject(1, "n");
  EXPECT_THAT(errors, ElementsAre(HasSubstr("was empty")));
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"units", "british"}, {"n", 1}}));
}

// Catches a failed write that leaves half a file, stops the program, or forgets what it could not
// write; and a file that others may read.
TEST_F(UserDefaultsFileTests, AFailedReplacementLeavesTheOldFile) {
  const auto defaults = open();
  defaults->setObject(1, "n");
  fs::create_directory(dir.path() / ".test.plist.new");  // in the way of the new file
  defaults->setObject(2, "n");
  EXPECT_THAT(errors, ElementsAre(HasSubstr("Cannot write")));
  EXPECT_EQ(defaults->integerForKey("n"), 2);
  EXPECT_EQ(open()->integerForKey("n"), 1);
  EXPECT_FALSE(defaults->synchronize());
  fs::remove(dir.path() / ".test.plist.new");
  EXPECT_TRUE(defaults->synchronize());
  EXPECT_EQ(fs::status(defaults->file()).permissions() & fs::perms::mask, fs::perms(0600));
  defaults->setObject(3, "m");
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"n", 2}, {"m", 3}}));
}

// Catches a file that is replaced although it could not be read, and a wait without end on what
// is no file.
TEST_F(UserDefaultsFileTests, WhatIsNoFileIsReportedAndLeftAlone) {
  const auto path = dir.path() / "test.plist";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const auto defaults = open();
  EXPECT_FALSE(defaults->objectForKey("units"));
  defaults->setObject("miles", "units");
  EXPECT_EQ(defaults->stringForKey("units"), "miles");
  EXPECT_TRUE(fs::is_fifo(path));
  EXPECT_THAT(errors, Contains(HasSubstr("Cannot read")));
}

// Catches one bad value that keeps every later one from being written.
TEST_F(UserDefaultsFileTests, WhatNoPropertyListCanHoldIsRefused) {
  const auto defaults = open();
  EXPECT_THROW(defaults->setObject("\xff", "bad"), PropertyListError);
  EXPECT_THROW(defaults->setObject(1, "\xff"), PropertyListError);
  defaults->setObject(1, "good");
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"good", 1}}));
}

}  // namespace
}  // namespace ombrix::platform
