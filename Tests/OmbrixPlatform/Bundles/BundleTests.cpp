#include "OmbrixPlatform/Bundles/Bundle.hpp"

#include <gtest/gtest.h>

#include <filesystem>

#include "OmbrixPlatform/Coding/PropertyListSerialization.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"

namespace ombrix::platform {
namespace {

constexpr const char* kInfo =
    "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
    "<key>CFBundleIdentifier</key><string>com.example.app</string>"
    "<key>CFBundleDevelopmentRegion</key><string>fr</string>"
    "<key>Count</key><integer>3</integer></dict></plist>";

class BundleTests : public ::testing::Test {
 protected:
  Bundle bundle() const { return Bundle(URL::fileURL(dir_.path().string(), true)); }

  testing::ScopedDir dir_;
};

// Catches one of the two forms of Info.plist that is not read, and damage that stops the program.
TEST_F(BundleTests, ReadsItsInfo) {
  EXPECT_EQ(bundle().bundleIdentifier(), std::nullopt);
  dir_.write("Info.plist", kInfo);
  const auto fromXml = Bundle(URL::fileURL(dir_.path().string(), true)).bundleIdentifier();
  EXPECT_EQ(fromXml, "com.example.app");
  const auto binary =
      PropertyListSerialization::write(PropertyListSerialization::read(bytesOf(kInfo)));
  dir_.write("Info.plist", textOf(binary));
  EXPECT_EQ(bundle().bundleIdentifier(), "com.example.app");
  const Bundle kept(URL::fileURL(dir_.path().string(), true));
  EXPECT_EQ(kept.objectForInfoDictionaryKey("Count")->integer(), 3);
  EXPECT_EQ(kept.objectForInfoDictionaryKey("Other"), nullptr);
  for (const char* damaged : {"", "bplist00", "<plist><array/></plist>", "text"}) {
    dir_.write("Info.plist", damaged);
    EXPECT_EQ(bundle().bundleIdentifier(), std::nullopt) << damaged;
  }
}

// Catches a language that stays after the user has chosen another, and gaps without a fallback.
TEST_F(BundleTests, FollowsTheUsersLanguages) {
  dir_.write("Info.plist", kInfo);
  dir_.write("en.lproj/Localizable.strings", "greeting = \"Hello\"; only = English;");
  dir_.write("de.lproj/Localizable.strings", "greeting = \"Hallo\";\n\"broken\" = \"");
  dir_.write("de.lproj/Other.strings", "greeting = \"Servus\";");
  dir_.write("fr.lproj/Localizable.strings", "greeting = \"Bonjour\";");
  testing::ScopedLocale locale("de_AT");
  const Bundle bundle(URL::fileURL(dir_.path().string(), true));
  EXPECT_EQ(bundle.localizedString("greeting", "Hi"), "Hallo");
  EXPECT_EQ(bundle.localizedString("greeting", "Hi", "Other"), "Servus");
  EXPECT_EQ(bundle.localizedString("greeting", "Hi", "Missing"), "Hi");
  EXPECT_EQ(bundle.localizedString("only", "Fallback"), "Fallback");
  EXPECT_EQ(bundle.localizedString("broken", "Fallback"), "Fallback");
  EXPECT_EQ(bundle.localizedString("nowhere"), "nowhere");
  locale.change("en_GB");
  EXPECT_EQ(bundle.localizedString("greeting", "Hi"), "Hello");
  locale.change("ja_JP");
  EXPECT_EQ(bundle.localizedString("greeting", "Hi"), "Bonjour");
  locale.change("ja_JP", {"ja", "de"});
  EXPECT_EQ(bundle.localizedString("greeting", "Hi"), "Hallo");
}

void here() {}

// Catches resources that are looked for in the current folder instead of beside the program.
TEST_F(BundleTests, FindsResourcesBesideTheProgramOrInTheDataFolders) {
  const auto* address = reinterpret_cast<const void*>(&here);
  EXPECT_EQ(Bundle::resourceFolder("no-such-name", address), std::nullopt);
  std::filesystem::create_directories(dir_.path() / "some-name");
  setenv("XDG_DATA_DIRS", ("relative::" + dir_.path().string()).c_str(), 1);
  EXPECT_EQ(Bundle::resourceFolder("some-name", address),
            URL::fileURL((dir_.path() / "some-name").string(), true));
  unsetenv("XDG_DATA_DIRS");
  EXPECT_EQ(Bundle::main().bundleURL().path(),
            std::filesystem::read_symlink("/proc/self/exe").parent_path().string());
}

}  // namespace
}  // namespace ombrix::platform
