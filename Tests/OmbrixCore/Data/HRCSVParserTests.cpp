#include "OmbrixCore/Data/HRCSVParser.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OmbrixTesting/RecordingLog.hpp"

namespace ombrix {
namespace {

using platform::HKQuantityType;
using platform::HKQuantityTypeIdentifier;
using platform::HKUnit;

// Catches exchanged columns, another unit or type, and rows that end the reading.
TEST(HRCSVParserTests, MakesOneSampleOfEachGoodRow) {
  testing::RecordingLog log;
  const auto samples = HRCSVParser().parse(std::string_view(
      "1700000000,72\n\n1700000001.5,73.5\n1700000002,74,extra\n1700000003,abc\n x,75\n,\n"));
  ASSERT_EQ(samples.value().size(), 3U);
  const double rates[] = {72, 73.5, 74};
  const double times[] = {1700000000, 1700000001.5, 1700000002};
  const HKUnit perMinute = HKUnit::fromString("count/min").value();
  for (std::size_t i = 0; i < 3; ++i) {
    const auto& sample = (*samples)[i];
    EXPECT_EQ(sample.quantityType(),
              HKQuantityType::quantityType(HKQuantityTypeIdentifier::heartRate));
    EXPECT_EQ(sample.quantity(), platform::HKQuantity(perMinute, rates[i]));
    EXPECT_EQ(sample.startDate(), platform::dateSince1970(times[i]));
    EXPECT_EQ(sample.endDate(), sample.startDate());
  }
  EXPECT_THAT(log.takeErrors(), ::testing::ElementsAre(
                                    "Data: Error while trying to read CSV for migration, bad row",
                                    "Data: Error while trying to read CSV for migration, bad row",
                                    "Data: Error while trying to read CSV for migration, bad row"));
  EXPECT_EQ(log.lines()[0].file, "OmbrixCore/Data/HRCSVParser");
  EXPECT_EQ(log.lines()[0].function, "parseTransform(_:)");
  EXPECT_EQ(HRCSVParser().parse(std::string_view("")).value().size(), 0U);
}

// Catches a short row that is skipped: it stands for a file that is no recording.
TEST(HRCSVParserTests, AShortRowStopsTheProgram) {
  EXPECT_DEATH((void)HRCSVParser().parse(std::string_view("1700000000,72\n1700000000\n")),
               "Index out of range");
}

// Catches units that are read loosely, and conversions between units that do not fit.
TEST(HRCSVParserTests, ConvertsBetweenUnits) {
  const HKUnit perMinute = HKUnit::fromString("count/min").value();
  const HKUnit perSecond = HKUnit::fromString("count/s").value();
  EXPECT_EQ(perMinute.unitString(), "count/min");
  EXPECT_EQ(platform::HKQuantity(perMinute, 90).doubleValue(perSecond), 1.5);
  for (const auto text : {"", "count/", "/min", "count/min/s", "Count", "bpm"}) {
    EXPECT_FALSE(HKUnit::fromString(text)) << text;
  }
  const HKUnit count = HKUnit::fromString("count").value();
  EXPECT_DEATH((void)platform::HKQuantity(count, 1).doubleValue(perMinute), "cannot be given");
}

}  // namespace
}  // namespace ombrix
