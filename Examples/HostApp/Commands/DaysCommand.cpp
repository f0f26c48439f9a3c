#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Commands/Preferences.hpp"
#include "Examples/HostApp/Days/Seasons.hpp"
#include "Examples/HostApp/Terminal/DayChart.hpp"
#include "Examples/HostApp/Terminal/ShownName.hpp"
#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

using Format = FigureTexts::Format;
using platform::JSON;

constexpr std::size_t kLeastBar = 6, kMostBar = 24;

/// One season as a table: a line for each day, and the totals.
/// @param room The columns that it may take.
std::string table(const Season& season, FigureTexts& figures, std::size_t barColumns,
                  std::size_t room = std::string::npos) {
  TextTable table({season.name, text("Vertical down"), "", text("Distance"), text("Runs"),
                   text("Top speed"), ""});
  constexpr std::size_t kBar = 2, kTitle = 6;
  table.setLeft(kBar);
  table.setLeft(kTitle);
  double most = 0;
  for (const RememberedDay& each : season.days)
    most = std::max(most, each.descentMeters.value_or(0));
  for (const RememberedDay& each : season.days) {
    const auto speed = each.maxSpeedMetersPerSecond;
    table.add(
        {figures.date(FigureTexts::DateStyle::shortDay, platform::dateSince1970(each.startSeconds)),
         each.descentMeters ? figures.value(Format::vertical, *each.descentMeters) : "–",
         bar(most > 0 ? each.descentMeters.value_or(0) / most : 0, barColumns),
         figures.value(Format::distance, each.distanceMeters),
         each.runs ? figures.count(*each.runs) : "–",
         speed ? figures.value(Format::speed, *speed) : "–",
         shownName(std::filesystem::path(each.title).filename().string())});
  }
  std::set<std::string> dates;
  for (const RememberedDay& each : season.days) {
    dates.insert(
        figures.date(FigureTexts::DateStyle::day, platform::dateSince1970(each.startSeconds)));
  }
  const auto speed = season.maxSpeedMetersPerSecond();
  table.add({fmt::format("{}: {}", text("Days"), countText(dates.size())),
             figures.value(Format::vertical, season.descentMeters()), "",
             figures.value(Format::distance, season.distanceMeters()), figures.count(season.runs()),
             speed > 0 ? figures.value(Format::speed, speed) : "–", text("Season")});
  return table.lines(room);
}

/// The table with bars as wide as the terminal allows.
std::string fittedTable(const Season& season, FigureTexts& figures) {
  std::string lines = table(season, figures, kMostBar);
  std::size_t widest = 0;
  for (std::size_t begin = 0; begin < lines.size();) {
    const std::size_t end = lines.find('\n', begin);
    widest = std::max(widest, columnsOf(std::string_view(lines).substr(begin, end - begin)));
    begin = end + 1;
  }
  const std::size_t room = columnsForTables();
  if (widest <= room) return lines;
  const std::size_t columns = kMostBar - std::min(widest - room, kMostBar - kLeastBar);
  return table(season, figures, columns, room);
}

JSON jsonOf(const Season& season) {
  JSON::Array days;
  for (const RememberedDay& day : season.days) {
    days.push_back(JSON::Dictionary{
        {"title", day.title},
        {"startTime", day.startSeconds},
        {"distanceMeters", day.distanceMeters},
        {"descentMeters", day.descentMeters ? JSON(*day.descentMeters) : JSON()},
        {"runs", day.runs ? JSON(*day.runs) : JSON()},
        {"maxSpeedMetersPerSecond",
         day.maxSpeedMetersPerSecond ? JSON(*day.maxSpeedMetersPerSecond) : JSON()}});
  }
  return JSON::Dictionary{{"season", season.name},
                          {"distanceMeters", season.distanceMeters()},
                          {"descentMeters", season.descentMeters()},
                          {"runs", season.runs()},
                          {"maxSpeedMetersPerSecond", season.maxSpeedMetersPerSecond()},
                          {"days", std::move(days)}};
}

}  // namespace

void addDaysCommand(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("days", "Lists the days that were measured, by season, with their totals");
  const auto json = std::make_shared<bool>(false);
  addPreferenceOptions(*command);
  command->add_flag("--json", *json, "Print one JSON object a season, in SI units");
  command->callback([json] {
    FigureTexts figures(forStandardOutput);
    bool isFirst = true;
    RecentDays recent;
    for (const Season& season : seasonsOf(recent.days())) {
      if (*json) {
        fmt::print("{}\n", lineOf(jsonOf(season)));
      } else {
        fmt::print("{}{}", isFirst ? "" : "\n", fittedTable(season, figures));
      }
      isFirst = false;
    }
    if (recent.unreadable() > 0) {
      throw CommandFailure(
          fmt::format("{} kept days cannot be read; see ombrix log", recent.unreadable()));
    }
  });
}

}  // namespace ombrix::hostapp
