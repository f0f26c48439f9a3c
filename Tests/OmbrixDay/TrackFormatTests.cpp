#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixDay/Formats/Track.hpp"
#include "OmbrixPlatform/Coding/XMLReader.hpp"
#include "Tests/OmbrixDay/FITBytes.hpp"
#include "Tests/OmbrixDay/SampleTracks.hpp"

namespace ombrix::testing {
namespace {

using platform::bytesOf;
using platform::dateSince1970;
using platform::timeIntervalSince1970;
using Seconds = std::chrono::duration<double>;
using enum TrackFormat;

/// What is wrong with a text, whether any of it can be read or not.
std::string faultOf(std::string_view text, TrackFormat format) {
  try {
    return read(text, format).fault;
  } catch (const TrackFormatError& error) {
    return error.what();
  }
}

// Catches a recording that is taken for a part of another one.
TEST(TrackFormats, oneRecordingHoldsAnother) {
  const Track whole = richTrack();
  struct Case {
    const char* what;
    bool isHeld;
    void (*change)(Track&);
  };
  constexpr Case kCases[] = {
      {"the same", true, [](Track&) {}},
      {"its beginning", true,
       [](Track& track) {
         track.fixes.resize(5);
         track.heartRates.resize(4);
         track.cadences.resize(2);
         track.temperatures.resize(3);
         track.distances.resize(5);
         track.laps[1].seconds = 1;
       }},
      {"without speeds", true, [](Track& track) { track.fixes[3].speed = -1; }},
      {"another device's place", false,
       [](Track& track) { track.fixes[3].coordinate.latitude += 1e-4; }},
      {"another altitude", false, [](Track& track) { track.fixes[3].altitude += 1; }},
      {"with a speed more", false, [](Track& track) { track.fixes[1].speed = 7; }},
      {"a second later", false, [](Track& track) { track.fixes[5].timestamp += Seconds(1); }},
      {"a fix more", false,
       [](Track& track) {
         track.fixes.push_back(track.fixes.back());
         track.fixes.back().timestamp += Seconds(1);
       }},
      {"a heart rate more", false,
       [](Track& track) { track.heartRates.push_back({track.fixes[2].timestamp, 62}); }},
      {"a power more", false,
       [](Track& track) { track.powers.push_back({track.fixes[4].timestamp, 62}); }},
      {"a break more", false, [](Track& track) { track.breaks.push_back(5); }},
      {"another lap", false, [](Track& track) { track.laps[1].begin += Seconds(1); }},
      {"a lap's power", false, [](Track& track) { track.laps[1].maxPower = 1; }},
      {"another name", false, [](Track& track) { track.name = "Blau"; }},
      {"a waypoint", false, [](Track& track) { track.unread = {{"Waypoints", 1}}; }},
      {"a point without a time", false, [](Track& track) { ++track.skipped; }},
  };
  for (const Case& c : kCases) {
    Track other = richTrack();
    c.change(other);
    EXPECT_EQ(holdsAll(whole, tcx, other), c.isHeld) << c.what;
  }
  for (const TrackFormat format : kWritten) {
    EXPECT_EQ(holdsAll(whole, format, whole), format == tcx) << int(format);
    EXPECT_TRUE(holdsAll(whole, format, read(writeTrack(whole, format), format))) << int(format);
  }
  Track turned = whole;
  std::ranges::reverse(turned.fixes);
  turned.breaks.clear();
  EXPECT_TRUE(holdsAll(Track{.fixes = whole.fixes}, csv, Track{.fixes = turned.fixes}));
}

TEST(TrackFormats, whatCannotBeWrittenIsLeftOut) {
  const double nan = std::nan("");
  Track track = sampleTrack();
  track.name = "\x01\xEF\xBF\xBF]]>";  // neither of the first two may stand in XML
  track.fixes[0].coordinate.latitude = nan;
  track.fixes[1].altitude = INFINITY;
  track.fixes[2].timestamp = dateSince1970(1e15);
  track.fixes[3].speed = nan;
  track.heartRates[4].beatsPerMinute = nan;
  track.laps.push_back({.begin = dateSince1970(nan)});
  EXPECT_EQ(writableFixes(track), 3u);
  for (const TrackFormat format : {csv, gpx, tcx, geoJSON}) {
    const Track again = read(writeTrack(track, format), format);
    ASSERT_EQ(again.fixes.size(), 3u) << int(format);
    EXPECT_EQ(again.fixes[0].speed, -1);
    EXPECT_TRUE(read(writeTrack({}, format), format).fixes.empty());
  }
  EXPECT_THROW((void)writeTrack(track, fit), TrackFormatError);
  // Of the heart rates the one that is nan, and those of the fixes that cannot be written.
  track.unread = {{"Routes", 2}};
  EXPECT_EQ(told(leftOut(track, gpx)), "Heart rate 3, Laps 3, Routes 2, ");
  EXPECT_EQ(told(leftOut(track, tcx)), "Heart rate 1, Laps 1, Routes 2, ");
  EXPECT_EQ(
      told(leftOut(richTrack(), csv)),
      "Heart rate 5, Cadence 3, Power 2, Temperature 4, Distance 6, Laps 2, Breaks 2, Name 1, "
      "Sport 1, Notes 1, ");
  EXPECT_EQ(told(leftOut(richTrack(), tcx)), "");
}

TEST(TrackFormats, shapesOfOtherPrograms) {
  struct Case {
    const char* what;
    TrackFormat format;
    const char* text;
    const char* name;
    std::size_t fixes, rates, laps, skipped, breaks;
    double time, altitude, speed, beats;  ///< Of the first point.
    const char* sport;
    double turns;        ///< The first cadence.
    const char* unread;  ///< What a track has no place for.
  };
  const Case cases[] = {
      {"waypoint, author, two segments, prefixed extensions, offset, a point without a time", gpx,
       R"(<?xml version='1.0'?><g:gpx xmlns:g='http://www.topografix.com/GPX/1/1'><g:metadata>
          <g:author><g:name>Somebody</g:name></g:author></g:metadata>
          <g:wpt lat='1' lon='2'><g:name>Hut</g:name></g:wpt><g:rte><g:name>Way</g:name></g:rte>
          <g:trk><g:name> Day </g:name><g:type>skiing</g:type><g:trkseg><g:trkpt lat='46.5' lon='8.25'><g:ele>1500.5
          </g:ele><g:time>2026-03-01T14:00:00+02:00</g:time><g:extensions><n:TPE xmlns:n='x'>
          <n:time>7</n:time><n:hr>99</n:hr><n:speed>3.5</n:speed><n:cad>55</n:cad></n:TPE>
          </g:extensions></g:trkpt></g:trkseg><g:trkseg><g:trkpt lat='46.5' lon='8.25'/></g:trkseg>
          <g:trkseg/><g:trkseg><g:trkpt lat='46.5' lon='8.25'><g:time>2026-03-01T12:00:09Z</g:time>
          </g:trkpt></g:trkseg></g:trk><g:trk><g:type>skiing</g:type></g:trk></g:gpx>)",
       "Day", 2, 1, 0, 1, 1, 0, 1500.5, 3.5, 99, "skiing", 55,
       "Other details 2, Waypoints 1, Routes 1, Division into tracks 1, "},
      {"version 1.0 with a doubled name, speed in the point", gpx,
       "\xEF\xBB\xBF<gpx version='1.0'><trk><name><![CDATA[A & B]]></name><name>no</name><trkseg>"
       "<trkpt lat='46.5' lon='8.25'><time>2026-03-01T12:00:00.250Z</time><speed>2</speed></trkpt>"
       "</trkseg></trk></gpx>",
       "A & B", 1, 0, 0, 0, 0, 0.25, 0, 2, 0, "", 0, "Other details 1, "},
      {"laps with average rates, a point without a place, a second activity of a device", tcx,
       R"(<TrainingCenterDatabase><Activities><Activity Sport="Biking"><Id>x</Id>
          <Lap StartTime="2026-03-01T12:00:00Z"><AverageHeartRateBpm><Value>1</Value>
          </AverageHeartRateBpm><Track><Trackpoint><Time>2026-03-01T12:00:00Z</Time>
          <AltitudeMeters>5</AltitudeMeters><HeartRateBpm xsi:type="x" xmlns:xsi="y"><Value>70
          </Value></HeartRateBpm><Speed>2</Speed></Trackpoint>
          <Trackpoint><Time>2026-03-01T12:00:01Z</Time><Position><LatitudeDegrees>46.5
          </LatitudeDegrees><LongitudeDegrees>8.25</LongitudeDegrees></Position><AltitudeMeters>9
          </AltitudeMeters><Extensions><ns3:TPX xmlns:ns3="z"><ns3:Speed>4</ns3:Speed>
          <ns3:RunCadence>88</ns3:RunCadence></ns3:TPX></Extensions></Trackpoint></Track></Lap>
          <Lap StartTime="2026-03-01T13:00:00Z"/></Activity><Activity Sport="Running"><Creator>
          <Name>Watch</Name></Creator></Activity></Activities>
          </TrainingCenterDatabase>)",
       "", 1, 1, 2, 0, 0, 1, 9, 4, 70, "cycling", 88, "Division into tracks 1, Other details 1, "},
      {"collection with a point and a line without figures", geoJSON,
       R"({"type":"FeatureCollection","features":[{"type":"Feature","geometry":{"type":"Point",
          "coordinates":[1,2]},"properties":null},{"type":"Feature","properties":{"name":"Day",
          "coordTimes":["2026-03-01T12:00:00Z","never"]},"geometry":{"type":"LineString",
          "coordinates":[[8.25,46.5],[8.25,46.5,1]]}}]})",
       "Day", 1, 0, 0, 1, 0, 0, 0, -1, 0, "", 0, "Waypoints 1, "},
      {"a planned route beside a line in pieces with rates in pieces", geoJSON,
       R"({"type":"FeatureCollection","features":[{"type":"Feature","geometry":{"type":
          "LineString","coordinates":[[1,2],[3,4]]},"properties":{}},{"type":"Feature",
          "geometry":{"type":"MultiLineString","coordinates":[[[8.25,46.5,7]],[[8,46],[9,47]]]},
          "properties":{"coordTimes":[["2026-03-01T12:00:00Z"],["2026-03-01T12:00:05Z",
          "2026-03-01T12:00:06Z"]],"heartRates":[[70],[71,72]],"type":"hike","snow":"deep"}}]})",
       "", 3, 3, 0, 2, 1, 0, 7, -1, 70, "hike", 0, "Routes 1, Other details 1, "},
      {"figures under others' names, beside their times", geoJSON,
       R"({"type":"Feature","geometry":{"type":"LineString","coordinates":[[8.25,46.5]]},
          "properties":{"coordinateProperties":{"times":["2026-03-01T12:00:00Z"],"heart":[70],
          "cads":[44]}}})",
       "", 1, 1, 0, 0, 0, 0, 0, -1, 70, "", 44, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Track track = read(c.text, c.format);
    EXPECT_EQ(track.name, c.name);
    EXPECT_EQ(track.laps.size(), c.laps);
    EXPECT_EQ(track.skipped, c.skipped);
    EXPECT_EQ(track.breaks.size(), c.breaks);
    EXPECT_EQ(track.sport, c.sport);
    EXPECT_EQ(told(track.unread), c.unread);
    EXPECT_EQ(track.cadences.empty() ? 0 : track.cadences[0].value, c.turns);
    ASSERT_EQ(track.fixes.size(), c.fixes);
    ASSERT_EQ(track.heartRates.size(), c.rates);
    const CLLocation& fix = track.fixes[0];
    EXPECT_EQ(fix.coordinate.latitude, 46.5);
    EXPECT_EQ(fix.coordinate.longitude, 8.25);
    EXPECT_NEAR(timeIntervalSince1970(fix.timestamp), kNoon + c.time, 1e-6);
    EXPECT_EQ(fix.altitude, c.altitude);
    EXPECT_EQ(fix.speed, c.speed);
    if (c.rates > 0) {
      EXPECT_EQ(track.heartRates[0].beatsPerMinute, c.beats);
    }
  }
}

