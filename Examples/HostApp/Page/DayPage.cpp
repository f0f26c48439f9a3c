#include "Examples/HostApp/Page/DayPage.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <vector>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Page/Markup.hpp"
#include "Examples/HostApp/Page/PageParts.hpp"
#include "Examples/HostApp/Page/Profiles.hpp"
#include "Examples/HostApp/Page/TrackMap.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "Examples/HostApp/Texts/Text.hpp"
#include "OmbrixPlatform/Text/DateFormatter.hpp"
#include "OmbrixPlatform/Text/Locale.hpp"

namespace ombrix::hostapp {
namespace {

using Format = FigureTexts::Format;
using DateStyle = FigureTexts::DateStyle;
using platform::JSON;

constexpr double kMostSteps = 1200;          // Steps of the cursor: about one for each pixel.
constexpr std::size_t kMostBytes = 400'000;  // lines are made coarser until a page fits
constexpr double kCoarsest = 8;

std::string label(const char* english) { return escaped(text(english)); }

/// A text with its own direction, isolated from that of the page.
std::string isolated(const std::string& html) { return "<bdi>" + html + "</bdi>"; }

std::string figure(const char* name, const std::string& value) {
  return fmt::format("<div><dt>{}</dt><dd>{}</dd></div>", label(name), value);
}

/// A page in the making, with the data that its parts share.
class DayPageWriter {
 public:
  DayPageWriter(const RecordedDay& recorded, double coarseness)
      : recorded_(recorded),
        day_(recorded.day),
        map_(day_, figures_, coarseness),
        profiles_(day_, figures_, coarseness) {
    const auto most = static_cast<std::size_t>(kMostSteps / coarseness);
    const std::size_t stride = std::max<std::size_t>(1, day_.samples.size() / most);
    for (std::size_t i = 0; i < day_.samples.size(); i += stride) steps_.push_back(i);
    if (steps_.back() + 1 != day_.samples.size()) steps_.push_back(day_.samples.size() - 1);
  }

  std::string page();

 private:
  std::string date();
  std::string times();
  std::string header();
  std::string figures();
  std::string map();
  std::string profiles();
  std::string rides();
  std::string ride(std::size_t index);
  std::string footer();
  std::string card();
  std::string data();
  JSON column(const std::function<std::string(const DaySample&)>& shown);

