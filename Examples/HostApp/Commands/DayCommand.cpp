#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Commands/Preferences.hpp"
#include "Examples/HostApp/Days/DayReport.hpp"
#include "Examples/HostApp/Days/RecentDays.hpp"
#include "Examples/HostApp/Days/RecordedDay.hpp"
#include "Examples/HostApp/Files/HeartRates.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Page/DayPage.hpp"
#include "Examples/HostApp/Service/Server.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

struct Options {
  std::vector<std::string> paths;
  std::string format;
  std::string heartRatePath, linePath, pagePath;
  std::optional<double> weightKilograms;
  bool json = false;
  bool upload = false;
};

/// Sends the summary, which the service names, and the track under that name.
void uploadDay(const std::string& summary, const std::string& trackFile) {
  const auto day = post("days", platform::dataFrom(summary));
  const std::string id = day["id"].stringValue();
  if (id.empty()) throw CommandFailure("the service's answer has no id for the day");
  const auto track = platform::JSON::parse(upload(trackFile, "tracks/" + id, "PUT"));
  fmt::print(stderr, "Uploaded as day {}, the track with {} bytes\n", id,
             track["size"].stringValue());
}

/// Remembers the day; where that fails the figures are worth no less.
void keep(const RecordedDay& recorded) {
  try {
    RecentDays().remember(recorded);
  } catch (const std::exception& error) {
    fmt::print(stderr, "ombrix: warning: {}\n", error.what());
  }
}

void writePage(const std::string& path, const RecordedDay& recorded) {
  const auto page = dayPage(recorded);
  if (!page) throw CommandFailure("the track has no usable fix, so there is nothing to show");
  // What a write reports, the stream keeps for when it is closed.
  writeFile(path, [&](const auto& stream) {
    static_cast<void>(stream->write(platform::bytesOf(*page)));
  });
}

void showDay(const std::string& path, const Options& options) {
  Track track = readTrackFile(path, trackFormatNamed(options.format));
  if (track.fixes.empty()) {
    throw CommandFailure(fmt::format("there is no fix in {} ({} skipped)", path, track.skipped));
  }
  if (!options.heartRatePath.empty()) track.heartRates = readHeartRates(options.heartRatePath);
  if (!options.linePath.empty()) writeLineString(options.linePath, track.fixes);
  const RecordedDay recorded = measured(std::move(track), path, options.weightKilograms);
  if (!options.pagePath.empty()) writePage(options.pagePath, recorded);
  // A line or a page that goes to standard output is to stand there alone.
  std::FILE* out = stdout;
  for (const std::string& written : {options.linePath, options.pagePath}) {
    if (!written.empty() && noticesBeside(written) == stderr) out = stderr;
  }
  fmt::print(out, "{}", options.json ? lineOf(toJSON(recorded)) + "\n" : dayReport(recorded));
  if (!options.pagePath.empty()) {
    fmt::print(options.json ? stderr : out, "\n{} {}\n", text("Wrote the page"), options.pagePath);
  }
  std::fflush(out);
  keep(recorded);
  if (options.upload) uploadDay(lineOf(toJSON(recorded)), path);
}

/// Shows all days. One that cannot be read is told and passed over; the command fails at its end.
void showDays(const Options& options) {
  if (options.paths.size() == 1) return showDay(options.paths.front(), options);
  std::size_t failed = 0;
  for (const std::string& path : options.paths) {
    try {
      showDay(path, options);
    } catch (const CommandFailure& failure) {
      ++failed;
      fmt::print(stderr, "ombrix: {}\n", failure.what());
    }
  }
  if (failed > 0)
    throw CommandFailure(
        fmt::format("{} of {} tracks could not be shown", failed, options.paths.size()));
}

}  // namespace

void addDayCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand(
      "day", "Measures recorded days: runs, lifts, verticals, speeds, heart rates");
  command
      ->add_option("TRACK", options->paths,
                   "The recorded tracks: CSV, GPX, TCX, GeoJSON or FIT; - for standard input")
      ->required();
  command->add_option("--from", options->format, "The format of the tracks, whatever their names")
      ->check(CLI::IsMember(
          std::vector<std::string>(std::begin(kTrackFormatWords), std::end(kTrackFormatWords))));
  addPreferenceOptions(*command);
  command->add_option("--hr", options->heartRatePath, "Heart rates recorded during the day (CSV)");
  command
      ->add_option("--weight", options->weightKilograms,
                   "The user's weight in kilograms, to estimate the energy burned")
      ->check(numberBetween(1, 1'000));
  command->add_option("--geojson", options->linePath,
                      "Write the track as a GeoJSON line string; - for standard output");
  command->add_option("--html", options->pagePath,
                      "Write the day as a page for the browser; - for standard output");
  command->add_flag("--json", options->json, "Print one JSON object a day, in SI units");
  command->add_flag("--upload", options->upload,
                    "Send the summary and the track to the web service");
  const auto server = addServerOptions(*command);
  command->callback([options, server] {
    const bool isOne = options->paths.size() == 1;
    const bool isForOne =
        !options->heartRatePath.empty() || !options->linePath.empty() || !options->pagePath.empty();
    if (!isOne && isForOne) {
      throw CLI::ValidationError("--hr, --geojson and --html are for one track");
    }
    if (options->upload) {
      for (const std::string& path : options->paths) {
        if (std::filesystem::is_regular_file(path)) continue;
        throw CommandFailure(fmt::format("--upload needs a file, but {} is not one", path));
      }
      connect(*server);
    }
    showDays(*options);
  });
}

}  // namespace ombrix::hostapp