TEST(TrackFormats, numbersAndTimesThatAreWrong) {
  struct Case {
    const char *lat, *time, *ele;
    std::size_t fixes;
    double altitude;
  };
  const Case cases[] = {
      {"nan", "2026-03-01T12:00:00Z", "1", 0, 0},    {"inf", "2026-03-01T12:00:00Z", "1", 0, 0},
      {"90.1", "2026-03-01T12:00:00Z", "1", 0, 0},   {"4,5", "2026-03-01T12:00:00Z", "1", 0, 0},
      {"", "2026-03-01T12:00:00Z", "1", 0, 0},       {"4", "2026-02-29T12:00:00Z", "1", 0, 0},
      {"4", "2026-03-01T25:00:00Z", "1", 0, 0},      {"4", "2026-03-01T12:00:00+1", "1", 0, 0},
      {"4", "2026-03-01T12:00:00Zx", "1", 0, 0},     {"4", "2026-03-01T12:00:00.Z", "1", 0, 0},
      {"4", "2026-03-01T12:00:00Z", "1e400", 1, 0},  {"4", "2026-03-01T12:00:00Z", "high", 1, 0},
      {"4", "2026-03-01T24:00:01Z", "1", 0, 0},      {"4", "2026-03-01T11:30:60Z", "1", 0, 0},
      {"4", "2026-03-01T12:00:00+15:00", "1", 0, 0}, {"4", "2026-03-01T12:00:00+01:60", "1", 0, 0},
      {"4", "2026-02-28T24:00:00Z", "2", 1, 2},      {"4", "2026-02-28T23:59:60-00:30", "2", 1, 2},
      {"4", "2026-03-01 12:00:00", "-4.5", 1, -4.5}};
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.lat << ' ' << c.time << ' ' << c.ele);
    const Track track =
        read(std::string("<gpx><trk><trkseg><trkpt lat='") + c.lat + "' lon='8'><ele>" + c.ele +
                 "</ele><time>" + c.time + "</time><speed>inf</speed></trkpt></trkseg></trk></gpx>",
             gpx);
    ASSERT_EQ(track.fixes.size(), c.fixes);
    EXPECT_EQ(track.skipped, 1 - c.fixes);
    if (c.fixes == 0) continue;
    EXPECT_EQ(track.fixes[0].altitude, c.altitude);
    EXPECT_EQ(track.fixes[0].speed, -1);
  }
}

