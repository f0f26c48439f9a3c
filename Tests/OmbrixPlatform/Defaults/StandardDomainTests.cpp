#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "OmbrixPlatform/Bundles/Bundle.hpp"
#include "OmbrixPlatform/Defaults/NSUbiquitousKeyValueStore.hpp"
#include "OmbrixPlatform/Defaults/UserDefaults.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedService.hpp"

namespace ombrix::platform {
namespace {

namespace fs = std::filesystem;

// Catches settings that move to another file, which looks like lost settings to the user.
TEST(StandardDomainTests, FilesAreNamedAfterTheBundleElseTheProgram) {
  const fs::path config = std::getenv("XDG_CONFIG_HOME"), data = std::getenv("XDG_DATA_HOME");
  EXPECT_EQ(makeStandardUserDefaults()->file(), config / "PlatformDefaults.plist");
  makeDefaultUbiquitousKeyValueStore()->setObject(1, "n");
  EXPECT_TRUE(fs::exists(data / "PlatformDefaults.ubiquitous.plist"));

  const testing::ScopedDir dir;
  dir.write(
      "Info.plist",
      "<plist><dict><key>CFBundleIdentifier</key><string>test.bundle</string></dict></plist>");
  const testing::ScopedService scoped(
      services().mainBundle, std::make_shared<Bundle>(URL::fileURL(dir.path().string(), true)));
  EXPECT_EQ(makeStandardUserDefaults()->file(), config / "test.bundle.plist");
  setMainBundleIdentity({.identifier = "org.example.skier", .version = "2.1"});
  EXPECT_EQ(makeStandardUserDefaults()->file(), config / "org.example.skier.plist");
  EXPECT_EQ(*Bundle::main().objectForInfoDictionaryKey("CFBundleShortVersionString"), "2.1");
  EXPECT_EQ(Bundle::main().objectForInfoDictionaryKey("CFBundleVersion"), nullptr);
}

}  // namespace
}  // namespace ombrix::platform
