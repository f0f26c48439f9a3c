#include "OmbrixPlatform/Files/Directories.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "OmbrixTesting/ScopedDir.hpp"

namespace ombrix::platform {
namespace {

/// Sets the variables that name folders; null unsets one. Each test runs in a process of its own.
void setFolders(const char* home, const char* data, const char* tmp) {
  const auto set = [](const char* name, const char* value) {
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  };
  set("HOME", home);
  set("XDG_DATA_HOME", data);
  set("XDG_CACHE_HOME", nullptr);
  set("XDG_CONFIG_HOME", nullptr);
  set("TMPDIR", tmp);
}

// Catches relative or empty variables that are believed.
TEST(DirectoriesTests, FollowsTheEnvironment) {
  const testing::ScopedDir folder;
  const std::string home = folder.path() / "me";
  setFolders(home.c_str(), "/data/", "/scratch");
  auto directories = makeSystemDirectories();
  EXPECT_EQ(directories->caches().absoluteString(), "file://" + home + "/.cache/");
  EXPECT_EQ(directories->preferences().absoluteString(), "file://" + home + "/.config/");
  EXPECT_EQ(directories->applicationSupport().absoluteString(), "file:///data/");
  EXPECT_EQ(directories->library().absoluteString(), "file:///data/");
  EXPECT_EQ(directories->documents().absoluteString(), "file://" + home + "/");
  EXPECT_EQ(directories->temporary().absoluteString(), "file:///scratch/");

  setFolders(home.c_str(), "data", "");
  directories = makeSystemDirectories();
  EXPECT_EQ(directories->library().path(), home + "/.local/share");
  EXPECT_EQ(directories->temporary().path(), "/tmp");
}

// Catches folders below "" or below the current one when there is no home.
TEST(DirectoriesTests, WithoutHomeTheSystemNamesOne) {
  for (const char* home : {static_cast<const char*>(nullptr), "", "relative"}) {
    setFolders(home, nullptr, nullptr);
    const std::string path = makeSystemDirectories()->documents().path();
    EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    EXPECT_EQ(makeSystemDirectories()->caches().path(),
              (std::filesystem::path(path) / ".cache").string());
  }
}

// Catches a user without a home who is sent to a folder that others share, may enter or have made.
TEST(DirectoriesTests, WithoutAnyHomeThereIsAPrivateOne) {
  constexpr uid_t kUnknownUser = 54'321;
  if (::geteuid() != 0) GTEST_SKIP() << "becomes another user";
  const testing::ScopedDir scratch;
  // The other user must be able to reach it.
  std::filesystem::permissions(scratch.path().parent_path(), std::filesystem::perms::all);
  std::filesystem::permissions(scratch.path(), std::filesystem::perms::all);
  for (const char* squatted : {"", "home-54321"}) {
    if (*squatted != '\0') {
      std::filesystem::remove_all(scratch.path() / squatted);
      std::filesystem::create_directory(scratch.path() / squatted);
      std::filesystem::permissions(scratch.path() / squatted, std::filesystem::perms::all);
    }
    const auto findHome = [&] {
      if (::setgid(kUnknownUser) != 0 || ::setuid(kUnknownUser) != 0) std::_Exit(2);
      setFolders("/dev/null/nowhere", "/data", scratch.path().c_str());
      const auto directories = makeSystemDirectories();
      static_cast<void>(directories->library());
      if (*squatted == '\0' && exists(scratch.path() / "home-54321")) std::_Exit(3);
      const std::string home = directories->documents().path();
      struct stat info{};
      const bool isOwn = ::lstat(home.c_str(), &info) == 0 && info.st_uid == kUnknownUser &&
                         (info.st_mode & 07777) == 0700;
      const bool isNamed = home == scratch.path() / "home-54321";
      std::_Exit(isOwn && isNamed == (*squatted == '\0') ? 0 : 1);
    };
    EXPECT_EXIT(findHome(), ::testing::ExitedWithCode(0), "");
  }
}

// Catches a user's own home left for another one while it cannot be written, as on a disk that was
// mounted again for reading after an error: what is kept there would be hidden. And one in which
// nothing was ever kept taken for one that can be used.
TEST(DirectoriesTests, AHomeThatIsReadOnlyForNowStays) {
  constexpr uid_t kUser = 54'321;
  if (::geteuid() != 0) GTEST_SKIP() << "becomes another user";
  const testing::ScopedDir scratch;
  std::filesystem::permissions(scratch.path().parent_path(), std::filesystem::perms::all);
  std::filesystem::permissions(scratch.path(), std::filesystem::perms::all);
  for (const bool isUsed : {true, false}) {
    const std::string home = scratch.path() / (isUsed ? "used" : "unused");
    for (const std::string& folder : {home, isUsed ? home + "/.config" : home}) {
      std::filesystem::create_directory(folder);
      ASSERT_EQ(::chown(folder.c_str(), kUser, kUser), 0);
    }
    ASSERT_EQ(::chmod(home.c_str(), 0500), 0);
    const auto findLibrary = [&] {
      if (::setgid(kUser) != 0 || ::setuid(kUser) != 0) std::_Exit(2);
      setFolders(home.c_str(), nullptr, scratch.path().c_str());
      const std::string expected = isUsed ? home : (scratch.path() / "home-54321").string();
      std::_Exit(makeSystemDirectories()->library().path() == expected + "/.local/share" ? 0 : 1);
    };
    EXPECT_EXIT(findLibrary(), ::testing::ExitedWithCode(0), "");
  }
}

// Catches the two quoted forms of the file read wrongly, and broken lines believed.
TEST(DirectoriesTests, ReadsWhereTheDocumentsAre) {
  const testing::ScopedDir home;
  setFolders(home.path().c_str(), nullptr, nullptr);
  struct Case {
    const char *file, *path;
  };
  const Case cases[] = {
      {"XDG_MUSIC_DIR=\"/m\"\n  XDG_DOCUMENTS_DIR=\"/d d\"", "/d d"},
      {"XDG_DOCUMENTS_DIR=\"$HOME/Papers \\\"x\\\"\"\n", "~/Papers \"x\""},
      {"XDG_DOCUMENTS_DIR=\"$HOME/\"\n", "~"},
      {"XDG_DOCUMENTS_DIR=\"/1\"\nXDG_DOCUMENTS_DIR=\"/2\"\n", "/2"},
      {"#XDG_DOCUMENTS_DIR=\"/d\"\n", "~"},
      {"XDG_DOCUMENTS_DIR=\"relative\"\n", "~"},
      {"XDG_DOCUMENTS_DIR=\"/open\nx\"\n", "~"},
      {"", "~"},
  };
  for (const auto& [file, path] : cases) {
    home.write(".config/user-dirs.dirs", file);
    std::string expected = path;
    if (expected.starts_with('~')) expected.replace(0, 1, home.path().string());
    EXPECT_EQ(makeSystemDirectories()->documents().path(), expected) << file;
  }
}

// Catches a group's name that leads out of the folder, and a container where there is none.
TEST(DirectoriesTests, AGroupHasAContainerWhenItIsThereOrSet) {
  const testing::ScopedDir data;
  setFolders("/home/me", data.path().c_str(), nullptr);
  data.write("group.a/file", "");
  const auto directories = makeSystemDirectories();
  EXPECT_EQ(directories->containerForGroup("group.a"),
            URL::fileURL((data.path() / "group.a").string(), true));
  for (const std::string_view name : {"group.b", "", ".", "..", "group.a/..", "group.a/file"}) {
    EXPECT_EQ(directories->containerForGroup(name), std::nullopt) << name;
  }
  const URL elsewhere = URL::fileURL("/else/where/");
  directories->setContainerForGroup("group.b", elsewhere);
  EXPECT_EQ(directories->containerForGroup("group.b"), elsewhere);
  directories->setContainerForGroup("group.b", std::nullopt);
  EXPECT_EQ(directories->containerForGroup("group.b"), std::nullopt);
}

}  // namespace
}  // namespace ombrix::platform