std::string repeated(std::string_view piece, std::size_t times) {
  std::string out;
  while (times-- > 0) out += piece;
  return out;
}

TEST(TrackFormats, bytesThatAreNoTrackAreRefused) {
  const std::string endless(8 << 20, 'a');
  struct Case {
    TrackFormat format;
    std::string text, why;
  };
  const Case cases[] = {
      {gpx, "", "no element"},
      {gpx, "<kml/>", "\"kml\""},
      {tcx, "<gpx/>", "\"gpx\""},
      {gpx, "<gpx>\xFF</gpx>", "line 1"},
      {gpx, "<gpx>\n<trk></gpx>", "line 2: mismatched tag"},
      {gpx, "<gpx>" + repeated("<a>", 500'000), "too deeply"},
      {gpx, "<!DOCTYPE a [<!ENTITY b 'cc'>]><gpx>&b;</gpx>", "document type"},
      {gpx, "<gpx>&b;</gpx>", "undefined entity"},
      {gpx, "<gpx a='" + endless, "longer than 1 MiB"},
      {gpx, "<gpx><!--" + endless, "longer than 1 MiB"},
      {geoJSON, "", ""},
      {geoJSON, "[1", ""},
      {geoJSON, "[1]", "neither a feature"},
      {geoJSON, R"({"type":"Feature","geometry":{"type":"LineString"}})", "no coordinates"},
      {geoJSON, R"({"type":"Feature","geometry":{"type":"LineString","coordinates":[]}})",
       "no times"},
      {csv, "not,a,fix\n", "no row"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 80));
    const std::string failure = faultOf(c.text, c.format);
    EXPECT_TRUE(failure.starts_with("This is not a ") && failure.find(c.why) != failure.npos)
        << failure;
  }
}

/// Whether a fix is one of a track, its time and place unharmed.
bool isAmong(const CLLocation& fix, const Track& track) {
  return std::ranges::any_of(track.fixes, [&](const CLLocation& each) {
    return each.timestamp == fix.timestamp && each.coordinate.latitude == fix.coordinate.latitude &&
           each.coordinate.longitude == fix.coordinate.longitude;
  });
}

/// Changes every byte of a file in several ways, one at a time: each time all fixes but one must be
/// there, at their own times.
void expectNoByteCostsMoreThanItsPoint(const std::string& whole, TrackFormat format,
                                       std::span<const unsigned char> flips) {
  const Track all = read(whole, format);
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const unsigned char flip : flips) {
      std::string bytes = whole;
      bytes[at] = static_cast<char>(flip < 0x20 || flip > 0x7E ? bytes[at] ^ flip : flip);
      std::size_t unharmed = 0;
      try {
        for (const CLLocation& fix : read(bytes, format).fixes) unharmed += isAmong(fix, all);
      } catch (const TrackFormatError& error) {
        ADD_FAILURE() << error.what();
      }
      ASSERT_GE(unharmed + 1, all.fixes.size())
          << "format " << int(format) << ", byte " << at << " as " << int(flip) << ": "
          << whole.substr(at - std::min<std::size_t>(at, 20), 40);
    }
  }
}