  const RecordedDay& recorded_;
  const Day& day_;
  FigureTexts figures_{
      [](const platform::NSAttributedString& text) { return isolated(markedUp(text)); }};
  TrackMap map_;
  Profiles profiles_;
  std::vector<std::size_t> steps_;  // The samples that the cursor stops at.
};

std::string DayPageWriter::date() { return figures_.date(DateStyle::day, *day_.totals.begin); }

std::string DayPageWriter::times() {
  return fmt::format("{} – {}", figures_.date(DateStyle::clock, *day_.totals.begin),
                     figures_.date(DateStyle::clock, *day_.totals.end));
}

std::string DayPageWriter::header() {
  return fmt::format(
      "<header><div><h1>{}</h1><p>{} · {}</p></div><div class=\"buttons\">"
      "<button type=\"button\" id=\"theme\">{}</button>"
      "<button type=\"button\" id=\"share\">{}</button></div></header>",
      isolated(escaped(date())), isolated(escaped(times())),
      figures_.duration(recorded_.spanSeconds()), label("Dark"), label("Save as picture"));
}

std::string DayPageWriter::figures() {
  const DayTotals& totals = day_.totals;
  const auto height = [&](double meters) {
    return totals.maxAltitude ? figures_.value(Format::vertical, meters) : "–";
  };
  const std::string down = figure("Vertical down", height(totals.all.descentMeters)),
                    up = figure("Vertical up", height(totals.all.ascentMeters)),
                    distance = figure("Distance",
                                      figures_.value(Format::distance, totals.all.distanceMeters)),
                    top = figure("Top speed",
                                 figures_.value(Format::speed, totals.all.maxSpeedMetersPerSecond)),
                    average = figure(
                        "Average speed",
                        figures_.value(Format::speed, totals.all.averageSpeedMetersPerSecond)),
                    moving = figure("Moving time", figures_.duration(totals.all.movingSeconds)),
                    runs = figure("Runs", figures_.count(totals.runs)),
                    lifts = figure("Lifts", figures_.count(totals.lifts)),
                    onRuns = figure("On runs",
                                    figures_.value(Format::distance, totals.run.distanceMeters));
  // A day without runs is one of other sports.
  const bool hasRuns = totals.runs > 0;
  const std::string first = hasRuns ? down + runs + top + onRuns : distance + up + top + moving;
  std::string others =
      hasRuns ? lifts + up + distance + average + moving : runs + lifts + down + average;
  if (totals.maxAltitude) {
    others += figure("Highest point", figures_.value(Format::altitude, *totals.maxAltitude)) +
              figure("Lowest point", figures_.value(Format::altitude, *totals.minAltitude));
  }
  if (totals.all.averageHeartRate) {
    others +=
        figure("Average heart rate",
               figures_.value(Format::heartRate, *totals.all.averageHeartRate)) +
        figure("Highest heart rate", figures_.value(Format::heartRate, *totals.all.maxHeartRate));
  }
  if (recorded_.kilocalories) {
    others += figure("Energy", figures_.value(Format::energy, *recorded_.kilocalories));
  }
  return fmt::format("<dl class=\"figures first\">{}</dl><dl class=\"figures\">{}</dl>", first,
                     others);
}

std::string DayPageWriter::map() {
  std::string legend = fmt::format(
      "<span class=\"legend\"><span>{}</span><span class=\"ramp\"></span><span>{}</span></span>",
      isolated(escaped(figures_.plain(Format::speed, 0))),
      isolated(escaped(figures_.plain(Format::speed, map_.fastest()))));
  if (day_.totals.lifts > 0) {
    legend +=
        fmt::format("<span class=\"legend\"><span class=\"dash\"></span>{}</span>", label("Lift"));
  }
  // The part that a phone shows: less margin beside a tall track, and larger marks.
  const double narrow = map_.narrowWidth(), aside = (map_.width() - narrow) / 2;
  return fmt::format(
      "<section aria-labelledby=\"map\"><div class=\"bar\"><h2 id=\"map\">{}</h2></div><figure>"
      "<svg class=\"map\" viewBox=\"0 0 {} {}\" data-narrow=\"{} 0 {} {}\" "
      "style=\"--narrow:{:.3f};--aside:{}px\" role=\"img\" aria-label=\"{}\">{}{}"
      "<circle class=\"here\" r=\"8\"/></svg><figcaption>{}</figcaption></figure></section>",
      label("Map"), coordinate(map_.width()), coordinate(map_.height()), coordinate(aside),
      coordinate(narrow), coordinate(map_.height()), narrow / map_.width(), coordinate(aside),
      label("Map of the day: runs coloured by speed, lifts dotted"), map_.elements(),
      map_.scaleBar(), legend);
}

std::string DayPageWriter::profiles() {
  const auto cell = [](const char* name, const char* column) {
    return fmt::format("<div><dt>{}</dt><dd><bdi data-column=\"{}\"></bdi></dd></div>", label(name),
                       column);
  };
  std::string readout = cell("Time", "time") + cell("Distance", "distance");
  if (day_.totals.maxAltitude) readout += cell("Altitude", "altitude");
  readout += cell("Speed", "speed");
  if (profiles_.hasHeartRates()) readout += cell("Heart rate", "heart");
  return fmt::format(
      "<section aria-labelledby=\"profiles\"><div class=\"bar\"><h2 id=\"profiles\">{0}</h2>"
      "<div class=\"buttons\"><button type=\"button\" data-show-axis=\"time\" "
      "aria-pressed=\"true\">{1}</button><button type=\"button\" data-show-axis=\"distance\" "
      "aria-pressed=\"false\">{2}</button></div></div><dl class=\"readout\">{3}</dl>"
      "<div class=\"profile\" role=\"slider\" tabindex=\"0\" aria-label=\"{4}\" "
      "aria-valuemin=\"0\" aria-valuemax=\"{5}\" aria-valuenow=\"0\">"
      "<div class=\"axis time\">{6}</div><div class=\"axis distance\">{7}</div>"
      "<div class=\"cursor\"></div></div></section>",
      label("Profiles"), label("Over time"), label("Over distance"), readout,
      label("A moment of the day"), steps_.size() - 1, profiles_.html(ProfileAxis::time),
      profiles_.html(ProfileAxis::distance));
}

std::string DayPageWriter::ride(std::size_t index) {
  const DaySegment& segment = day_.segments[index];
  const SegmentFigures& figures = segment.figures;
  const bool isRun = segment.kind == SegmentKind::run;
  const auto cell = [](double value, const std::string& html) {
    return fmt::format("<td data-value=\"{}\">{}</td>", value, html);
  };
  std::string cells =
      cell(platform::timeIntervalSince1970(segment.begin),
           isolated(escaped(figures_.date(DateStyle::clock, segment.begin)))) +
      cell(figures.seconds, figures_.duration(figures.seconds)) +
      cell(figures.distanceMeters, figures_.value(Format::distance, figures.distanceMeters)) +
      cell(std::abs(segment.vertical()),
           figures_.value(Format::vertical, std::abs(segment.vertical()))) +
      cell(std::abs(segment.slopeDegrees),
           figures_.value(Format::angle, std::abs(segment.slopeDegrees))) +
      cell(figures.averageSpeedMetersPerSecond,
           figures_.value(Format::speed, figures.averageSpeedMetersPerSecond)) +
      cell(figures.maxSpeedMetersPerSecond,
           figures_.value(Format::speed, figures.maxSpeedMetersPerSecond));
  if (profiles_.hasHeartRates()) {
    const double rate = figures.averageHeartRate.value_or(0);
    cells += cell(rate, rate > 0 ? figures_.value(Format::heartRate, rate) : "–");
  }
  return fmt::format(
      "<tr data-segment=\"{0}\"><th scope=\"row\" data-value=\"{0}\"><span class=\"mark {1}\">{2}"
      "</span>{3}</th>{4}</tr>",
      index, platform::rawValue(segment.kind), segment.number, label(isRun ? "Run" : "Lift"),
      cells);
}

std::string DayPageWriter::rides() {
  std::vector<const char*> headings = {"Ride",     "Start", "Time",          "Distance",
                                       "Vertical", "Slope", "Average speed", "Top speed"};
  if (profiles_.hasHeartRates()) headings.push_back("Heart rate");
  std::string head, rows;
  for (const char* heading : headings) {
    head +=
        fmt::format("<th scope=\"col\"><button type=\"button\">{}</button></th>", label(heading));
  }
  for (std::size_t i = 0; i < day_.segments.size(); ++i) {
    const SegmentKind kind = day_.segments[i].kind;
    if (kind == SegmentKind::run || kind == SegmentKind::lift) rows += ride(i);
  }
  if (rows.empty()) return {};
  return fmt::format(
      "<section><div class=\"bar\"><h2 id=\"rides\">{0}</h2></div>"
      "<div class=\"wide\" role=\"region\" tabindex=\"0\" aria-labelledby=\"rides\"><table><thead>"
      "<tr>{1}</tr></thead><tbody>{2}</tbody></table></div></section>",
      label("Runs and lifts"), head, rows);
}

std::string DayPageWriter::footer() {
  const FixCounts& counts = day_.counts;
  std::string fixes = fmt::format("{}: {} {}, {} {}", label("Fixes"), countText(counts.read),
                                  label("read"), countText(counts.used), label("used"));
  if (!recorded_.fault.empty()) fixes += fmt::format(", {}", label("incomplete"));
  return fmt::format("<footer><p>{}</p><p>{}</p></footer>",
                     escaped(std::filesystem::path(recorded_.title).filename().string()), fixes);
}

/// The picture for sharing, 1200 by 630, with colours of its own.
std::string DayPageWriter::card() {
  const DayTotals& totals = day_.totals;
  constexpr double kSide = 520;
  const double scale = std::min(kSide / map_.width(), kSide / map_.height());
  std::string values;
  double y = 250;
  const auto value = [&](const char* name, const std::string& shown) {
    values += fmt::format(
        "<text x=\"72\" y=\"{}\" font-size=\"44\" font-weight=\"600\" fill=\"#e9eff3\">{}</text>"
        "<text x=\"72\" y=\"{}\" font-size=\"22\" fill=\"#a3b3be\">{}</text>",
        y, escaped(shown), y + 32, label(name));
    y += 104;
  };
  const bool hasRuns = totals.runs > 0;
  if (totals.maxAltitude) {
    value(hasRuns ? "Vertical down" : "Vertical up",
          figures_.plain(Format::vertical,
                         hasRuns ? totals.all.descentMeters : totals.all.ascentMeters));
  }
  value("Top speed", figures_.plain(Format::speed, totals.all.maxSpeedMetersPerSecond));
  value(hasRuns ? "On runs" : "Distance",
        figures_.plain(Format::distance,
                       hasRuns ? totals.run.distanceMeters : totals.all.distanceMeters));
  if (hasRuns) value("Runs", countText(totals.runs));
  return fmt::format(
      "<template id=\"card\"><svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1200 630\" "
      "width=\"1200\" height=\"630\" font-family=\"system-ui, sans-serif\">"
      "<rect width=\"1200\" height=\"630\" fill=\"#0e151b\"/>"
      "<text x=\"72\" y=\"112\" font-size=\"40\" font-weight=\"650\" fill=\"#e9eff3\">{}</text>"
      "<text x=\"72\" y=\"152\" font-size=\"24\" fill=\"#a3b3be\">{}</text>{}"
      "<g transform=\"translate({} {}) scale({:.3f})\">{}</g></svg></template>",
      escaped(date()), escaped(times()), values, coordinate(1140 - map_.width() * scale),
      coordinate(600 - map_.height() * scale), scale, map_.outline("#67c3e6", "#d8b24e"));
}

/// All steps' texts of one figure, each text once.
JSON DayPageWriter::column(const std::function<std::string(const DaySample&)>& shown) {
  std::map<std::string, std::size_t> places;
  JSON::Array texts, at;
  for (const std::size_t step : steps_) {
    const std::string text = shown(day_.samples[step]);
    const auto [place, isNew] = places.try_emplace(text, places.size());
    if (isNew) texts.emplace_back(text);
    at.emplace_back(place->second);
  }
  return JSON::Dictionary{{"texts", std::move(texts)}, {"at", std::move(at)}};
}

std::string DayPageWriter::data() {
  JSON::Array places, times, distances;
  for (const std::size_t step : steps_) {
    const Point& place = map_.place(step);
    places.emplace_back(std::llround(place.x * 10));
    places.emplace_back(std::llround(place.y * 10));
    times.emplace_back(std::llround(profiles_.position(ProfileAxis::time, step) * 1e4));
    distances.emplace_back(std::llround(profiles_.position(ProfileAxis::distance, step) * 1e4));
  }
  const auto values = [&](Format format, double DaySample::* figure) {
    return column(
        [=, this](const DaySample& each) { return figures_.plain(format, each.*figure); });
  };
  JSON::Dictionary data{
      {"fileName", platform::DateFormatter("y-MM-dd", platform::Locale("en_US_POSIX"))
                           .stringFrom(*day_.totals.begin) +
                       ".png"},
      {"position",
       JSON::Dictionary{{"time", std::move(times)}, {"distance", std::move(distances)}}},
      {"place", std::move(places)},
      {"time", column([this](const DaySample& each) {
         return figures_.date(DateStyle::clockToSecond, each.time);
       })},
      {"distance", column([this](const DaySample& each) {
         const auto sample = static_cast<std::size_t>(&each - day_.samples.data());
         return figures_.plain(Format::distance, profiles_.way(sample));
       })},
      {"altitude", values(Format::altitude, &DaySample::altitude)},
      {"speed", values(Format::speed, &DaySample::speed)}};
  if (profiles_.hasHeartRates()) {
    data.set("heart", column([this](const DaySample& each) {
               return each.heartRate > 0 ? figures_.plain(Format::heartRate, each.heartRate) : "";
             }));
  }
  std::string json = lineOf(data);
  // Inside a script element no text may look like its end.
  for (std::size_t at = 0; (at = json.find('<', at)) != json.npos;) json.replace(at, 1, "\\u003c");
  return json;
}

std::string DayPageWriter::page() {
  const std::string language = textLanguage();
  std::string page = fmt::format(
      "<!doctype html>\n<html lang=\"{}\" dir=\"ltr\" data-axis=\"time\"><head><meta "
      "charset=\"utf-8\"><meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
      "'unsafe-inline'; script-src 'unsafe-inline'; img-src data: blob:\"><title>{}</title>"
      "<style>{}</style></head>\n<body>",
      language, escaped(date()), kPageStyle);
  page += header() + "<main>" + figures() + map() + profiles() + rides() + "</main>" + footer() +
          card();
  page += fmt::format("<script type=\"application/json\" id=\"data\">{}</script>", data());
  page += fmt::format("<script>{}</script></body></html>\n", kPageScript);
  return page;
}

}  // namespace

std::optional<std::string> dayPage(const RecordedDay& recorded) {
  if (recorded.day.samples.empty()) return std::nullopt;
  std::string page = DayPageWriter(recorded, 1).page();
  for (double coarseness = 2; page.size() > kMostBytes && coarseness <= kCoarsest;
       coarseness *= 2) {
    page = DayPageWriter(recorded, coarseness).page();
  }
  return page;
}

void writeDayPage(const std::string& path, const RecordedDay& recorded) {
  const auto page = dayPage(recorded);
  if (!page) throw CommandFailure("the track has no usable fix, so there is nothing to show");
  // The stream keeps a failed write's error until it is closed.
  writeFile(path, [&](const auto& stream) {
    static_cast<void>(stream->write(platform::bytesOf(*page)));
  });
}

}  // namespace ombrix::hostapp
