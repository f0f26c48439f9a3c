#include "OmbrixDay/Measuring/DayMeasurer.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "OmbrixDay/Filters/DerivedMotion.hpp"
#include "Tests/OmbrixDay/MadeUpDay.hpp"

namespace ombrix::testing {
namespace {

using platform::dateSince1970;
using platform::timeIntervalSince1970;

double secondsOf(platform::Date date) { return timeIntervalSince1970(date); }

std::vector<DaySegment> ridesOf(const Day& day) {
  std::vector<DaySegment> rides;
  for (const DaySegment& segment : day.segments) {
    if (segment.kind == SegmentKind::run || segment.kind == SegmentKind::lift) {
      rides.push_back(segment);
    }
  }
  return rides;
}

void expectTruth(const MadeUpDay& truth, const Day& day, double share, double speedShare = 0.02) {
  const auto rides = ridesOf(day);
  ASSERT_EQ(rides.size(), truth.rides.size());
  for (std::size_t i = 0; i < rides.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(rides[i].kind, truth.rides[i].kind);
    EXPECT_NEAR(secondsOf(rides[i].begin), truth.rides[i].begin, 15);
    EXPECT_NEAR(secondsOf(rides[i].end), truth.rides[i].end, 15);
  }
  EXPECT_NEAR(day.totals.all.ascentMeters, truth.ascent, share * truth.ascent);
  EXPECT_NEAR(day.totals.all.descentMeters, truth.descent, share * truth.descent);
  EXPECT_NEAR(day.totals.run.maxSpeedMetersPerSecond, truth.topSpeed, speedShare * truth.topSpeed);
}

// Catches drag lifts taken for walks.
TEST(DayMeasurerTests, SlowLiftsAreNoWalks) {
  for (const double slope : {0.14, 0.2, 0.3}) {
    for (const double positionNoise : {1.0, 3.0}) {
      SCOPED_TRACE(::testing::Message() << slope << ", noise " << positionNoise << " m");
      const MadeUpDay truth = makeUpDay({.rides = 5,
                                         .riseMeters = 200,
                                         .altitudeNoise = 1,
                                         .positionNoise = positionNoise,
                                         .slowestLift = 1.9,
                                         .fastestLift = 2.3,
                                         .slope = slope});
      expectTruth(truth, measureDay(truth.fixes), 0.02);
    }
  }
}

// Catches windows and ticks that count fixes where they should count seconds.
TEST(DayMeasurerTests, MeasuresSparseRecordings) {
  for (const int every : {3, 5}) {
    SCOPED_TRACE(every);
    const MadeUpDay truth = makeUpDay({.seed = 5, .everySeconds = every});
    const Day day = measureDay(truth.fixes);
    EXPECT_EQ(ridesOf(day).size(), truth.rides.size());
    EXPECT_NEAR(day.totals.all.ascentMeters, truth.ascent, 0.02 * truth.ascent);
  }
}

// Catches sums that drift apart: segments overlap or leave gaps, totals are no sums, ascent less
// descent is no difference of altitudes.
TEST(DayMeasurerTests, FiguresAgreeWithEachOther) {
  const MadeUpDay truth = makeUpDay({.seed = 3, .rides = 6, .hasHalts = true, .hasGaps = true});
  const Day day = measureDay(truth.fixes);
  ASSERT_FALSE(day.segments.empty());
  EXPECT_EQ(day.segments.front().begin, day.samples.front().time);
  EXPECT_EQ(day.segments.back().end, day.samples.back().time);
  double ascent = 0, distance = 0;
  for (std::size_t i = 0; i < day.segments.size(); ++i) {
    const DaySegment& segment = day.segments[i];
    ascent += segment.figures.ascentMeters;
    distance += segment.figures.distanceMeters;
    if (segment.kind != SegmentKind::pause) {
      EXPECT_NEAR(segment.figures.ascentMeters - segment.figures.descentMeters, segment.vertical(),
                  1e-6);
    }
    EXPECT_LE(segment.figures.movingSeconds, segment.figures.seconds + 1e-6);
    if (i == 0) continue;
    EXPECT_EQ(segment.begin, day.segments[i - 1].end);
    EXPECT_EQ(segment.firstSample, day.segments[i - 1].endSample);
    EXPECT_EQ(segment.beginAltitude, day.segments[i - 1].endAltitude);
  }
  EXPECT_DOUBLE_EQ(day.totals.all.ascentMeters, ascent);
  EXPECT_DOUBLE_EQ(day.totals.all.distanceMeters, distance);
  EXPECT_EQ(day.totals.runs, 6u);
  EXPECT_EQ(day.totals.lifts, 6u);
}

// Catches live figures that change what was final, or that differ from those at the end.
TEST(DayMeasurerTests, LiveAndWholeAgree) {
  const MadeUpDay truth = makeUpDay({.seed = 4, .rides = 4, .hasHalts = true, .hasOutliers = true});
  const Day whole = measureDay(truth.fixes);
  DayMeasurer measurer;
  std::vector<SegmentKind> seen;
  std::size_t finals = 0, samples = 0;
  for (std::size_t i = 0; i < truth.fixes.size(); ++i) {
    const DayChange change = measurer.feed(truth.fixes[i]);
    finals += change.newSegments;
    samples += change.samples;
    EXPECT_EQ(measurer.segments().size(), finals);
    if (change.kindChanged && measurer.current()) seen.push_back(*measurer.current());
    if (i % 97 != 0) continue;
    const auto soFar = measurer.segmentsSoFar();
    ASSERT_GE(soFar.size(), finals);
    if (soFar.empty()) continue;
    EXPECT_EQ(soFar.back().end, measurer.samples().back().time);
    EXPECT_EQ(measurer.totals().end, soFar.back().end);
  }
  EXPECT_GT(finals, 8u) << "segments become final while the day goes on";
  const DayChange change = measurer.finish();
  EXPECT_EQ(finals + change.newSegments, whole.segments.size());
  EXPECT_EQ(samples + change.samples, whole.samples.size());
  const Day live = measurer.takeDay();
  EXPECT_EQ(live.counts, whole.counts);
  ASSERT_EQ(live.segments.size(), whole.segments.size());
  for (std::size_t i = 0; i < live.segments.size(); ++i) {
    EXPECT_EQ(live.segments[i].begin, whole.segments[i].begin);
    EXPECT_EQ(live.segments[i].figures, whole.segments[i].figures);
  }
  EXPECT_GE(seen.size(), 16u) << "pause, lift, pause, run, four times";
  EXPECT_TRUE(measurer.samples().empty()) << "as new";
}

CLLocation fixAt(double time, double east = 0) {
  CLLocation fix;
  fix.coordinate = {46.5, 9.8 + east * CLLocation::metersToDegreesForLonAtLat(46.5)};
  fix.altitude = 1800;
  fix.horizontalAccuracy = fix.verticalAccuracy = 5;
  fix.speed = 2;
  fix.timestamp = dateSince1970(1'700'000'000 + time);
  return fix;
}

// Catches fixes that spoil a day, and fixes that vanish without being counted.
TEST(DayMeasurerTests, LeavesOutAndCounts) {
  constexpr double kNothing = std::numeric_limits<double>::quiet_NaN();
  constexpr double kEndless = std::numeric_limits<double>::infinity();
  struct Case {
    const char* name;
    void (*spoil)(CLLocation&);
    std::size_t FixCounts::* count;
  };
  const Case cases[] = {
      {"latitude", [](CLLocation& f) { f.coordinate.latitude = 91; }, &FixCounts::offTheGlobe},
      {"longitude", [](CLLocation& f) { f.coordinate.longitude = kNothing; },
       &FixCounts::offTheGlobe},
      {"altitude", [](CLLocation& f) { f.altitude = kEndless; }, &FixCounts::offTheGlobe},
      {"speed without end", [](CLLocation& f) { f.speed = kEndless; }, &FixCounts::offTheGlobe},
      {"no time", [](CLLocation& f) { f.timestamp = dateSince1970(kNothing); },
       &FixCounts::offTheGlobe},
      {"unknown speed", [](CLLocation& f) { f.speed = -1; }, &FixCounts::inaccurate},
      {"poor accuracy", [](CLLocation& f) { f.horizontalAccuracy = 61; }, &FixCounts::inaccurate},
      {"old time", [](CLLocation& f) { f.timestamp -= platform::TimeInterval(1); },
       &FixCounts::repeated},
      {"place", [](CLLocation& f) { f.coordinate.latitude += 0.01; }, &FixCounts::outliers},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    DayMeasurer measurer;
    for (int i = 0; i < 200; ++i) {
      CLLocation fix = fixAt(i, 2.0 * i);
      if (i == 100) c.spoil(fix);
      measurer.feed(fix);
    }
    const Day day = measurer.takeDay();
    EXPECT_EQ(day.counts.read, 200u);
    EXPECT_EQ(day.counts.used, 199u);
    EXPECT_EQ(day.samples.size(), 199u);
    EXPECT_EQ(day.counts.*c.count, 1u);
    EXPECT_NEAR(day.totals.all.distanceMeters, 398, 8);
    EXPECT_NEAR(day.totals.all.seconds, 199, 1e-6);
    EXPECT_EQ(day.totals.all.ascentMeters, 0);
  }
}

// Catches wrong times that cost other fixes than themselves, and a day as long as they say.
TEST(DayMeasurerTests, WrongTimesCostNoOtherFix) {
  struct Case {
    const char* name;
    int first, count;
    double shiftSeconds;
  };
  const Case cases[] = {
      {"the first one, ahead", 0, 1, 1e8},
      {"the first one, no clock yet", 0, 1, -1.7e9},
      {"the first two", 0, 2, 1e8},
      {"two in the middle", 100, 2, 1e8},
      {"seven in the middle", 100, 7, 86'400},
      {"seven, no clock", 100, 7, -1.7e9},
      {"sixty, of another century", 100, 60, 2.4e9},
      {"the last one", 199, 1, 1e8},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<CLLocation> fixes;
    for (int i = 0; i < 200; ++i) {
      fixes.push_back(fixAt(i, 2.0 * i));
      const bool isWrong = i >= c.first && i < c.first + c.count;
      if (isWrong) fixes.back().timestamp += platform::TimeInterval(c.shiftSeconds);
    }
    const Day day = measureDay(fixes);
    EXPECT_EQ(day.counts.used, 200u - static_cast<std::size_t>(c.count));
    EXPECT_EQ(day.counts.outliers + day.counts.repeated, static_cast<std::size_t>(c.count));
    EXPECT_NEAR(day.totals.all.seconds, 199, c.count);
    EXPECT_NEAR(day.totals.all.distanceMeters, 398, 8);
  }
  for (const int every : {30, 120, 900}) {
    std::vector<CLLocation> fixes;
    for (int i = 0; i < 50; ++i) fixes.push_back(fixAt(every * i, every * i));
    EXPECT_EQ(measureDay(fixes).counts.used, 50u) << every;
  }
}

// Catches an altitude that nobody measured in the heights of a day.
TEST(DayMeasurerTests, MissingAltitudesAreNoHeights) {
  struct Case {
    int first, count;
    double lowest, highest;
  };
  const Case cases[] = {{0, 0, 1901, 2500},    {0, 1, 1901, 2499},     {0, 30, 1901, 2470},
                        {300, 60, 1901, 2500}, {300, 250, 1901, 2500}, {570, 30, 1931, 2500}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.first << ' ' << c.count);
    std::vector<CLLocation> fixes;
    DayMeasurer live;
    for (int i = 0; i < 600; ++i) {
      fixes.push_back(fixAt(i, 8.0 * i));
      fixes.back().speed = 8;
      fixes.back().altitude = 2500 - i;
      fixes.back().verticalAccuracy = -1;
      if (i >= c.first && i < c.first + c.count) fixes.back().altitude = 0;
      live.feed(fixes.back());
    }
    for (const Day& day : {measureDay(fixes), live.takeDay()}) {
      EXPECT_NEAR(day.totals.minAltitude.value_or(0), c.lowest, 1e-9);
      EXPECT_NEAR(day.totals.maxAltitude.value_or(0), c.highest, 1e-9);
      EXPECT_NEAR(day.totals.all.descentMeters, c.highest - c.lowest, 5);
      EXPECT_EQ(day.totals.all.ascentMeters, 0);
      EXPECT_EQ(day.totals.runs, 1u);
    }
  }
  std::vector<CLLocation> fixes(100, fixAt(0));
  for (int i = 0; i < 100; ++i) {
    fixes[static_cast<std::size_t>(i)] = fixAt(i, 2.0 * i);
    fixes[static_cast<std::size_t>(i)].altitude = 0;
    fixes[static_cast<std::size_t>(i)].verticalAccuracy = -1;
  }
  EXPECT_FALSE(measureDay(fixes).totals.minAltitude);
  EXPECT_EQ(measureDay(fixes).counts.used, 100u);
}

// Catches a recording that was switched off counting as a ride through the air.
TEST(DayMeasurerTests, ALongSilenceIsABreak) {
  std::vector<CLLocation> fixes;
  for (int i = 0; i < 300; ++i) fixes.push_back(fixAt(i, 2.0 * i));
  for (int i = 0; i < 300; ++i) {
    fixes.push_back(fixAt(5000 + i, 20'000 + 2.0 * i));
    fixes.back().altitude = 2500;
  }
  const Day day = measureDay(fixes);
  EXPECT_NEAR(day.totals.all.distanceMeters, 1200, 20);
  EXPECT_EQ(day.totals.all.ascentMeters, 0);
  EXPECT_NEAR(day.totals.pause.seconds, 4701, 1);
  EXPECT_NEAR(day.totals.all.seconds, 5299, 1e-6);
}

// Catches height that is lost, or made, where recording stops while one moves.
TEST(DayMeasurerTests, EdgesOfGapsKeepTheirHeight) {
  struct Case {
    const char* what;
    int silence;  ///< Seconds, after 100 of 200 s of a run of 3 m/s down.
    int wrongAt;  ///< The fix whose altitude is 120 m too high.
    double descent;
  };
  const Case cases[] = {{"a break", 700, -1, 597},
                        {"a spike before a gap", 60, 99, 600},
                        {"a spike behind a gap", 60, 100, 600}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<CLLocation> fixes;
    for (int i = 0; i < 200; ++i) {
      fixes.push_back(fixAt(i < 100 ? i : i + c.silence, 10.0 * i));
      fixes.back().speed = 10;
      fixes.back().altitude = 2500 - 3 * i + (i == c.wrongAt ? 120 : 0);
    }
    const Day day = measureDay(fixes);
    EXPECT_NEAR(day.totals.all.descentMeters, c.descent, 8);
    EXPECT_EQ(day.totals.all.ascentMeters, 0);
    EXPECT_EQ(day.counts.altitudeSteps, 0U);
  }
}

// Catches planes that end at the date line.
TEST(DayMeasurerTests, CrossesTheDateLine) {
  std::vector<CLLocation> fixes;
  for (int i = 0; i < 300; ++i) {
    fixes.push_back(fixAt(i));
    const double longitude = 179.998 + i * 2 * CLLocation::metersToDegreesForLonAtLat(46.5);
    fixes.back().coordinate.longitude = longitude > 180 ? longitude - 360 : longitude;
  }
  const Day day = measureDay(fixes);
  EXPECT_EQ(day.counts.used, 300u);
  EXPECT_NEAR(day.totals.all.distanceMeters, 598, 8);
}

TEST(DayMeasurerTests, TakesHeartRatesThatAreRecent) {
  std::vector<CLLocation> fixes;
  for (int i = 0; i < 100; ++i) fixes.push_back(fixAt(i, 2.0 * i));
  const std::vector<HeartRate> rates = {
      {fixAt(0).timestamp, 100}, {fixAt(10.5).timestamp, 140}, {fixAt(60).timestamp, 900}};
  const Day day = measureDay(fixes, rates);
  EXPECT_EQ(day.totals.all.heartRates, 26u) << "11 of the first, 15 of the second, none of 900";
  EXPECT_EQ(day.totals.all.maxHeartRate, 140);
  EXPECT_NEAR(*day.totals.all.averageHeartRate, (11 * 100 + 15 * 140) / 26.0, 1e-9);
}

TEST(DayMeasurerTests, TinyRecordings) {
  EXPECT_TRUE(measureDay({}).segments.empty());
  EXPECT_FALSE(measureDay({}).totals.begin);
  DayMeasurer nothing;
  EXPECT_TRUE(nothing.segmentsSoFar().empty());
  for (int count = 1; count < 30; ++count) {
    SCOPED_TRACE(count);
    std::vector<CLLocation> fixes;
    for (int i = 0; i < count; ++i) fixes.push_back(fixAt(i));
    const Day day = measureDay(fixes);
    EXPECT_EQ(day.samples.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(day.totals.all.seconds, count - 1);
    EXPECT_EQ(day.segments.size(), 1u);
  }
}

Day wholeDay(std::vector<CLLocation> fixes) {
  sortByTime(fixes);
  deriveMissingMotion(fixes);
  return measureDay(fixes);
}

// Catches what files of other programs do to the times and speeds of a day: any order, missing
// speeds, and speeds that are none.
TEST(DayMeasurerTests, FilesMayLackOrderAndSpeeds) {
  struct Case {
    const char* name;
    void (*spoil)(std::vector<CLLocation>&);
  };
  const Case cases[] = {
      {"newest first", [](auto& fixes) { std::ranges::reverse(fixes); }},
      {"two tracks swapped", [](auto& fixes) { std::ranges::rotate(fixes, fixes.begin() + 2000); }},
      {"a clock of another century",
       [](auto& fixes) {
         for (std::size_t i = 900; i < 908; ++i) {
           fixes.insert(fixes.begin() + 1800, fixes[i]);
           fixes[1800].timestamp += platform::TimeInterval(2.4e9 + static_cast<double>(i));
           fixes.insert(fixes.begin() + 1800, fixes[i]);
           fixes[1800].timestamp = dateSince1970(static_cast<double>(i));
         }
       }},
      {"no speed for a while",
       [](auto& fixes) {
         for (std::size_t i = 900; i < 2200; ++i) fixes[i].speed = -1;
       }},
      {"a speed now and then",
       [](auto& fixes) {
         for (std::size_t i = 0; i < fixes.size(); ++i) {
           if (i % 50 != 7) fixes[i].speed = -1;
         }
       }},
      {"km/h",
       [](auto& fixes) {
         for (CLLocation& fix : fixes) fix.speed *= 3.6;
       }},
      {"cm/s",
       [](auto& fixes) {
         for (CLLocation& fix : fixes) fix.speed *= 100;
       }},
      {"zeros",
       [](auto& fixes) {
         for (CLLocation& fix : fixes) fix.speed = 0;
       }},
  };
  const MadeUpDay truth = makeUpDay({.seed = 6, .rides = 4, .positionNoise = 1});
  const Day whole = wholeDay(truth.fixes);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto fixes = truth.fixes;
    c.spoil(fixes);
    const Day day = wholeDay(fixes);
    EXPECT_EQ(day.counts.used, whole.counts.used);
    EXPECT_NEAR(day.totals.all.distanceMeters, whole.totals.all.distanceMeters,
                0.06 * whole.totals.all.distanceMeters);
    EXPECT_NEAR(day.totals.all.movingSeconds, whole.totals.all.movingSeconds,
                0.1 * whole.totals.all.movingSeconds);
    EXPECT_EQ(day.totals.all.seconds, whole.totals.all.seconds);
    expectTruth(truth, day, 0.02, 0.15);
  }
}

// Catches speeds that come of a way whose time is not counted.
TEST(DayMeasurerTests, AGapMakesNoSpeed) {
  const MadeUpDay truth = makeUpDay({.seed = 7, .rides = 2});
  const auto expectNoSpeed = [&truth](const std::vector<CLLocation>& fixes) {
    const Day day = measureDay(fixes);
    EXPECT_LE(day.totals.all.maxSpeedMetersPerSecond, 1.03 * truth.topSpeed);
    for (const DaySegment& segment : day.segments) {
      EXPECT_LE(segment.figures.movingSeconds, segment.figures.seconds + 1e-6);
      EXPECT_LE(segment.figures.averageSpeedMetersPerSecond,
                segment.figures.maxSpeedMetersPerSecond + 1e-9);
    }
  };
  for (const int seconds : {30, 90, 200, 590}) {
    for (std::size_t at = 0; at < truth.fixes.size(); at += 35) {
      SCOPED_TRACE(::testing::Message() << "hole of " << seconds << " s at " << at);
      std::vector<CLLocation> fixes;
      for (std::size_t i = 0; i < truth.fixes.size(); ++i) {
        if (i < at || i >= at + static_cast<std::size_t>(seconds)) fixes.push_back(truth.fixes[i]);
      }
      expectNoSpeed(fixes);
    }
  }
  for (const std::size_t every : {5U, 20U, 60U, 90U, 300U}) {
    SCOPED_TRACE(every);
    std::vector<CLLocation> fixes;
    for (std::size_t i = 0; i < truth.fixes.size(); i += every) fixes.push_back(truth.fixes[i]);
    expectNoSpeed(fixes);
  }
}

// Catches the altitudes of a device that has just begun among the heights of the day.
TEST(DayMeasurerTests, TheFirstAltitudesMayBeWrong) {
  for (const int first : {0, 1, 20}) {
    SCOPED_TRACE(first);
    std::vector<CLLocation> fixes;
    for (int i = 0; i < 300; ++i) {
      fixes.push_back(fixAt(i, 2.0 * i));
      if (i >= first && i < first + 3) fixes.back().altitude += 86.4;
    }
    const Day day = measureDay(fixes);
    EXPECT_NEAR(day.totals.maxAltitude.value_or(0), 1800, 1);
    EXPECT_NEAR(day.totals.minAltitude.value_or(0), 1800, 1);
    for (const DaySample& sample : day.samples) ASSERT_NEAR(sample.altitude, 1800, 1);
  }
}

// Catches a lift that noise cuts into pieces, and rides of a few seconds.
TEST(DayMeasurerTests, PiecesOfALiftAreOneLift) {
  const auto expectLifts = [](std::initializer_list<std::array<double, 3>> legs,
                              std::size_t lifts) {
    std::vector<CLLocation> fixes;
    double time = 0, east = 0, altitude = 1800;
    for (const auto& [seconds, speed, slope] : legs) {
      for (double i = 0; i < seconds; ++i) {
        fixes.push_back(fixAt(time++, east += speed));
        fixes.back().speed = speed;
        fixes.back().altitude = altitude += speed * slope;
      }
    }
    EXPECT_EQ(measureDay(fixes).totals.lifts, lifts);
  };
  expectLifts({{60, 0, 0}, {300, 4, 0.3}, {90, 1, 0.15}, {30, 6, 0.35}, {60, 0, 0}}, 1);
  expectLifts({{60, 0, 0}, {30, 6, 0.35}, {90, 1, 0.15}, {300, 4, 0.3}, {60, 0, 0}}, 1);
  expectLifts({{60, 0, 0}, {15, 6, 0.35}, {400, 0, 0}}, 0);
}

TEST(DerivedMotionTests, FillsInWhatAFileDoesNotHold) {
  std::vector<CLLocation> fixes;
  for (int i = 0; i < 4; ++i) {
    fixes.push_back(fixAt(i < 2 ? i : i - 1, 3.0 * i));
    fixes.back().speed = -1;
  }
  EXPECT_TRUE(deriveMissingMotion(fixes));
  EXPECT_NEAR(fixes[0].speed, 3, 0.05);
  EXPECT_NEAR(fixes[1].speed, 3, 0.05);
  EXPECT_NEAR(fixes[1].course, 90, 0.1);
  EXPECT_EQ(fixes[2].speed, -1) << "its time does not grow";

  std::vector<CLLocation> lone = {fixAt(0), fixAt(1, 30), fixAt(2, 6)};
  lone[1].speed = -1;
  auto blurred = lone;
  blurred[1].horizontalAccuracy = 65;
  EXPECT_TRUE(deriveMissingMotion(lone));
  EXPECT_EQ(lone[1].speed, 2) << "what its neighbours tell, not a jump of its place";
  EXPECT_FALSE(deriveMissingMotion(blurred));
  EXPECT_EQ(blurred[1].speed, -1);
}

}  // namespace
}  // namespace ombrix::testing