// Catches a bad byte that costs more than the point it is in, or that puts places to other times.
TEST(TrackFormats, aBadByteCostsNoOtherPoint) {
  constexpr unsigned char kFlips[] = {'q', '"', '[', ']', ',', '{', 0x01}, kXMLFlips[] = {'q', '<'};
  for (const TrackFormat format : {gpx, tcx}) {
    expectNoByteCostsMoreThanItsPoint(writeTrack(richTrack(), format), format, kXMLFlips);
  }
  // Nor does it cost the laps and breaks behind it.
  for (const TrackFormat format : {gpx, tcx}) {
    std::string text = writeTrack(richTrack(), format);
    text[text.find("<Time>") == text.npos ? text.find("<time>") : text.find("<Time>")] = '!';
    const Track track = read(text, format);
    EXPECT_EQ(track.breaks.size(), 2u) << int(format);
    EXPECT_EQ(track.laps.size(), format == tcx ? 2u : 0u);
  }
  expectNoByteCostsMoreThanItsPoint(writeTrack(sampleTrack(), geoJSON), geoJSON, kFlips);
  // Lines of a collection, the second one with its properties first.
  const std::string line = writeTrack(sampleTrack(), geoJSON);
  const std::size_t geometry = line.find("\"geometry\""), properties = line.find(",\"properties\"");
  std::string turned = line.substr(0, geometry) +
                       line.substr(properties + 1, line.size() - properties - 2) + "," +
                       line.substr(geometry, properties - geometry) + "}";
  for (std::size_t at = 0; (at = turned.find("T12:", at)) != turned.npos; ++at)
    turned[at + 2] = '3';
  expectNoByteCostsMoreThanItsPoint(
      R"({"type":"FeatureCollection","features":[)" + line + "," + turned + "]}", geoJSON, kFlips);
}

