#include "OmbrixC/Location/OmbrixLocationCSV.h"

#include <gtest/gtest.h>

#include <future>
#include <string>

#include "OmbrixC/Location/OmbrixHRCSV.h"
#include "OmbrixTesting/RecordingLog.hpp"
#include "OmbrixTesting/ScopedDir.hpp"

namespace {

constexpr const char* kRow =
    "1700000000.500000,46.500000,7.250000,1500.000000,90.0,5.000000,3.0,4.0\n";

bool appendTo(void* context, const uint8_t* bytes, size_t length) {
  static_cast<std::string*>(context)->append(reinterpret_cast<const char*>(bytes), length);
  return true;
}

ptrdiff_t readFrom(void* context, uint8_t* buffer, size_t length) {
  auto& rest = *static_cast<std::string_view*>(context);
  const auto count = rest.copy(reinterpret_cast<char*>(buffer), std::min<size_t>(length, 7));
  rest.remove_prefix(count);
  return static_cast<ptrdiff_t>(count);
}

// Catches a list that is lost or leaked on its way to C, and a source that is not passed on.
TEST(LocationCSVTests, ATrackGoesThroughTheCInterfaceAndBack) {
  const ombrix::testing::ScopedDir folder;
  const std::string url = "file://" + (folder.path() / "track.csv").string();
  const OmbrixLocation fix{{46.5, 7.25}, 1500, 4, 3, 90, -1, 5, -1, 1700000000.5};
  OmbrixError* error = nullptr;
  auto* const writer = ombrix_LocationCSVWriter_initWithUrl_error_(url.c_str(), &error);
  ASSERT_NE(writer, nullptr);
  EXPECT_TRUE(ombrix_LocationCSVWriter_addLocation_error_(writer, &fix, &error));
  EXPECT_TRUE(ombrix_LocationCSVWriter_sync_(writer, &error));
  EXPECT_EQ(ombrix_LocationCSVWriter_fixesWritten(writer), 1U);
  const OmbrixOutputStream behind = ombrix_LocationCSVWriter_stream(writer);
  EXPECT_TRUE(behind.write(behind.context, reinterpret_cast<const uint8_t*>("\n"), 1));
  ombrix_LocationCSVWriter_release(writer);
  EXPECT_EQ(folder.read("track.csv"), std::string(kRow) + "\n");

  std::string text;
  auto* const toText = ombrix_LocationCSVWriter_initWithStream_error_({&text, &appendTo}, &error);
  const OmbrixLocation two[] = {fix, fix};
  EXPECT_TRUE(ombrix_LocationCSVWriter_addLocations_error_(toText, two, 2, &error));
  ombrix_LocationCSVWriter_release(toText);
  EXPECT_EQ(text, std::string(kRow) + kRow);

  auto* const parser = ombrix_LocationCSVParser_init();
  const auto expectFixes = [&](OmbrixLocations read, size_t count) {
    ASSERT_EQ(read.count, count);
    ASSERT_NE(read.locations, nullptr);
    for (size_t i = 0; i < count; ++i) {
      EXPECT_TRUE(ombrix_CLLocation_isEqual_(&read.locations[i], &fix));
    }
    ombrix_Locations_release(read);
  };
  const auto* const bytes = reinterpret_cast<const uint8_t*>(text.data());
  std::string_view rest = text;
  expectFixes(ombrix_LocationCSVParser_parseWithUrl_(parser, url.c_str()), 1);
  expectFixes(ombrix_LocationCSVParser_parseWithString_(parser, text.c_str()), 2);
  expectFixes(ombrix_LocationCSVParser_parseWithStream_(parser, {&rest, &readFrom}), 2);
  expectFixes(ombrix_LocationCSVParser_parseWithStream_(parser, {&rest, &readFrom}), 0);
  expectFixes(ombrix_LocationCSVParser_parseWithData_(parser, bytes, text.size()), 2);
  expectFixes(ombrix_LocationCSVParser_parseWithString_(parser, ""), 0);

  std::promise<OmbrixLocations> answer;
  ombrix_LocationCSVParser_parseWithData_completion_(
      parser, bytes, text.size(),
      [](OmbrixLocations read, void* context) {
        static_cast<std::promise<OmbrixLocations>*>(context)->set_value(read);
      },
      &answer);
  expectFixes(answer.get_future().get(), 2);
  ombrix_LocationCSVParser_release(parser);
}

// Catches a failure that C callers cannot see, a stream that is believed to have filled more than
// its buffer, and an initializer that exists by accident.
TEST(LocationCSVTests, FailuresReachC) {
  ombrix::testing::RecordingLog log;
  auto* const parser = ombrix_LocationCSVParser_init();
  EXPECT_EQ(ombrix_LocationCSVParser_parseWithUrl_(parser, "file:///no/such").locations, nullptr);
  EXPECT_EQ(ombrix_LocationCSVParser_parseWithUrl_(parser, nullptr).locations, nullptr);
  const ombrix::testing::ScopedDir folder;
  const auto file = folder.write("track.csv", kRow).string();
  auto* const rates = ombrix_HRCSVParser_init();
  for (const char* host : {"http://localhost", "https://localhost"}) {
    const std::string url = host + file;
    EXPECT_EQ(ombrix_LocationCSVParser_parseWithUrl_(parser, url.c_str()).locations, nullptr);
    EXPECT_EQ(ombrix_HRCSVParser_parseWithUrl_(rates, url.c_str()).samples, nullptr);
  }
  ombrix_HRCSVParser_release(rates);
  const auto tooMany = [](void*, uint8_t*, size_t length) {
    return static_cast<ptrdiff_t>(length) + 1;
  };
  EXPECT_EQ(ombrix_LocationCSVParser_parseWithStream_(parser, {nullptr, tooMany}).locations,
            nullptr);
  // Stands for memory that runs out: nothing the parser knows of.
  const auto throwing = [](void*, uint8_t*, size_t) -> ptrdiff_t { throw std::bad_alloc(); };
  EXPECT_EQ(ombrix_LocationCSVParser_parseWithStream_(parser, {nullptr, throwing}).locations,
            nullptr);
  EXPECT_EQ(log.takeErrors().size(), 8U);
  ombrix_LocationCSVParser_release(parser);

  OmbrixError* error = nullptr;
  for (const char* bad : {"file:///no/such/file", "http:///no/such/file", "no such/file"}) {
    EXPECT_EQ(ombrix_LocationCSVWriter_initWithUrl_error_(bad, &error), nullptr);
    ASSERT_NE(error, nullptr) << bad;
    EXPECT_TRUE(std::string(ombrix_Error_message(error)).contains("such/file"))
        << ombrix_Error_message(error);
    ombrix_Error_release(error);
  }
  const auto refuse = [](void*, const uint8_t*, size_t) { return false; };
  auto* const writer = ombrix_LocationCSVWriter_initWithStream_error_({nullptr, refuse}, &error);
  const OmbrixLocation fix{};
  for (const bool syncs : {false, true}) {
    EXPECT_FALSE(syncs ? ombrix_LocationCSVWriter_sync_(writer, &error)
                       : ombrix_LocationCSVWriter_addLocation_error_(writer, &fix, &error));
    ASSERT_NE(error, nullptr);
    ombrix_Error_release(error);
  }
  EXPECT_EQ(ombrix_LocationCSVWriter_fixesWritten(writer), 0U);
  ombrix_LocationCSVWriter_release(writer);
  EXPECT_DEATH(ombrix_LocationCSVWriter_init(), "unimplemented initializer");
}

// Catches samples whose numbers change places on their way to C.
TEST(LocationCSVTests, HeartRatesReachC) {
  auto* const parser = ombrix_HRCSVParser_init();
  const auto samples = ombrix_HRCSVParser_parseWithString_(parser, "1700000000,72\n");
  ASSERT_EQ(samples.count, 1U);
  EXPECT_EQ(samples.samples[0].countPerMinute, 72);
  EXPECT_EQ(samples.samples[0].startDate, 1700000000);
  EXPECT_EQ(samples.samples[0].endDate, 1700000000);
  ombrix_HeartRateSamples_release(samples);
  ombrix_HRCSVParser_release(parser);
}

}  // namespace
