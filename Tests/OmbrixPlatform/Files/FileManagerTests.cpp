#include "OmbrixPlatform/Files/FileManager.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <set>

#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Logging/DDFileLogger.hpp"
#include "OmbrixPlatform/Messaging/MMWormhole.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;
using ::testing::UnorderedElementsAre;

class FileManagerTests : public ::testing::Test {
 protected:
  URL url(std::string_view name) const {
    return URL::fileURL(dir_.path().string()).appendingPathComponent(name);
  }

  std::vector<std::string> walk(EnumerationOptions options) {
    std::vector<std::string> names;
    manager_.enumerate(
        url(""), options,
        [&](const DirectoryEntry& entry) {
          names.push_back(entry.url().absoluteString().substr(url("").absoluteString().size() + 1));
          return true;
        },
        [](const FileError& error) { ADD_FAILURE() << error.what(); });
    return names;
  }

  const FileManager& manager_ = FileManager::defaultManager();
  testing::ScopedDir dir_;
};

// Catches links taken for what they lead to where they must not be, and the other way round.
TEST_F(FileManagerTests, TellsWhatIsThere) {
  dir_.write("folder/file", "12345");
  fs::create_symlink("folder", dir_.path() / "link");
  fs::create_symlink("nowhere", dir_.path() / "dangling");
  struct Case {
    const char* name;
    bool exists, isDirectory, isLink;
  };
  constexpr Case kCases[] = {
      {"folder", true, true, false},
      {"folder/file", true, false, false},
      {"link", true, true, true},
      {"link/file", true, false, false},
      {"dangling", false, false, true},
      {"missing", false, false, false},
      {"folder/file/x", false, false, false},
  };
  for (const auto& [name, exists, isDirectory, isLink] : kCases) {
    EXPECT_EQ(manager_.fileExists(url(name)), exists) << name;
    EXPECT_EQ(manager_.isDirectory(url(name)), isDirectory) << name;
    const auto values = manager_.resourceValues(url(name));
    EXPECT_EQ(values && values->isSymbolicLink, isLink) << name;
  }
  const auto values = manager_.resourceValues(url("folder/file")).value();
  EXPECT_TRUE(values.isRegularFile);
  EXPECT_EQ(values.fileSize, 5U);
  EXPECT_EQ(values.totalFileAllocatedSize.value() % 512, 0U);
  EXPECT_GE(values.totalFileAllocatedSize.value() + 1, values.fileSize);
  EXPECT_FALSE(manager_.resourceValues(url("folder")).value().fileAllocatedSize);
  EXPECT_TRUE(manager_.resourceValues(url("missing")).error().isNoSuchFile());
  fs::last_write_time(dir_.path() / "folder/file",
                      fs::file_time_type::clock::from_sys(
                          std::chrono::sys_seconds(std::chrono::seconds(1700000000))));
  EXPECT_EQ(manager_.modificationDate(url("folder/file")), dateSince1970(1700000000));
}

// Catches folders made where a file stands, and success where nothing was made.
TEST_F(FileManagerTests, MakesFolders) {
  const auto code = [&](std::string_view name, bool withIntermediates) {
    const auto made = manager_.createDirectory(url(name), withIntermediates);
    return made ? 0 : made.error().code();
  };
  dir_.write("file", "");
  fs::create_symlink("nowhere", dir_.path() / "dangling");
  EXPECT_EQ(code("a/b/c", false), ENOENT);
  EXPECT_EQ(code("a/b/c/", true), 0);
  EXPECT_EQ(code("a/b/c", true), 0);
  EXPECT_EQ(code("a/b/c", false), EEXIST);
  EXPECT_EQ(code("file", true), EEXIST);
  EXPECT_EQ(code("file/a/b", true), ENOTDIR);
  EXPECT_EQ(code("dangling", true), 0);  // made where the link leads
  EXPECT_EQ(code(std::string(300, 'x') + "/y", true), ENAMETOOLONG);
  EXPECT_EQ(code(std::string_view("n\0n", 3), true), EINVAL);
  EXPECT_TRUE(fs::is_directory(dir_.path() / "a/b/c"));
}

// Catches what root makes on a visit to a user's folders, and the user can never write again.
TEST_F(FileManagerTests, WhatRootMakesBelongsToWhomItsFolderDoes) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can make a folder of somebody else";
  constexpr uid_t kUser = 12345;
  testing::ScopedDirectories directories;
  directories.setGroupContainer(true);
  const auto& home = directories.dir().path();
  ASSERT_EQ(::chown(home.c_str(), kUser, kUser), 0);
  const auto folder = [&](const char* name) { return URL::fileURL((home / name).string(), true); };
  const auto defaults = UserDefaults::make({.folder = home / ".config/ski", .domain = "test"});
  defaults->setObject(1, "n");
  EXPECT_TRUE(defaults->synchronize());
  DDFileLogger logger(std::make_shared<DDLogFileManager>(home / "state/logs", "ski"));
  logger.log({.message = "text", .flag = DDLogFlag::error, .timestamp = dateSince1970(0)});
  logger.flush();
  MMWormhole channel("group", "messages");  // with its coordination locks
  EXPECT_TRUE(channel.passMessageObject("british", "units"));
  EXPECT_TRUE(manager_.createDirectory(folder("data/stores"), true));
  EXPECT_TRUE(manager_.createFile(URL::fileURL((home / "data/stores/item").string()), {}));
  const auto cache = URLCache::make(0, 1 << 23, folder("cache/answers"));
  const URLRequest request(URL::parse("http://a.test/").value());
  cache->storeCachedResponse({std::make_shared<const HTTPURLResponse>(
                                  request.url, 200, HTTPHeaders{{"Cache-Control", "max-age=60"}}),
                              std::make_shared<const Data>()},
                             request);
  cache->flush();
  std::set<std::string> kept;
  for (const auto& entry : fs::recursive_directory_iterator(home)) {
    struct stat made{};
    ASSERT_EQ(::lstat(entry.path().c_str(), &made), 0);
    EXPECT_EQ(made.st_uid, kUser) << entry.path();
    kept.insert(entry.path().filename());
  }
  for (const char* name : {".config", "test.plist", ".test.plist.lock", "logs", "messages", "item",
                           "Cache.db", "Cache.lock"}) {
    EXPECT_TRUE(kept.contains(name)) << name;
  }
}