// Catches fixes that get another fix's time, where a block of a file is lost or a time is missing.
TEST(TrackFormats, lostBlocksMisplaceNoFix) {
  std::string document = R"({"type":"FeatureCollection","features":[)";
  for (int line = 0, point = 0; line < 3; ++line) {
    std::string places, times;
    for (int i = 0; i < 40 + line % 2; ++i, ++point) {
      places += fmt::format("{}[7.{:04},46.{:04}]", i > 0 ? "," : "", point, point);
      times +=
          fmt::format("{}\"2024-02-11T09:{:02}:{:02}Z\"", i > 0 ? "," : "", point / 60, point % 60);
    }
    document +=
        fmt::format(R"({}{{"type":"Feature","geometry":{{"type":"LineString","coordinates":[{}]}},)"
                    R"("properties":{{"coordTimes":[{}]}}}})",
                    line > 0 ? "," : "", places, times);
  }
  document += "]}";
  const Track all = read(document, TrackFormat::geoJSON);
  ASSERT_EQ(all.fixes.size(), 121u);
  constexpr std::size_t kBlock = 512;
  for (std::size_t at = 0; at < document.size(); at += kBlock) {
    std::string bytes = document;
    for (std::size_t i = at; i < std::min(at + kBlock, bytes.size()); ++i) bytes[i] = '\0';
    try {
      for (const CLLocation& fix : read(bytes, TrackFormat::geoJSON).fixes) {
        ASSERT_TRUE(isAmong(fix, all)) << at;
      }
    } catch (const TrackFormatError&) {
      // Nothing is left of a line whose lists both have lost an end.
    }
  }
  document.erase(document.find("\"2024-02-11T09:00:20Z\","), 23);
  EXPECT_EQ(faultOf(document, TrackFormat::geoJSON), "");
  EXPECT_EQ(read(document, TrackFormat::geoJSON).fixes.size(), 81u);
  EXPECT_EQ(read(document, TrackFormat::geoJSON).skipped, 40u);
}

