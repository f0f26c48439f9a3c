#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Commands/Preferences.hpp"
#include "Examples/HostApp/Days/DayReport.hpp"
#include "Examples/HostApp/Days/RecentDays.hpp"
#include "Examples/HostApp/Days/SampleDay.hpp"
#include "Examples/HostApp/Files/HeartRates.hpp"
#include "Examples/HostApp/Files/Replacing.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Page/DayPage.hpp"
#include "Examples/HostApp/Service/DayUpload.hpp"
#include "Examples/HostApp/Service/Server.hpp"
#include "Examples/HostApp/Terminal/DayChart.hpp"
#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Terminal/TextTable.hpp"
#include "Examples/HostApp/Texts/Text.hpp"
#include "OmbrixPlatform/Coding/JSONDecoder.hpp"
#include "Tools/DevServer/DevServer.hpp"

namespace ombrix::hostapp {
namespace {

namespace fs = std::filesystem;

/// Prints a line for each finished step, with its outcome.
void done(std::string_view step, std::string_view outcome) {
  constexpr std::size_t kStepColumns = 24;
  constexpr platform::UIColor kGreen{0.18, 0.68, 0.56};
  const std::string label = text(step);
  const std::size_t columns = columnsOf(label);
  fmt::print("{} {}{} {}\n", standardOutputTakesStyle() ? inColour("✓", kGreen) : "✓", label,
             std::string(kStepColumns > columns ? kStepColumns - columns : 0, ' '), outcome);
  std::fflush(stdout);
}

std::string counted(std::size_t count, std::string_view what) {
  return fmt::format("{} {}", countText(count), text(what));
}

/// The data of the service's resorts that the demonstration shows.
struct Resort {
  std::string name;
  double baseElevation = 0, summitElevation = 0;  ///< Metres above the sea.

  static constexpr auto kCodingFields =
      platform::codingFields(platform::field("name", &Resort::name),
                             platform::field("baseElevation", &Resort::baseElevation),
                             platform::field("summitElevation", &Resort::summitElevation));
};

void fetchResort(FigureTexts& figures) {
  const auto resort = platform::JSONDecoder().decode<Resort>(fetch("resorts/2"));
  const auto height = [&](double meters) {
    return figures.plain(FigureTexts::Format::altitude, meters);
  };
  done("Resort fetched", fmt::format("{}, {} – {}", resort.name, height(resort.baseElevation),
                                     height(resort.summitElevation)));
}

/// Writes the sample day with its heart rates and reads both, as a device and a user would.
Track sampleTrack(const fs::path& trackFile, const fs::path& ratesFile) {
  Track made, rates;
  made.fixes = makeSampleDay({});
  rates.heartRates = makeSampleHeartRates(made.fixes);
  refuseToReplace(trackFile.string(), {.format = TrackFormat::csv, .track = &made});
  refuseToReplace(ratesFile.string(), {.format = TrackFormat::csv, .track = &rates});
  writeTrack(trackFile.string(), made.fixes);
  writeHeartRates(ratesFile.string(), rates.heartRates);
  Track track = readTrackFile(trackFile.string());
  track.heartRates = readHeartRates(ratesFile.string());
  done("Day read", fmt::format("{}, {}", counted(track.fixes.size(), "fixes"),
                               counted(track.heartRates.size(), "heart rates")));
  return track;
}

/// Ends the demonstration where it would write to what is no file: nobody gave these names.
void refuseToWriteTo(const fs::path& path) {
  std::error_code none;
  const fs::file_status found = fs::status(path, none);
  if (!fs::exists(found) || fs::is_regular_file(found)) return;
  throw CommandFailure(
      fmt::format("{} is no file: choose another folder with --out", path.string()));
}

void demo(const fs::path& folder) {
  FigureTexts figures(forStandardOutput);
  fs::create_directories(folder);
  const fs::path trackFile = folder / "sample-day.track.csv",
                 ratesFile = folder / "sample-day.hr.csv", pageFile = folder / "sample-day.html";
  for (const fs::path& file : {trackFile, ratesFile, pageFile}) refuseToWriteTo(file);
  refuseToReplaceByPage(pageFile.string());

  const devserver::DevServer::Options account;
  const devserver::DevServer service(account);
  done("Service started", service.baseURL());
  connect({.server = service.baseURL(), .login = account.email + ":" + account.password});
  done("Signed in", account.email);
  fetchResort(figures);

  Track track = sampleTrack(trackFile, ratesFile);
  const auto begin = std::chrono::steady_clock::now();
  const RecordedDay recorded = measured(std::move(track), trackFile.string(), std::nullopt);
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
  const DayTotals& totals = recorded.day.totals;
  done("Day measured", fmt::format("{}, {} ({:.0f} ms)", counted(totals.runs, "runs"),
                                   counted(totals.lifts, "lifts"), took.count()));
  fmt::print(
      "\n{}\n{}\n", dayReport(recorded, figures),
      dayChart(recorded.day, figures, columnsOfStandardOutput(), standardOutputTakesStyle()));

  RecentDays().remember(recorded);
  done("Day kept", "ombrix days");
  const UploadedDay uploaded = uploadDay(toJSON(recorded), trackFile.string());
  done("Day uploaded", fmt::format("{} ({} B)", uploaded.name, countText(uploaded.trackBytes)));
  writeDayPage(pageFile.string(), recorded);
  done("Page written", fs::absolute(pageFile).lexically_normal().string());
}

}  // namespace

void addDemoCommand(CLI::App& app) {
  const auto folder = std::make_shared<std::string>(".");
  CLI::App* command = app.add_subcommand(
      "demo", "Shows the whole way of a day: service, track, figures, upload, page");
  command->add_option("--out", *folder, "The folder to write the day's files to")
      ->type_name("DIR")
      ->check(notEmpty())
      ->capture_default_str();
  addPreferenceOptions(*command);
  command->callback([folder] { demo(*folder); });
}

}  // namespace ombrix::hostapp
