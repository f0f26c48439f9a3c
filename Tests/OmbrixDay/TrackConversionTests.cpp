#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <set>
#include <utility>

#include "Tests/OmbrixDay/FITBytes.hpp"
#include "Tests/OmbrixDay/SampleTracks.hpp"

namespace ombrix::testing {
namespace {

using platform::bytesOf;
using platform::dateSince1970;
using platform::timeIntervalSince1970;
using enum TrackFormat;

/// Drops readings that stand at no fix.
template <class Reading>
void keepAtFixes(std::vector<Reading>& readings, const std::set<platform::Date>& fixes) {
  std::erase_if(readings, [&](const Reading& reading) { return !fixes.contains(reading.time); });
}

/// What a file of a format keeps of a track.
Track keptBy(TrackFormat format, Track track) {
  if (format == tcx) return track;
  if (format == csv) return Track{.fixes = std::move(track.fixes)};
  std::set<platform::Date> fixes;
  for (const CLLocation& fix : track.fixes) fixes.insert(fix.timestamp);
  keepAtFixes(track.heartRates, fixes);
  for (const auto readings :
       {&Track::cadences, &Track::powers, &Track::temperatures, &Track::distances}) {
    keepAtFixes(track.*readings, fixes);
  }
  track.laps.clear();
  track.loneAltitudes.clear();
  track.loneSpeeds.clear();
  return track;
}

template <class Reading>
void expectSameReadings(const std::vector<Reading>& expected, const std::vector<Reading>& actual,
                        double Reading::* value) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(actual[i].time, expected[i].time);
    EXPECT_NEAR(actual[i].*value, expected[i].*value, 1e-6);
  }
}

void expectSame(const Track& expected, const Track& actual, double degrees = 1e-9) {
  ASSERT_EQ(actual.fixes.size(), expected.fixes.size());
  EXPECT_EQ(actual.skipped, 0u);
  EXPECT_EQ(actual.fault, "");
  EXPECT_EQ(told(actual.unread), "");
  for (std::size_t i = 0; i < expected.fixes.size(); ++i) {
    const CLLocation &a = expected.fixes[i], &b = actual.fixes[i];
    EXPECT_NEAR(a.coordinate.latitude, b.coordinate.latitude, degrees);
    EXPECT_NEAR(a.coordinate.longitude, b.coordinate.longitude, degrees);
    EXPECT_NEAR(a.altitude, b.altitude, 1e-6);
    EXPECT_NEAR(a.speed, b.speed, 1e-6) << i;
    EXPECT_NEAR(a.course, b.course, 1e-6) << i;
    EXPECT_NEAR(a.horizontalAccuracy, b.horizontalAccuracy, 1e-6);
    EXPECT_NEAR(a.verticalAccuracy, b.verticalAccuracy, 1e-6) << i;
    EXPECT_NEAR(timeIntervalSince1970(a.timestamp), timeIntervalSince1970(b.timestamp), 1e-6);
  }
  expectSameReadings(expected.heartRates, actual.heartRates, &HeartRate::beatsPerMinute);
  for (const auto readings : {&Track::cadences, &Track::powers, &Track::temperatures,
                              &Track::distances, &Track::loneAltitudes, &Track::loneSpeeds}) {
    expectSameReadings(expected.*readings, actual.*readings, &SensorReading::value);
  }
  EXPECT_EQ(actual.breaks, expected.breaks);
  EXPECT_EQ(actual.laps, expected.laps);
  EXPECT_EQ(actual.name, expected.name);
  EXPECT_EQ(actual.sport, expected.sport);
  EXPECT_EQ(actual.notes, expected.notes);
}

/// Expects that a file gives its track to each format, and each of these to each other one.
void expectNothingLost(const std::string& file, TrackFormat format, const Track& track) {
  expectSame(track, read(file, format));
  for (const TrackFormat to : kWritten) {
    SCOPED_TRACE(::testing::Message() << "from " << int(format) << " to " << int(to));
    const std::string converted = convertTrack(bytesOf(file), format, to);
    Track again = read(converted, to);
    if (to == tcx && track.laps.empty()) again.laps.clear();  // It holds one over all then.
    expectSame(keptBy(to, track), again, to == csv ? 1.01e-6 : 1e-9);  // It cuts.
    EXPECT_TRUE(holdsAll(track, to, again));
    for (const char* none : {"<ele>0<", "<AltitudeMeters>0<"}) {
      EXPECT_EQ(converted.find(none), converted.npos) << none;
    }
  }
}

/// Makes up recordings in which anything may be unknown.
class RandomTracks {
 public:
  explicit RandomTracks(std::uint64_t seed) : engine_(seed) {}

