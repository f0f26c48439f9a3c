#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <vector>

#include "Examples/HostApp/Arguments.hpp"
#include "Examples/HostApp/Commands.hpp"
#include "Examples/HostApp/DayReport.hpp"
#include "Examples/HostApp/DaySummary.hpp"
#include "Examples/HostApp/HeartRates.hpp"
#include "Examples/HostApp/Preferences.hpp"
#include "Examples/HostApp/RecentDays.hpp"
#include "Examples/HostApp/Server.hpp"
#include "Examples/HostApp/TrackFile.hpp"

namespace ombrix::hostapp {
namespace {

/// Sends the summary, which the service names, and the track under that name.
void uploadDay(const std::string& summary, const std::string& trackFile) {
  const auto day = post("days", platform::dataFrom(summary));
  const std::string id = day["id"].stringValue();
  if (id.empty()) throw CommandFailure("the service has given the day no name");
  const auto track = platform::JSON::parse(upload(trackFile, "tracks/" + id, "PUT"));
  fmt::print(stderr, "Uploaded as day {}, the track with {} bytes\n", id,
             track["size"].stringValue());
}

/// Remembers the day; where that fails the figures are worth no less.
void keep(const DaySummary& day, const std::string& title) {
  try {
    RecentDays().remember(day, title);
  } catch (const std::exception& error) {
    fmt::print(stderr, "ombrix: warning: {}\n", error.what());
  }
}

}  // namespace

void addDayCommand(CLI::App& app) {
  struct Options {
    std::string path;
    std::string heartRatePath, linePath;
    std::optional<double> weightKilograms;
    bool json = false;
    bool allFixes = false;
    bool upload = false;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("day", "Measures a recorded day and prints its figures");
  command->add_option("TRACK.csv", options->path, "The recorded track")->required();
  addPreferenceOptions(*command);
  command->add_option("--hr", options->heartRatePath, "Heart rates recorded during the day");
  command
      ->add_option("--weight", options->weightKilograms,
                   "The user's weight in kilograms, to estimate the energy burned")
      ->check(numberBetween(1, 1'000));
  command->add_option("--geojson", options->linePath,
                      "Write the track as a GeoJSON line string; - for standard output");
  command->add_flag("--json", options->json, "Print one JSON object, in SI units");
  command->add_flag("--all-fixes", options->allFixes,
                    "Count the fixes that are too inaccurate for statistics, too");
  command->add_flag("--upload", options->upload,
                    "Send the summary and the track to the web service");
  const auto server = addServerOptions(*command);
  command->callback([options, server] {
    const Track track = readTrack(options->path);
    if (track.fixes.empty()) {
      throw CommandFailure(
          fmt::format("there is no fix in {} ({} rows skipped)", options->path, track.skipped));
    }
    if (!options->linePath.empty()) writeLineString(options->linePath, track.fixes);
    const auto filter = options->allFixes ? FixFilter::all : FixFilter::accurateForStats;
    const DaySummary day = summarize(track.fixes, track.skipped, filter);
    std::optional<HeartRateSummary> hearts;
    if (!options->heartRatePath.empty() || options->weightKilograms) {
      const auto samples = options->heartRatePath.empty()
                               ? std::vector<platform::HKQuantitySample>()
                               : readHeartRates(options->heartRatePath);
      hearts = summarizeHeartRates(samples, day, options->weightKilograms);
    }
    if (options->json) {
      fmt::print("{}\n", toJSON(day, hearts ? toJSON(*hearts) : ""));
    } else {
      fmt::print("{}{}", dayReport(day, options->path), hearts ? heartRateReport(*hearts) : "");
    }
    std::fflush(stdout);
    keep(day, options->path);
    if (options->upload) {
      connect(*server);
      uploadDay(toJSON(day, hearts ? toJSON(*hearts) : ""), options->path);
    }
  });
}

}  // namespace ombrix::hostapp
