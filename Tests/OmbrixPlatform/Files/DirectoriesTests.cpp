#include "OmbrixPlatform/Files/Directories.hpp"

#include <gtest/gtest.h>

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
  setFolders("/home/me", "/data/", "/scratch");
  auto directories = makeSystemDirectories();
  EXPECT_EQ(directories->caches().absoluteString(), "file:///home/me/.cache/");
  EXPECT_EQ(directories->preferences().absoluteString(), "file:///home/me/.config/");
  EXPECT_EQ(directories->applicationSupport().absoluteString(), "file:///data/");
  EXPECT_EQ(directories->library().absoluteString(), "file:///data/");
  EXPECT_EQ(directories->documents().absoluteString(), "file:///home/me/");
  EXPECT_EQ(directories->temporary().absoluteString(), "file:///scratch/");

  setFolders("/home/me", "data", "");
  directories = makeSystemDirectories();
  EXPECT_EQ(directories->library().path(), "/home/me/.local/share");
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