  /// Figures have few enough decimals for every format.
  Track next() {
    Track track{.name = text(), .sport = kSports[below(5)], .notes = text()};
    double time = kNoon, way = 0;
    for (std::size_t i = 1 + below(40); i > 0; --i) {
      const platform::Date date = dateSince1970(time += kSteps[below(4)]);
      const bool hasPlace = track.fixes.empty() || chance(0.8);
      if (hasPlace) track.fixes.push_back(fix(date));
      if (track.fixes.size() > 1 && hasPlace && chance(0.1)) {
        track.breaks.push_back(track.fixes.size() - 1);
      }
      const bool isFast = chance(0.1);  // Beyond what a byte holds, and less than one beat.
      if (!hasPlace || chance(0.7)) {
        track.heartRates.push_back({date, isFast ? 300.25 : figure(0, 220)});
      }
      if (chance(0.5)) track.cadences.push_back({date, figure(0, isFast ? 400 : 120)});
      if (chance(0.5)) track.powers.push_back({date, figure(0, isFast ? 90'000 : 900)});
      if (chance(0.5)) track.temperatures.push_back({date, figure(-40, 40)});
      if (chance(0.5)) track.distances.push_back({date, way += figure(0, 30)});
      if (!hasPlace && chance(0.5)) track.loneAltitudes.push_back({date, figure(-400, 8800)});
      if (!hasPlace && chance(0.5)) track.loneSpeeds.push_back({date, figure(0, 40)});
    }
    const auto laps = below(5);
    for (double at = kNoon - 1; track.laps.size() < laps; at += 1 + figure(0, 40)) {
      track.laps.push_back(lap(dateSince1970(at)));
    }
    return track;
  }

  /// A file of another program's making, with records, laps and stops.
  std::string nextFIT() {
    FITBytes file(chance(0.5));
    auto time = static_cast<std::uint32_t>(kNoon - 631'065'600);
    file.define(0, 20,
                {{253, 4, 0x86},
                 {0, 4, 0x85},
                 {1, 4, 0x85},
                 {78, 4, 0x86},
                 {73, 4, 0x86},
                 {3, 1, 0x02},
                 {4, 1, 0x02},
                 {53, 1, 0x02},
                 {7, 2, 0x84},
                 {13, 1, 0x01},
                 {5, 4, 0x86},
                 {31, 1, 0x02}});
    file.define(1, 21, {{0, 1, 0x00}, {1, 1, 0x00}});
    file.define(2, 19,
                {{253, 4, 0x86},
                 {2, 4, 0x86},
                 {8, 4, 0x86},
                 {9, 4, 0x86},
                 {11, 2, 0x84},
                 {110, 4, 0x86},
                 {111, 4, 0x86},
                 {15, 1, 0x02},
                 {16, 1, 0x02},
                 {17, 1, 0x02},
                 {18, 1, 0x02},
                 {19, 2, 0x84},
                 {20, 2, 0x84},
                 {23, 1, 0x00},
                 {24, 1, 0x00}});
    std::uint32_t begin = time;
    for (std::size_t i = 2 + below(40); i > 0; --i) {
      time += 1 + below(9);
      const bool hasPlace = chance(0.85);
      const auto any = [&](unsigned bytes, std::uint32_t most) {
        file.put(chance(0.8) ? below(most) : 0xFFFFFFFF, bytes);
      };
      file.message(0).put(time, 4);
      file.put(hasPlace ? below(0x3FFFFFFF) : 0x7FFFFFFF, 4);
      file.put(hasPlace ? below(0x7FFFFFFF) : 0x7FFFFFFF, 4);
      any(4, 40'000);           // altitude
      any(4, 40'000);           // speed
      file.put(below(250), 1);  // beats
      any(1, 250);              // cadence,
      any(1, 127);              // and its fraction
      any(2, 2'000);            // power
      any(1, 100);              // temperature
      any(4, 900'000);          // way
      any(1, 60);               // accuracy
      if (chance(0.1)) file.message(1).put(0, 1).put(4, 1);
      if (!chance(0.15)) continue;
      file.message(2).put(time, 4).put(std::exchange(begin, time + 1), 4);
      for (const unsigned bytes : {4U, 4U, 2U}) file.put(below(60'000), bytes);
      for (const unsigned bytes : {4U, 4U, 1U, 1U, 1U, 1U, 2U, 2U}) {
        any(bytes, bytes == 1 ? 250 : 60'000);
      }
      file.put(below(2), 1).put(below(7), 1);
    }
    return file.bytes();
  }

 private:
  static constexpr const char* kSports[] = {"running", "cycling", "alpine_skiing", "Running", ""};
  static constexpr double kSteps[] = {0.25, 1, 1, 700};

  double uniform() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }
  bool chance(double share) { return uniform() < share; }
  std::uint32_t below(std::uint32_t end) {
    return static_cast<std::uint32_t>(uniform() * static_cast<double>(end));
  }
  /// Whole or in eighths, so that a text of six decimals holds it.
  double figure(double least, double most) {
    const double eighths = std::floor(8 * (least + (most - least) * uniform()));
    return chance(0.5) ? std::floor(eighths / 8) : eighths / 8;
  }
  double orUnknown(double value) { return chance(0.25) ? -1 : value; }

  CLLocation fix(platform::Date date) {
    CLLocation fix{.coordinate = {figure(-90, 90), 180 * (2 * uniform() - 1)},
                   .altitude = figure(1, 8800),
                   .timestamp = date};
    fix.coordinate.longitude = std::round(fix.coordinate.longitude * 1e6) / 1e6;
    fix.speed = orUnknown(figure(0, 40));
    fix.course = orUnknown(std::floor(figure(0, 359)));
    fix.horizontalAccuracy = orUnknown(std::floor(figure(0, 90)));
    fix.verticalAccuracy = orUnknown(std::floor(figure(0, 90)));
    if (chance(0.1)) fix.altitude = 0, fix.verticalAccuracy = -1;  // none
    return fix;
  }

  Lap lap(platform::Date begin) {
    Lap lap{.begin = begin,
            .seconds = figure(0, 4000),
            .distanceMeters = figure(0, 9000),
            .kilocalories = figure(0, chance(0.1) ? 1e6 : 900)};
    for (const auto total :
         {&Lap::averageSpeed, &Lap::maxSpeed, &Lap::averageHeartRate, &Lap::maxHeartRate,
          &Lap::averageCadence, &Lap::maxCadence, &Lap::averagePower, &Lap::maxPower}) {
      lap.*total = orUnknown(figure(0, chance(0.1) ? 1e5 : 200));
    }
    lap.isRest = chance(0.5);
    lap.trigger = static_cast<LapTrigger>(below(5));
    lap.notes = text();
    return lap;
  }

  std::string text() {
    constexpr const char* kPieces[] = {"Pulver", " ", "<&>", "\"'", "ß", "日本", "🎿", "\n", "]]>"};
    std::string text;
    for (std::size_t i = below(4); i > 0; --i) text += std::string("x") + kPieces[below(9)] + "y";
    return text;
  }

  std::mt19937_64 engine_;
};

// Catches a figure, a lap, a break or a text that two formats hold and a conversion loses.
TEST(TrackConversions, everyFormatComesBackThroughEveryOther) {
  RandomTracks tracks(20);
  for (int i = 0; i < 60; ++i) {
    SCOPED_TRACE(i);
    const Track track = tracks.next();
    EXPECT_EQ(told(leftOut(track, tcx)), "");
    for (const TrackFormat from : kWritten) {
      Track kept = keptBy(from, track);
      const std::string file = "\xEF\xBB\xBF" + writeTrack(track, from);
      if (from == tcx && track.laps.empty()) kept.laps = read(file, tcx).laps;
      expectNothingLost(file, from, kept);
    }
    const std::string file = tracks.nextFIT();
    Track kept = read(file, fit);
    expectNothingLost(file, fit, kept);
    if (HasFailure()) return;
  }
}

// Catches numbers of a kind or size that the public schemas refuse, so that others refuse the file.
TEST(TrackConversions, whatSchemasTakeAsWholeNumbersIsWhole) {
  Track track = richTrack();
  track.heartRates[0].beatsPerMinute = 60.5;
  track.heartRates[1].beatsPerMinute = 256;
  track.heartRates[2].beatsPerMinute = 0.25;
  track.powers[0].value = 150.75;
  track.laps[0].kilocalories = 70'000.5;
  track.laps[0].averagePower = 180.25;
  struct Case {
    TrackFormat format;
    const char* sport;
    std::initializer_list<const char*> there, missing;
  };
  const Case cases[] = {
      {gpx,
       "",
       {"<gpxtpx:hr>61</gpxtpx:hr>", "<o:heartRate>60.5</o:heartRate>",
        "<o:heartRate>256</o:heartRate>", "<gpxtpx:cad>81</gpxtpx:cad>",
        "<pwr:PowerInWatts>151</pwr:PowerInWatts>", "<gpxtpx:hr>64</gpxtpx:hr>"},
       {"<gpxtpx:hr>0<", "<gpxtpx:hr>256", "<o:heartRate>64"}},
      {tcx,
       "",
       {"<HeartRateBpm><Value>61</Value></HeartRateBpm>", "<o:heartRate>60.5</o:heartRate>",
        "<Cadence>81</Cadence>", "<x:Watts>151</x:Watts>", "<Calories>65535</Calories>",
        "<o:calories>70000.5</o:calories>", "<x:AvgWatts>180</x:AvgWatts>"},
       {"<Value>0<", "<Value>256", "<Cadence>80.5"}},
      {tcx, "running", {"<x:RunCadence>81</x:RunCadence>"}, {"<Cadence>"}}};
  for (const Case& c : cases) {
    track.sport = c.sport;
    const std::string text = writeTrack(track, c.format);
    for (const char* each : c.there) EXPECT_NE(text.find(each), text.npos) << each;
    for (const char* each : c.missing) EXPECT_EQ(text.find(each), text.npos) << each;
  }
  // A lap that the device did not total does not count the time for which it had stopped.
  Track broken{.name = "", .fixes = track.fixes, .breaks = {3}};
  for (std::size_t i = 3; i < 6; ++i) broken.fixes[i].timestamp += std::chrono::seconds(600);
  EXPECT_EQ(read(writeTrack(broken, tcx), tcx).laps.at(0).seconds, 4);
}

}  // namespace
}  // namespace ombrix::testing
