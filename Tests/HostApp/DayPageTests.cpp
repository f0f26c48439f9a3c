#include "Examples/HostApp/Page/DayPage.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Examples/HostApp/Days/SampleDay.hpp"
#include "Examples/HostApp/Page/Drawing.hpp"
#include "Examples/HostApp/Page/Markup.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"

namespace ombrix::hostapp {
namespace {

using Format = FigureTexts::Format;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

Track sampleTrack(int runs) {
  Track track;
  track.fixes = makeSampleDay({.runs = runs});
  return track;
}

// Catches pages of long days that grow beyond what is promised.
TEST(DayPageTests, LongDaysFitToo) {
  Track track = sampleTrack(30);
  track.heartRates = makeSampleHeartRates(track.fixes);
  EXPECT_LE(dayPage(measured(std::move(track), "day.csv", {}))->size(), 400'000);
}

// Catches figures of the page that are not those of the report, a page that asks the network, or
// one that a file's name can break out of.
TEST(DayPageTests, ShowsTheDaysFiguresAndNeedsNothingElse) {
  Track track = sampleTrack(12);
  track.heartRates = makeSampleHeartRates(track.fixes);
  const RecordedDay day = measured(std::move(track), "</script><b>\"day\".csv", 70);
  const std::string page = dayPage(day).value();
  FigureTexts figures(markedUp);
  const DayTotals& totals = day.day.totals;
  EXPECT_THAT(page,
              AllOf(HasSubstr(figures.value(Format::vertical, totals.all.descentMeters)),
                    HasSubstr(figures.value(Format::speed, totals.all.maxSpeedMetersPerSecond)),
                    HasSubstr(figures.value(Format::heartRate, *totals.all.maxHeartRate)),
                    HasSubstr(">script&gt;&lt;b&gt;&quot;day&quot;.csv")));
  EXPECT_THAT(page, AllOf(Not(HasSubstr("</script><b>")), Not(HasSubstr("src=\"")),
                          Not(HasSubstr("href=\"")), Not(HasSubstr("@import")),
                          Not(HasSubstr("nan")), Not(HasSubstr("inf,"))));
  EXPECT_LT(page.size(), 400'000u);
  // At the day's end the cursor tells the day's distance.
  const std::size_t texts = page.find(R"("distance":{"texts":[)");
  const std::string all = page.substr(texts, page.find(']', texts) - texts);
  EXPECT_TRUE(all.ends_with('"' + figures.plain(Format::distance, totals.all.distanceMeters) + '"'))
      << all.substr(all.size() - 40);
  // No number on the map hides another one: all lifts and runs share one slope here.
  constexpr std::string_view kAt = "transform=\"translate(";
  std::vector<Point> places;
  for (std::size_t at = 0; (at = page.find(kAt, page.find("class=\"badge", at))) != page.npos;) {
    at += kAt.size();
    Point& place = places.emplace_back();
    ASSERT_EQ(std::sscanf(page.c_str() + at, "%lf %lf", &place.x, &place.y), 2);
    for (const Point& other : std::span(places).first(places.size() - 1)) {
      EXPECT_GT(std::hypot(place.x - other.x, place.y - other.y), 20) << places.size();
    }
  }
  EXPECT_EQ(places.size(), 24u);
}

// Catches days at the edges of what can be drawn.
TEST(DayPageTests, DrawsWhatLittleThereIs) {
  EXPECT_EQ(dayPage(measured({}, "empty", std::nullopt)), std::nullopt);
  const auto at = [](double seconds, double longitude, double altitude) {
    CLLocation fix;
    fix.coordinate = {46.5, longitude};
    fix.altitude = altitude;
    fix.speed = 0;
    fix.timestamp = platform::dateSince1970(1'700'000'000 + seconds);
    return fix;
  };
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<std::vector<CLLocation>> days = {
      {at(0, 7, 1500)},
      {at(0, 7, 1500), at(1, 7, 1500), at(2, 7, kNan), at(3, kNan, 1500)},
      {at(0, 179.9999, 0), at(1, -179.9999, 0), at(2, -179.9998, 0)},
      {at(0, 7, 1500), at(86'400, 7, 1500), at(864'000, 7, -400)},
  };
  for (const auto& fixes : days) {
    Track track;
    track.fixes = fixes;
    const auto page = dayPage(measured(std::move(track), "day", std::nullopt));
    ASSERT_TRUE(page) << fixes.size();
    EXPECT_THAT(*page, AllOf(Not(HasSubstr("nan")), Not(HasSubstr("inf "))));
  }
  // A lift's band ends where recording stopped, which it does for most of this day.
  Track lift;
  for (int i = 0; i <= 200; ++i) lift.fixes.push_back(at(i, 7 + i * 5e-5, 1500 + i));
  for (CLLocation& fix : lift.fixes) fix.speed = 3.8;
  lift.fixes.push_back(at(2'000, 7.01, 1700));
  const std::string page = dayPage(measured(std::move(lift), "day", std::nullopt)).value();
  const std::size_t band = page.find("class=\"band lift\"");
  ASSERT_NE(band, page.npos);
  EXPECT_LT(std::stod(page.substr(page.find("width=\"", band) + 7)), 110);
}

// Catches a line that loses its ends or strays from what it simplifies.
TEST(DrawingTests, SimplifiesWithinItsTolerance) {
  std::vector<Point> curve;
  for (int i = 0; i <= 1000; ++i) curve.push_back({i * 1.0, 50 * std::sin(i / 40.0)});
  const auto kept = simplified(curve, 0.5);
  EXPECT_LT(kept.size(), 200u);
  EXPECT_EQ(kept.front().x, 0);
  EXPECT_EQ(kept.back().x, 1000);
  for (std::size_t i = 0; i + 1 < kept.size(); ++i) {
    const Point &a = kept[i], &b = kept[i + 1];
    for (const Point& point : curve) {
      if (point.x < a.x || point.x > b.x) continue;
      EXPECT_NEAR(point.y, std::lerp(a.y, b.y, (point.x - a.x) / (b.x - a.x)), 1.5);
    }
  }
  const Point path[] = {{0, 0.04}, {1.26, -2}, {1.26, -2}};
  EXPECT_EQ(pathData(path), "M0 0l1.3 -2");
  EXPECT_EQ(pathData(std::span(path).first(1)), "M0 0l0 0");
}

}  // namespace
}  // namespace ombrix::hostapp