// Catches damage that goes unsaid, a document of another encoding that loses it behind a fault, and
// a cut that costs more than what stands behind it.
TEST(TrackFormats, damageIsTold) {
  struct Case {
    TrackFormat format;
    const char *replaced, *by, *fault;
    std::size_t fixes;
  };
  const Case cases[] = {
      {gpx, "Grün &amp;", "Gr\xFCn &", "line 3: not well-formed", 6},
      {gpx, "<gpx ", "<fpx ", "its root element is", 6},
      {gpx, "</ele>", "</elf>", "line 4: mismatched tag", 5},
      {gpx, "</trkseg></trk>\n</gpx>", "", "line 11: no element", 6},
      {gpx, "</trkpt>", " /trkpt>", "inside a point", 6},
      {tcx, "</Trackpoint>", " /Trackpoint>", "inside a point", 6},
      {tcx, "<Lap ", "<&", "line 4: ", 6},
      {geoJSON, "\"speeds\"", "speeds", "byte ", 6},
      {geoJSON, "Grün", "Gr\xFCn\n", "not valid JSON", 6},
      {geoJSON, "\"coordTimes\"", "\"coordinates\"", "no times", 6},
      {csv, ",4.5\n", ",4.5q\n", "", 5},
  };
  for (const Case& c : cases) {
    std::string text = writeTrack(sampleTrack(), c.format);
    const std::size_t at = text.find(c.replaced);
    ASSERT_NE(at, text.npos) << c.replaced;
    text.replace(at, std::string_view(c.replaced).size(), c.by);
    const Track track = read(text, c.format);
    EXPECT_EQ(track.fixes.size(), c.fixes) << c.by;
    EXPECT_TRUE(track.fault.empty() == (c.format == csv) &&
                track.fault.find(c.fault) != track.fault.npos)
        << c.by << ": " << track.fault;
  }
  std::string latin = writeTrack(sampleTrack(), gpx), little = "\xFF\xFE";
  latin.replace(latin.find("Grün"), 5, "Gr\xFCn &");
  for (std::size_t at = 0; (at = latin.find("<time>", at)) != latin.npos; at += 40) {
    latin.insert(at, "<name>Gr\xFCn</name>");
  }
  for (const char* encoding : {"ISO-8859-1", "windows-1252", "ISO-8859-q"}) {
    std::string text = latin;
    text.replace(text.find("UTF-8"), 5, encoding);
    EXPECT_EQ(read(text, gpx).fixes.size(), 6u) << encoding;
  }
  std::string wide = writeTrack(sampleTrack(), gpx);
  wide.replace(wide.find("UTF-8"), 5, "UTF-16");
  wide.replace(wide.find("<trkpt"), 1, "&");
  for (const char c : wide) (little += c) += '\0';
  EXPECT_EQ(read(little, gpx).fixes.size(), 5u);
  // What has no end is looked for in a few places only.
  std::string open = writeTrack(sampleTrack(), gpx);
  open.resize(open.find("</trkseg>"));
  for (int i = 0; i < 20'000; ++i) open += "<trkpt><?x ";
  EXPECT_EQ(read(open, gpx).fixes.size(), 6u);
  // Cut anywhere but before its last line break, a document gives what stands before.
  for (const TrackFormat format : {gpx, tcx, geoJSON}) {
    const std::string whole = writeTrack(sampleTrack(), format);
    const Track all = read(whole, format);
    std::size_t fixes = 0;
    for (std::size_t length = 0; length + 1 < whole.size(); ++length) {
      SCOPED_TRACE(::testing::Message() << int(format) << ' ' << length);
      try {
        const Track part = read(whole.substr(0, length), format);
        ASSERT_NE(part.fault, "");
        ASSERT_GE(part.fixes.size(), fixes);
        fixes = part.fixes.size();
        ASSERT_EQ(part.fixes.back().timestamp, all.fixes[fixes - 1].timestamp);
      } catch (const TrackFormatError&) {
        ASSERT_EQ(fixes, 0u);
      }
    }
    EXPECT_EQ(fixes, 6u);
  }
}

// Catches a CSV track whose end is missing taken for a whole one, and a number that is cut.
TEST(TrackFormats, aCutRowIsToldOf) {
  const std::string two = writeTrack(sampleTrack(), csv);
  const std::size_t second = two.find('\n', two.find('\n') + 1);
  const std::string rows = two.substr(0, second + 1), row =
                                                          "1772366402.000000,1.000000,2.000000,"
                                                          "3.000000,4.0,5.000000,6.0,7.0";
  struct Case {
    std::string end;
    std::size_t fixes;
    bool isCut;
  };
  const Case cases[] = {{"", 2, false},
                        {row, 3, false},
                        {row.substr(0, row.size() - 1), 2, true},
                        {row.substr(0, row.size() - 2), 2, true},
                        {row.substr(0, row.size() - 4), 2, true},
                        {row.substr(0, 20), 2, true},
                        {std::string(5'000, '\0'), 2, true},
                        {"1772366402,1,2,3,4,5,6,7", 3, false},
                        {"1772366402,1,2,3,4,5,6,7,more", 3, false}};
  for (const Case& c : cases) {
    for (const bool isStream : {false, true}) {
      const std::string text = rows + c.end;
      const auto stream = platform::InputStream::withView(bytesOf(text));
      const Track track = isStream ? readCSVTrack(*stream) : read(text, csv);
      EXPECT_EQ(track.fixes.size(), c.fixes) << c.end.substr(0, 80);
      EXPECT_EQ(track.fault, c.isCut ? "it is cut off" : "") << c.end.substr(0, 80);
    }
  }
}

/// Gives its text, and then fails.
class BrokenStream final : public platform::InputStream {
 public:
  explicit BrokenStream(std::string_view text) : left_(bytesOf(text)) {}
  platform::FileResult<void> open() override { return {}; }
  void close() noexcept override {}
  platform::FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    if (left_.empty()) return fail(platform::FileError(EIO, "read", "track"));
    const std::size_t count = std::min(buffer.size(), left_.size());
    std::ranges::copy(left_.first(count), buffer.begin());
    left_ = left_.subspan(count);
    return count;
  }

 private:
  platform::DataView left_;
};

TEST(TrackFormats, aStreamThatFailsGivesTheRowsBefore) {
  BrokenStream two("1,2,3,4,5,6,7,8\n2,2,3,4,5,6,7,8\n3,2"), none("1,2");
  const Track track = readCSVTrack(two);
  EXPECT_EQ(track.fixes.size(), 2u);
  EXPECT_EQ(track.fault, "reading stopped before its end");
  EXPECT_THROW((void)readCSVTrack(none), TrackFormatError);
}

TEST(TrackFormats, longTextIsCutBetweenCharacters) {
  const std::string name = "x" + repeated("ß", 4 << 20);
  const Track track = read("<gpx><trk><name>" + name + "</name></trk></gpx>", gpx);
  EXPECT_EQ(track.name, name.substr(0, platform::kMostXMLText - 1));
}

TEST(TrackFormats, fitRecordsAndLaps) {
  constexpr std::uint32_t kTime = static_cast<std::uint32_t>(kNoon - 631'065'600);
  for (const bool isBig : {false, true}) {
    SCOPED_TRACE(isBig);
    FITBytes file(isBig);
    // Time, latitude, longitude, altitude, speed, heart rate, cadence, power, temperature,
    // distance, an unknown field of three bytes.
    file.define(0, 20,
                {{253, 4, 0x86},
                 {0, 4, 0x85},
                 {1, 4, 0x85},
                 {2, 2, 0x84},
                 {6, 2, 0x84},
                 {3, 1, 0x02},
                 {4, 1, 0x02},
                 {7, 2, 0x84},
                 {13, 1, 0x01},
                 {5, 4, 0x86},
                 {99, 3, 0x0D}},
                /*developerBytes=*/2);
    const auto record = [&](std::uint32_t time, std::uint32_t latitude, std::uint16_t altitude,
                            std::uint16_t speed, std::uint8_t beats) {
      file.message(0).put(time, 4).put(latitude, 4).put(0xC0000000, 4).put(altitude, 2);
      file.put(speed, 2).put(beats, 1).put(beats, 1).put(speed, 2).put(beats, 1).put(latitude, 4);
      file.put(0x123456, 3).put(0xABCD, 2);
    };
    record(kTime, 0x20000000, 12'500, 3'500, 99);
    record(kTime + 30, 0x7FFFFFFF, 0xFFFF, 0xFFFF, 98);   // no place
    record(0xFFFFFFFF, 0xE0000000, 0xFFFF, 0xFFFF, 255);  // no time: that of the last one
    file.define(1, 21, {{0, 1, 0x00}, {1, 1, 0x00}});     // the timer stops
    file.message(1).put(0, 1).put(4, 1);
    file.define(1, 20, {{0, 4, 0x85}, {1, 4, 0x85}, {78, 4, 0x86}});
    file.compressed(1, (kTime + 33) & 0x1F).put(0, 4).put(0, 4).put(5'000, 4);
    // Start, elapsed and timer time, distance, calories, highest rate, rest, by distance.
    file.define(2, 19,
                {{253, 4, 0x86},
                 {2, 4, 0x86},
                 {7, 4, 0x86},
                 {8, 4, 0x86},
                 {9, 4, 0x86},
                 {11, 2, 0x84},
                 {16, 1, 0x02},
                 {23, 1, 0x00},
                 {24, 1, 0x00}});
    file.message(2).put(kTime + 40, 4).put(kTime + 5, 4).put(40'000, 4).put(35'500, 4);
    file.put(123'456, 4).put(33, 2).put(150, 1).put(1, 1).put(2, 1);
    file.define(2, 18, {{5, 1, 0x00}});  // the session: its sport
    file.message(2).put(13, 1);
    file.define(3, 0xFF00, {});  // a message of no bytes
    file.message(3);
    const std::string whole = file.bytes();

    const Track track = read(whole, fit);
    ASSERT_EQ(track.fixes.size(), 3u);
    const CLLocation& fix = track.fixes[0];
    EXPECT_EQ(fix.coordinate.latitude, 45);
    EXPECT_EQ(fix.coordinate.longitude, -90);
    EXPECT_EQ(fix.altitude, 2000);
    EXPECT_EQ(fix.speed, 3.5);
    EXPECT_EQ(fix.timestamp, dateSince1970(kNoon));
    EXPECT_EQ(track.fixes[1].coordinate.latitude, -45);
    EXPECT_EQ(track.fixes[1].timestamp, dateSince1970(kNoon + 30));
    EXPECT_EQ(track.fixes[2].timestamp, dateSince1970(kNoon + 33));
    EXPECT_FALSE(hasAltitude(track.fixes[1]));
    EXPECT_EQ(track.fixes[2].altitude, 500);
    EXPECT_EQ(track.fixes[2].speed, -1);
    ASSERT_EQ(track.heartRates.size(), 2u);
    EXPECT_EQ(track.heartRates[1].beatsPerMinute, 98);
    EXPECT_EQ(track.laps, std::vector{Lap({.begin = dateSince1970(kNoon + 5),
                                           .seconds = 35.5,
                                           .distanceMeters = 1234.56,
                                           .kilocalories = 33,
                                           .maxHeartRate = 150,
                                           .isRest = true,
                                           .trigger = LapTrigger::distance})});
    EXPECT_EQ(track.sport, "alpine_skiing");
    EXPECT_EQ(track.breaks, std::vector<std::size_t>{2});
    ASSERT_EQ(track.cadences.size(), 2u);
    EXPECT_EQ(track.cadences[0].value, 99);
    EXPECT_EQ(track.powers[0].value, 3'500);
    EXPECT_EQ(track.temperatures[1].value, 98);
    EXPECT_NEAR(track.distances[0].value, 0x20000000 / 100.0, 1e-6);
    EXPECT_EQ(read(convertTrack(bytesOf(whole), fit, gpx), gpx).fixes.size(), 3u);
    EXPECT_EQ(read(whole + whole, fit).fixes.size(), 6u);  // one behind the other

    // Damaged, it gives the records that can be read, and says so.
    for (std::size_t length = 0; length < whole.size(); ++length) {
      ASSERT_NE(faultOf(whole.substr(0, length), fit), "") << length;
    }
    for (std::size_t at = 14; at < whole.size(); ++at) {
      std::string wrong = whole;
      wrong[at] = static_cast<char>(wrong[at] ^ 0x10);
      ASSERT_NE(faultOf(wrong, fit).find("checksum"), std::string::npos) << at;
    }
    std::string flipped = whole, unfinished = whole;
    flipped[flipped.size() - 1] = static_cast<char>(~flipped.back());
    for (const std::size_t at : {4U, 5U, 6U, 7U}) unfinished[at] = 0;
    const struct {
      std::string bytes, fault;
      std::size_t fixes;
    } damaged[] = {{whole.substr(0, whole.size() - 20), "it is cut off", 3},
                   {unfinished, "it is cut off", 3},
                   {flipped, "its checksum is wrong", 3},
                   {flipped + whole, "its checksum is wrong", 6},
                   {whole + std::string(16, '\0'), "what stands behind its end", 3}};
    for (const auto& [bytes, fault, fixes] : damaged) {
      const Track part = read(bytes, fit);
      EXPECT_EQ(part.fixes.size(), fixes) << fault;
      EXPECT_TRUE(part.fault.starts_with(fault)) << part.fault;
    }
  }
  // A long file: a bad byte in it costs no other record, whatever it is of, a lost disk block only
  // those in it.
  FITBytes file(false);
  file.define(0, 0, {{0, 1, 0x00}});
  file.message(0).put(4, 1);
  file.define(1, 20, {{253, 4, 0x86}, {0, 4, 0x85}, {1, 4, 0x85}, {2, 2, 0x84}});
  for (std::uint32_t i = 0; i < 40; ++i) {
    if (i == 20) {
      file.define(2, 19, {{253, 4, 0x86}, {2, 4, 0x86}});
      file.message(2).put(kTime + i, 4).put(kTime, 4);
    }
    file.message(1).put(kTime + i, 4).put(0x20000000 + i, 4).put(0xC0000000, 4).put(12'500, 2);
  }
  constexpr unsigned char kFlips[] = {'q', 0x01, 0x04, 0x10, 0x80, 0xFF};
  std::string whole = file.bytes();
  expectNoByteCostsMoreThanItsPoint(whole, fit, kFlips);
  whole.replace(whole.size() - 200, 75, 75, '\0');
  const Track rest = read(whole, fit);
  EXPECT_GE(rest.fixes.size(), 34U);
  for (const CLLocation& fix : rest.fixes) EXPECT_GE(fix.timestamp, dateSince1970(kNoon));

  FITBytes undefined(false), cut(false);
  undefined.message(5);
  EXPECT_NE(faultOf(undefined.bytes(), fit).find("no definition"), std::string::npos);
  cut.define(0, 20, {{253, 4, 0x86}});
  cut.message(0).put(1, 2);
  EXPECT_NE(faultOf(cut.bytes(), fit).find("cut off"), std::string::npos);
}

}  // namespace
}  // namespace ombrix::testing
