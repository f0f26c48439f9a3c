#include <gtest/gtest.h>

#include "OmbrixCore/Extensions/Bundle+Version.hpp"
#include "OmbrixCore/Extensions/ResourceBundle.hpp"
#include "OmbrixCore/Extensions/Version.hpp"
#include "OmbrixTesting/ScopedDir.hpp"
#include "OmbrixTesting/ScopedLocale.hpp"

namespace ombrix {
namespace {

using platform::Bundle;
using platform::URL;

// Catches version and build taken from each other's key, and numbers where texts belong.
TEST(BundleTests, TellsVersionAndBuild) {
  const testing::ScopedDir dir;
  const URL folder = URL::fileURL(dir.path().string(), true);
  EXPECT_EQ(version(Bundle(folder)), "");
  EXPECT_EQ(build(Bundle(folder)), "");
  dir.write("Info.plist",
            "<plist version=\"1.0\"><dict><key>CFBundleShortVersionString</key>"
            "<string>4.2</string><key>CFBundleVersion</key><string>1017</string></dict></plist>");
  EXPECT_EQ(version(Bundle(folder)), "4.2");
  EXPECT_EQ(build(Bundle(folder)), "1017");
}

// Catches a build tree whose library cannot find its own texts, a host that cannot replace them,
// and a program copied away from its resources that speaks English to everybody.
TEST(BundleTests, TheLibraryFindsItsTexts) {
  EXPECT_EQ(version(resourceBundle()), libraryVersion());
  EXPECT_EQ(localizedString("units.bpm", "-"), "BPM");
  EXPECT_EQ(localizedString("httperror.networkError", "-"),
            "Couldn’t contact the server. Are you offline?");
  EXPECT_EQ(localizedString("no.such.key", "fallback"), "fallback");

  const testing::ScopedDir dir;
  dir.write("en.lproj/Localizable.strings", "\"units.bpm\" = \"beats\";");
  const auto previous =
      setResourceBundle(std::make_shared<Bundle>(URL::fileURL(dir.path().string(), true)));
  EXPECT_EQ(localizedString("units.bpm", "-"), "beats");
  EXPECT_EQ(localizedString("httperror.networkError", "-"),
            "Couldn’t contact the server. Are you offline?");
  {
    const testing::ScopedLocale japanese("ja_JP");
    setResourceBundle(std::make_shared<Bundle>(URL::fileURL("/nowhere", true)));
    EXPECT_EQ(localizedString("units.bpm", "-"), "拍/分");
    EXPECT_EQ(localizedString("no.such.key", "fallback"), "fallback");
  }
  setResourceBundle(previous);
  EXPECT_EQ(localizedString("units.bpm", "-"), "BPM");
}

}  // namespace
}  // namespace ombrix
