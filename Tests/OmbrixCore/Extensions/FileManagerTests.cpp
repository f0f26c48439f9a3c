#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "OmbrixCore/Extensions/FileManager+Utils.hpp"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"
#include "OmbrixTesting/WithoutOverride.hpp"

namespace ombrix {
namespace {

namespace fs = std::filesystem;
using platform::URL;
using ::testing::ElementsAre;
using ::testing::StartsWith;

class FileManagerTests : public ::testing::Test {
 protected:
  URL url(std::string_view name) const {
    return URL::fileURL(root().string()).appendingPathComponent(name);
  }
  const fs::path& root() const { return directories_.dir().path(); }

  testing::RecordingLog log_;
  testing::ScopedDirectories directories_;
  const FileManager& manager_ = FileManager::defaultManager();
};

// Catches a folder of the user's own given away as the product's, and a folder made by asking.
TEST_F(FileManagerTests, NamesTheFolders) {
  EXPECT_EQ(manager_.cache(), url("caches/com.brannoway.ombrix/"));
  EXPECT_EQ(manager_.applicationSupport(), url("support/com.brannoway.ombrix/"));
  EXPECT_EQ(manager_.temporary(), url("temporary/com.brannoway.ombrix/"));
  EXPECT_EQ(manager_.library(), url("library/"));
  EXPECT_EQ(manager_.documents(), url("documents/"));
  EXPECT_EQ(manager_.groupContainer(), std::nullopt);
  EXPECT_EQ(manager_.groupContainerApplicationSupport(), std::nullopt);
  EXPECT_EQ(manager_.groupContainerCache(), std::nullopt);
  directories_.setGroupContainer(true);
  EXPECT_EQ(manager_.groupContainer(), url("group/"));
  EXPECT_EQ(manager_.groupContainerApplicationSupport()->path(),
            (root() / "group/Library/Application Support/com.brannoway.ombrix").string());
  EXPECT_EQ(manager_.groupContainerCache(), url("group/Library/Caches/com.brannoway.ombrix/"));
  EXPECT_EQ(FileManager::OmbrixGroupName, "group.com.brannoway.ombrix");
  EXPECT_TRUE(fs::is_empty(root()));
}

// Catches a folder made in the file's own place, or not at all.
TEST_F(FileManagerTests, TouchMakesTheFolder) {
  manager_.touch(url("a/b/file.data"));
  EXPECT_TRUE(fs::is_directory(root() / "a/b"));
  EXPECT_FALSE(fs::exists(root() / "a/b/file.data"));
  manager_.touch(url("c/d/"));
  manager_.touch(url("c/d/"));
  EXPECT_TRUE(fs::is_directory(root() / "c/d"));
  // What stands in the folder's place is left alone.
  directories_.dir().write("file", "x");
  manager_.touch(url("file/"));
  EXPECT_EQ(directories_.dir().read("file"), "x");
}

// Catches a failure that reaches the caller, or one that nobody hears of.
TEST_F(FileManagerTests, TouchLogsWhatItCannotMake) {
  directories_.dir().write("file", "x");
  manager_.touch(url("file/below/it.data"));
  EXPECT_THAT(log_.takeErrors(),
              ElementsAre("Filesystem: Error creating folder: Could not create folder \"" +
                          (root() / "file/below").string() + "\": Not a directory"));
  EXPECT_EQ(log_.lines()[0].file, "OmbrixCore/Extensions/FileManager+Utils");
  EXPECT_EQ(log_.lines()[0].function, "touch(url:)");
}

// Catches hidden files, links and folders that are counted, and sizes that are lengths.
TEST_F(FileManagerTests, AddsUpWhatFilesTake) {
  directories_.dir().write("data/one", std::string(5000, 'x'));
  directories_.dir().write("data/deep/er/two", "x");
  directories_.dir().write("data/.hidden/three", std::string(50000, 'x'));
  fs::create_symlink("one", root() / "data/link");
  const std::string name("n\xff");
  directories_.dir().write("data/" + name, std::string(9000, 'x'));

  std::uint64_t sum = 0;
  for (const std::string& file : {std::string("one"), std::string("deep/er/two"), name}) {
    const auto size = manager_.allocatedSize(url("data/" + file));
    ASSERT_TRUE(size);
    EXPECT_EQ(*size, manager_.resourceValues(url("data/" + file))->totalFileAllocatedSize);
    EXPECT_EQ(*size % 512, 0U);
    sum += *size;
  }
  EXPECT_GE(sum, 5000U + 9000U);
  EXPECT_EQ(manager_.allocatedSize(url("data/")), sum);
  EXPECT_EQ(manager_.allocatedSize(url("data")), sum);
  EXPECT_EQ(manager_.allocatedSize(url("data/link")), 0U);
  EXPECT_EQ(manager_.allocatedSize(url("missing")).error().code(), ENOENT);
}

// Catches a sum that gives up at a folder it may not read, or goes on past a file it cannot size.
TEST_F(FileManagerTests, LeavesOutFoldersButNotFiles) {
  directories_.dir().write("data/closed/one", std::string(5000, 'x'));
  directories_.dir().write("data/two", std::string(5000, 'x'));
  fs::permissions(root() / "data/closed", fs::perms::none);
  const testing::WithoutOverride withoutOverride;
  EXPECT_EQ(manager_.allocatedSize(url("data/")), manager_.allocatedSize(url("data/two")));
  EXPECT_THAT(log_.takeErrors(),
              ElementsAre(StartsWith("Data: Error getting file size for directory: ")));
  EXPECT_EQ(log_.lines()[0].function, "allocatedSize(at:)");
  fs::permissions(root() / "data", fs::perms::owner_read);  // names may be read, files not
  EXPECT_EQ(manager_.allocatedSize(url("data/")).error().code(), EACCES);
  fs::permissions(root() / "data", fs::perms::owner_all);
  fs::permissions(root() / "data/closed", fs::perms::owner_all);
}

}  // namespace
}  // namespace ombrix
