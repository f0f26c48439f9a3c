#include <gtest/gtest.h>

#include "OmbrixC/OmbrixFileManager.h"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDirectories.hpp"

namespace ombrix::c {
namespace {

std::string taken(char* text) {
  std::string result = text == nullptr ? "none" : text;
  ombrix_String_release(text);
  return result;
}

// Catches a folder wired to the wrong function, and a group container that is not there.
TEST(FileManagerTests, NamesFoldersAsURLs) {
  testing::ScopedDirectories directories;
  const std::string root =
      platform::URL::fileURL(directories.dir().path().string(), true).absoluteString();
  EXPECT_EQ(taken(ombrix_FileManager_applicationSupport()), root + "support/com.brannoway.ombrix/");
  EXPECT_EQ(taken(ombrix_FileManager_library()), root + "library/");
  EXPECT_EQ(taken(ombrix_FileManager_groupContainer()), "none");
  directories.setGroupContainer(true);
  EXPECT_EQ(taken(ombrix_FileManager_groupContainer()), root + "group/");
  EXPECT_EQ(taken(ombrix_FileManager_groupContainerApplicationSupport()),
            root + "group/Library/Application%20Support/com.brannoway.ombrix/");
}

// Catches failures that leave no error, an old size, or an exception in a C caller's hands.
TEST(FileManagerTests, HandsErrorsOut) {
  testing::RecordingLog log;
  const testing::ScopedDir dir;
  const std::string file = "file://" + dir.write("a", std::string(5000, 'x')).string();
  uint64_t size = 7;
  OmbrixError* error = nullptr;
  EXPECT_TRUE(ombrix_FileManager_allocatedSizeAt_error_(file.c_str(), &size, &error));
  EXPECT_GE(size, 5000U);
  EXPECT_EQ(error, nullptr);
  for (const char* bad :
       {"file:///no/such/file", "https:///etc", "not a URL", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(ombrix_FileManager_allocatedSizeAt_error_(bad, &size, &error));
    EXPECT_EQ(size, 0U);
    ASSERT_NE(error, nullptr);
    EXPECT_STRNE(ombrix_Error_message(error), "");
    ombrix_Error_release(error);
    EXPECT_FALSE(ombrix_FileManager_allocatedSizeAt_error_(bad, nullptr, nullptr));
  }
  const std::string below = file + "/below/";
  for (const char* bad : {below.c_str(), "http:///etc", static_cast<const char*>(nullptr)}) {
    ombrix_FileManager_touchWithUrl_(bad);
    EXPECT_EQ(log.takeErrors().size(), 1U);
  }
}

}  // namespace
}  // namespace ombrix::c