// Catches tails of longer contents that stay, and a missing file that is made by an overwrite.
TEST_F(FileManagerTests, WritesInPlace) {
  EXPECT_EQ(manager_.overwriteFile(url("f"), bytesOf("x")).error().code(), ENOENT);
  for (const std::string text :
       {"", "longer contents", "short", "", "s", "longest contents of all"}) {
    ASSERT_TRUE(manager_.createFile(url("f"), bytesOf(text)));
    EXPECT_EQ(dir_.read("f"), text);
    EXPECT_EQ(textOf(manager_.contents(url("f")).value()), text);
  }
  fs::create_hard_link(dir_.path() / "f", dir_.path() / "g");
  ASSERT_TRUE(manager_.overwriteFile(url("f"), bytesOf("again")));
  EXPECT_EQ(dir_.read("g"), "again");
  EXPECT_EQ(manager_.createFile(url("no/f"), bytesOf("x")).error().code(), ENOENT);
  EXPECT_EQ(manager_.createFile(url(""), bytesOf("x")).error().code(), EISDIR);
  EXPECT_EQ(manager_.contents(url("")).error().code(), EISDIR);
}

// Catches a limit, or a lack of room, that costs the old contents or leaves a part of the new ones.
TEST_F(FileManagerTests, WhatFindsNoRoomLeavesTheFile) {
  dir_.write("f", "old contents");
  fs::create_symlink("nowhere", dir_.path() / "dangling");
  rlimit previous{};
  getrlimit(RLIMIT_FSIZE, &previous);
  const rlimit tight{.rlim_cur = 20, .rlim_max = previous.rlim_max};
  setrlimit(RLIMIT_FSIZE, &tight);
  const std::string tooMuch(100, 'n');
  const auto written = manager_.overwriteFile(url("f"), bytesOf(tooMuch));
  const auto throughLink = manager_.createFile(url("dangling"), bytesOf(tooMuch));
  setrlimit(RLIMIT_FSIZE, &previous);
  ASSERT_FALSE(written);
  EXPECT_EQ(written.error().code(), EFBIG);
  EXPECT_EQ(dir_.read("f"), "old contents");
  ASSERT_FALSE(throughLink);
  EXPECT_FALSE(fs::exists(dir_.path() / "nowhere"));
}

// Catches a removal that follows a link, stops at a full folder or hides that nothing was there.
TEST_F(FileManagerTests, Removes) {
  dir_.write("folder/a/b", "x");
  dir_.write("kept/file", "x");
  fs::create_directory_symlink(dir_.path() / "kept", dir_.path() / "folder/link");
  EXPECT_TRUE(manager_.removeItem(url("folder/")));
  EXPECT_FALSE(fs::exists(dir_.path() / "folder"));
  EXPECT_EQ(dir_.read("kept/file"), "x");
  fs::create_symlink("nowhere", dir_.path() / "dangling");
  EXPECT_TRUE(manager_.removeItem(url("dangling")));
  EXPECT_TRUE(manager_.removeItem(url("dangling")).error().isNoSuchFile());
  EXPECT_EQ(manager_.removeItem(url("kept/file/x")).error().code(), ENOTDIR);
}

// Catches hidden items that are counted, links that are followed, names that are mangled.
TEST_F(FileManagerTests, WalksFolders) {
  dir_.write("a/b/c", "");
  dir_.write("a/.hidden", "");
  dir_.write(".git/config", "");
  dir_.write("n\xff#%", "");
  fs::create_symlink(".", dir_.path() / "a/loop");
  EXPECT_THAT(walk(EnumerationOptions::skipsHiddenFiles),
              UnorderedElementsAre("a/", "a/b/", "a/b/c", "a/loop", "n%FF%23%25"));
  EXPECT_THAT(walk(EnumerationOptions::none),
              UnorderedElementsAre("a/", "a/b/", "a/b/c", "a/.hidden", "a/loop", "n%FF%23%25",
                                   ".git/", ".git/config"));
  EXPECT_THAT(manager_.contentsOfDirectory(url("a"), EnumerationOptions::skipsHiddenFiles).value(),
              UnorderedElementsAre(url("a/b/"), url("a/loop")));
  EXPECT_EQ(manager_.contentsOfDirectory(url("x"), EnumerationOptions::none).error().code(),
            ENOENT);
  int visits = 0;
  manager_.enumerate(
      url(""), EnumerationOptions::none, [&](const auto&) { return ++visits < 2; },
      [](const auto&) {});
  EXPECT_EQ(visits, 2);
}

}  // namespace
}  // namespace ombrix::platform
