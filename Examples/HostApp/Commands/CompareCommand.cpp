#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Commands/Preferences.hpp"
#include "Examples/HostApp/Days/RecordedDay.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Terminal/ShownName.hpp"
#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

using Format = FigureTexts::Format;

/// A line of the comparison; a day may lack the figure.
struct Line {
  const char* label;
  Format format;
  std::optional<double> (*figure)(const DayTotals&);
};

/// A figure of height; empty for a day without altitudes.
std::optional<double> withAltitudes(const DayTotals& day, double figure) {
  return day.minAltitude ? std::optional(figure) : std::nullopt;
}

constexpr Line kLines[] = {
    {"Vertical down", Format::vertical,
     [](const auto& day) { return withAltitudes(day, day.all.descentMeters); }},
    {"Vertical up", Format::vertical,
     [](const auto& day) { return withAltitudes(day, day.all.ascentMeters); }},
    {"Distance", Format::distance,
     [](const auto& day) { return std::optional(day.all.distanceMeters); }},
    {"On runs", Format::distance,
     [](const auto& day) { return std::optional(day.run.distanceMeters); }},
    {"Top speed", Format::speed,
     [](const auto& day) { return std::optional(day.all.maxSpeedMetersPerSecond); }},
    {"Average speed", Format::speed,
     [](const auto& day) { return std::optional(day.all.averageSpeedMetersPerSecond); }},
    {"Highest point", Format::altitude, [](const auto& day) { return day.maxAltitude; }},
    {"Lowest point", Format::altitude, [](const auto& day) { return day.minAltitude; }},
    {"Average heart rate", Format::heartRate,
     [](const auto& day) { return day.all.averageHeartRate; }},
    {"Highest heart rate", Format::heartRate, [](const auto& day) { return day.all.maxHeartRate; }},
};

std::string signedCount(std::size_t from, std::size_t to) {
  if (to == from) return "0";
  return (to > from ? "+" : "-") + countText(to > from ? to - from : from - to);
}

std::string comparison(const RecordedDay& first, const RecordedDay& second) {
  FigureTexts figures(forStandardOutput);
  const auto name = [](const RecordedDay& day) {
    return shownName(std::filesystem::path(day.title).filename().string());
  };
  const DayTotals &a = first.day.totals, &b = second.day.totals;
  TextTable table({"", name(first), name(second), text("Difference")});
  const auto day = [&](const DayTotals& totals) {
    return totals.begin ? figures.date(FigureTexts::DateStyle::shortDay, *totals.begin) : "–";
  };
  table.add({text("Day"), day(a), day(b), ""});
  table.add(
      {text("Runs"), figures.count(a.runs), figures.count(b.runs), signedCount(a.runs, b.runs)});
  table.add({text("Lifts"), figures.count(a.lifts), figures.count(b.lifts),
             signedCount(a.lifts, b.lifts)});
  table.add({text("Moving time"), figures.duration(a.all.movingSeconds),
             figures.duration(b.all.movingSeconds), ""});
  for (const Line& line : kLines) {
    const auto one = line.figure(a), other = line.figure(b);
    if (!one && !other) continue;
    const auto shown = [&](const auto& number) {
      return number ? figures.value(line.format, *number) : "–";
    };
    table.add({text(line.label), shown(one), shown(other),
               one && other ? figures.difference(line.format, *other - *one) : ""});
  }
  return table.lines(columnsForTables());
}

}  // namespace

void addCompareCommand(CLI::App& app) {
  struct Options {
    std::array<std::string, 2> tracks;
    bool json = false;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("compare", "Sets two recorded days side by side");
  command->add_option("A", options->tracks[0], "A recorded track, as for ombrix day")->required();
  command->add_option("B", options->tracks[1], "The other one")->required();
  addPreferenceOptions(*command);
  command->add_flag("--json", options->json, "Print one JSON object a day, in SI units");
  command->callback([options] {
    const auto day = [](const std::string& path) {
      return measured(readTrackWithFixes(path), path, std::nullopt);
    };
    const RecordedDay first = day(options->tracks[0]), second = day(options->tracks[1]);
    if (options->json) {
      fmt::print("{}\n{}\n", lineOf(toJSON(first)), lineOf(toJSON(second)));
    } else {
      fmt::print("{}", comparison(first, second));
    }
    for (const RecordedDay* each : {&first, &second}) failIfIncomplete(each->title, each->fault);
  });
}

}  // namespace ombrix::hostapp
