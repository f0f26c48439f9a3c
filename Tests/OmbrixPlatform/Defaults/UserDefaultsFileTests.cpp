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
  std::shared_ptr<UserDefaults> open(const char* folder = "") {
    return UserDefaults::make({.folder = dir.path() / folder,
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

// Catches a file of another program's making that is not read, or whose other keys are lost.
TEST_F(UserDefaultsFileTests, TheTextFormIsReadToo) {
  dir.write("test.plist", textOf(PropertyListSerialization::write(
                              PropertyList::Dictionary{{"a", 1}}, PropertyListFormat::xml)));
  const auto defaults = open();
  defaults->setObject(2, "b");
  EXPECT_EQ(open()->persistentDomain(), (PropertyList::Dictionary{{"a", 1}, {"b", 2}}));
}

// Catches a value that is lost, or a program that stops, when the disk refuses; and one report for
// each of many equal failures.
TEST_F(UserDefaultsFileTests, WhatCannotBeWrittenIsKeptAndTriedAgain) {
  dir.write("folder", "in the way");
  const auto defaults = open("folder");
  defaults->setObject("miles", "units");
  defaults->setObject("kilometers", "units");
  defaults->setObject(1, "n");
  EXPECT_EQ(defaults->stringForKey("units"), "kilometers");
  EXPECT_FALSE(defaults->synchronize());
  EXPECT_THAT(errors, Not(IsEmpty()));
  fs::remove(dir.path() / "folder");
  EXPECT_TRUE(defaults->synchronize());
  EXPECT_EQ(open("folder")->persistentDomain(),
            (PropertyList::Dictionary{{"units", "kilometers"}, {"n", 1}}));
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

// Catches traces that writers leave: temporary files, or files that others may read.
TEST_F(UserDefaultsFileTests, OnlyTheFileAndItsLockRemainAndArePrivate) {
  open()->setObject(1, "n");
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(dir.path())) {
    names.push_back(entry.path().filename());
    EXPECT_EQ(fs::status(entry).permissions() & fs::perms::mask, fs::perms(0600));
  }
  EXPECT_THAT(names, ::testing::UnorderedElementsAre("test.plist", ".test.plist.lock"));
}

}  // namespace
}  // namespace ombrix::platform
