#include "OmbrixPlatform/Location/Geodesic.hpp"

#include <gtest/gtest.h>

#include <GeographicLib/Geodesic.hpp>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <random>

#include "OmbrixTesting/Sanitizers.hpp"

namespace ombrix::platform {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

double reference(GeodesicPoint from, GeodesicPoint to) {
  double metres = 0.0;
  GeographicLib::Geodesic::WGS84().Inverse(from.latitude, from.longitude, to.latitude, to.longitude,
                                           metres);
  return metres;
}

/// A point anywhere, with poles, equator and antimeridian much more often than by chance.
GeodesicPoint randomPoint(std::mt19937_64& random) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  const double tiny = std::pow(10.0, -7 + 8 * unit(random));
  const double latitudes[] = {std::asin(2 * unit(random) - 1) * 180 / std::numbers::pi, 90 - tiny,
                              tiny - 90, tiny, 90};
  const double longitudes[] = {360 * unit(random) - 180, 180 - tiny, tiny - 180, tiny, 0};
  const double latitudeChoice = unit(random);
  const double longitudeChoice = unit(random);
  const auto pick = [](double choice) {
    return choice < 0.6 ? 0 : static_cast<std::size_t>(1 + (choice - 0.6) * 9.99);
  };
  return {latitudes[pick(latitudeChoice)], longitudes[pick(longitudeChoice)]};
}

// Catches a lost term of the series, a range in which it does not hold, and digits lost beside
// poles and antimeridian: from a micrometre across the hand-over distance, in every direction.
TEST(GeodesicTests, AgreesWithTheReferenceWithinFiveNanometres) {
  const int draws = ombrix::testing::kUnderSanitizer ? 50'000 : 1'000'000;
  std::mt19937_64 random(20'240'117);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  double worst = 0.0;
  for (int draw = 0; draw < draws; ++draw) {
    const GeodesicPoint from = randomPoint(random);
    const double metres = std::pow(10.0, -6 + 10.5 * unit(random));
    GeodesicPoint to;
    GeographicLib::Geodesic::WGS84().Direct(from.latitude, from.longitude, 360 * unit(random),
                                            metres, to.latitude, to.longitude);
    const double ours = geodesicDistance(from, to);
    const double error = std::fabs(ours - reference(from, to));
    if (!(error <= worst)) worst = error;
    ASSERT_LE(error, 5e-9) << from.latitude << ' ' << from.longitude << " to " << to.latitude << ' '
                           << to.longitude;
    ASSERT_EQ(ours, geodesicDistance(to, from));
  }
  RecordProperty("worst_nanometres", std::to_string(worst * 1e9));
}

// Catches wrong constants of the ellipsoid, wrapping faults and a wrong hand-over of far points.
TEST(GeodesicTests, KnownLines) {
  const struct {
    GeodesicPoint from, to;
    double metres, allowed;
  } lines[] = {
      {{46.5, 9.8}, {46.5, 9.8}, 0.0, 0.0},
      {{46.5, 179.5}, {46.5, 539.5}, 0.0, 0.0},
      {{90, 12}, {90, -150}, 0.0, 1e-9},
      {{-90, 0}, {-90, 180}, 0.0, 1e-9},
      {{0, -0.0}, {0, 0.1}, 11'131.949079327358, 1e-9},
      {{0, 179.95}, {0, -179.95}, 11'131.949079327358, 4e-9},
      {{0, 359.95}, {0, 0.05}, 11'131.949079327358, 4e-9},
      {{0, 0}, {0, 90}, 10'018'754.171394622, 1e-8},
      {{0, 0}, {90, 0}, 10'001'965.729313, 1e-6},
      {{40.6, -73.8}, {51.6, -0.5}, 5'551'759.400319, 1e-5},
      {{0, 0}, {0.5, 179.5}, 19'936'288.578965, 1e-5},
      {{0, 0}, {0, 180}, 20'003'931.458625, 1e-5},
  };
  for (const auto& line : lines) {
    EXPECT_NEAR(geodesicDistance(line.from, line.to), line.metres, line.allowed)
        << line.from.latitude << ' ' << line.from.longitude;
  }
}

// Catches differences taken of rounded coordinates: a standing receiver would seem to creep.
TEST(GeodesicTests, TinyStepsKeepTheirDigits) {
  constexpr double kEccentricitySquared = 0.006694379990141317;
  for (const double latitude : {0.0, 30.0, 46.25, 64.5, 89.5}) {
    for (const double step : {0x1p-40, 0x1p-30, 0x1p-20}) {
      const double sine = std::sin(latitude * std::numbers::pi / 180);
      const double cosine = std::cos(latitude * std::numbers::pi / 180);
      const double root = std::sqrt(1 - kEccentricitySquared * sine * sine);
      const double across = 6'378'137.0 / root;
      const double metres = step * std::numbers::pi / 180 * across * cosine;
      EXPECT_NEAR(geodesicDistance({latitude, 7}, {latitude, 7 + step}) / metres, 1, 1e-12);
      const double north =
          step * std::numbers::pi / 180 * across * (1 - kEccentricitySquared) / (root * root);
      EXPECT_NEAR(geodesicDistance({latitude, 7}, {latitude + step, 7}) / north, 1, 1e-9);
    }
  }
}

// Catches trigonometry kept from the wrong point while walking.
TEST(GeodesicTests, AWalkGivesThePairs) {
  std::mt19937_64 random(7);
  std::uniform_real_distribution<double> step(-0.3, 0.3);
  GeodesicPoint at{46.5, 179.9};
  GeodesicWalk walk(at);
  for (int count = 0; count < 1'000; ++count) {
    const GeodesicPoint next{std::clamp(at.latitude + step(random), -90.0, 90.0),
                             at.longitude + step(random)};
    ASSERT_EQ(walk.to(next), geodesicDistance(at, next));
    at = next;
  }
}

// Catches a plausible number for a point that is nowhere.
TEST(GeodesicTests, PointsOffTheGlobeHaveNoDistance) {
  const GeodesicPoint on{90, 10};
  for (const GeodesicPoint off : {GeodesicPoint{90.1, 10},
                                  {-91, 10},
                                  {kNaN, 10},
                                  {90, kNaN},
                                  {kInfinity, 10},
                                  {90, kInfinity},
                                  {90, -kInfinity}}) {
    EXPECT_TRUE(std::isnan(geodesicDistance(on, off))) << off.latitude << ' ' << off.longitude;
    EXPECT_TRUE(std::isnan(geodesicDistance(off, on))) << off.latitude << ' ' << off.longitude;
    EXPECT_TRUE(std::isnan(geodesicDistance(off, off))) << off.latitude << ' ' << off.longitude;
  }
}

}  // namespace
}  // namespace ombrix::platform
