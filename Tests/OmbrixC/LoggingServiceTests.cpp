#include "OmbrixC/OmbrixLoggingService.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixTesting/ScopedSettings.hpp"

namespace ombrix::c {
namespace {

std::vector<std::string> lines;

// Catches a C logger that gets bare messages or wrong flags, and a switch that does not arrive.
TEST(LoggingServiceTests, ACallerAttachesALoggerAndReadsTheLog) {
  const testing::ScopedSettings settings;
  auto* service = ombrix_LoggingService_sharedInstance();
  const auto add = [](void*, std::uint32_t flag, const char* line) {
    lines.push_back(std::to_string(flag) + line);
  };
  ombrix_LoggingService_attachLogger_(service, {nullptr, add, nullptr});
  ombrix_LoggingService_attachLogger_(service, {});
  for (const bool isEnabled : {true, false}) {
    ombrix_LoggingService_setExtraLoggingEnabled_(service, isEnabled);
    EXPECT_EQ(ombrix_LoggingService_extraLoggingEnabled(service), isEnabled);
    logDebug({"Folder/Source", "run()"}, "Data: fine");
  }
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_TRUE(lines[0].contains("   Data: fine | [Source run()]:"));
  char* text = ombrix_LoggingService_historicalLogText(service);
  const OmbrixData bytes = ombrix_LoggingService_historicalLog(service);
  EXPECT_EQ("8" + std::string(text), lines[0] + "\n");
  EXPECT_EQ(bytes.length, lines[0].size());
  ombrix_String_release(text);
  ombrix_Data_release(bytes);
}

}  // namespace
}  // namespace ombrix::c
