#include "OmbrixCore/Location/CLLocationCodableWrapper.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "OmbrixPlatform/Coding/Codable.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "OmbrixPlatform/Coding/JSONEncoder.hpp"

namespace ombrix {
namespace {

using Keys = CLLocationCodableWrapper::CodingKeys;

constexpr const char* kCoded =
    R"({"cordinate":{"lat":46.5,"lon":9.8},"altitude":2300,"horizontalAccuracy":5,)"
    R"("verticalAccuracy":8,"speed":12.5,"course":37,"timestamp":721692800.25})";

CLLocation sampleFix() {
  return {.coordinate = {46.5, 9.8},
          .altitude = 2'300,
          .horizontalAccuracy = 5,
          .verticalAccuracy = 8,
          .course = 37,
          .courseAccuracy = 2,
          .speed = 12.5,
          .speedAccuracy = 0.5,
          .timestamp = platform::dateSince1970(1'700'000'000.25)};
}

// Catches a corrected spelling, another order of keys, and accuracies that creep into files.
TEST(CLLocationCodableWrapperTests, CodedForm) {
  const auto data = platform::JSONEncoder().encode(CLLocationCodableWrapper(sampleFix()));
  EXPECT_EQ(platform::textOf(data), kCoded);

  CLLocation expected = sampleFix();
  const auto decoded =
      platform::JSONDecoder().decode<CLLocationCodableWrapper>(platform::bytesOf(kCoded));
  EXPECT_EQ(decoded.location(), expected);
  EXPECT_EQ(decoded.location().altitude, expected.altitude);
  EXPECT_EQ(decoded.location().courseAccuracy, -1);
  EXPECT_EQ(decoded.location().speedAccuracy, -1);

  EXPECT_EQ(platform::fromRawValue<Keys>(std::string_view("cordinate")), Keys::cordinate);
  EXPECT_EQ(platform::fromRawValue<Keys>(std::string_view("coordinate")), std::nullopt);
}

// Catches a key that is taken for optional, or a type that is let through.
TEST(CLLocationCodableWrapperTests, EveryKeyIsRequired) {
  const std::string coded = kCoded;
  for (const char* key : {"cordinate", "lat", "lon", "altitude", "horizontalAccuracy",
                          "verticalAccuracy", "speed", "course", "timestamp"}) {
    std::string without = coded;
    without.insert(without.find(key), "x");
    std::string mistyped = coded;
    const auto value = mistyped.find(':', mistyped.find('"' + std::string(key) + '"')) + 1;
    mistyped.replace(value, mistyped.find_first_of(",}", value) - value,
                     std::string(key) == "cordinate" ? R"({"lat":"46.5")" : R"("1")");
    for (const std::string& faulty : {without, mistyped}) {
      EXPECT_THROW(
          (void)platform::JSONDecoder().decode<CLLocationCodableWrapper>(platform::bytesOf(faulty)),
          platform::DecodingError)
          << faulty;
    }
  }
}

// Catches an encoder's refusal that is swallowed.
TEST(CLLocationCodableWrapperTests, AnEncodersErrorPasses) {
  CLLocation fix = sampleFix();
  fix.altitude = std::numeric_limits<double>::infinity();
  EXPECT_THROW((void)platform::JSONEncoder().encode(CLLocationCodableWrapper(fix)),
               platform::EncodingError);
}

}  // namespace
}  // namespace ombrix
