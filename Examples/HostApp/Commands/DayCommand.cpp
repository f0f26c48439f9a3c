#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <array>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <vector>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Commands/Preferences.hpp"
#include "Examples/HostApp/Days/DayReport.hpp"
#include "Examples/HostApp/Days/RecentDays.hpp"
#include "Examples/HostApp/Days/RecordedDay.hpp"
#include "Examples/HostApp/Files/HeartRates.hpp"
#include "Examples/HostApp/Files/Replacing.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Page/DayPage.hpp"
#include "Examples/HostApp/Service/DayUpload.hpp"
#include "Examples/HostApp/Service/Server.hpp"
#include "Examples/HostApp/Terminal/DayChart.hpp"
#include "Examples/HostApp/Terminal/ShownName.hpp"
#include "Examples/HostApp/Terminal/StyledText.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Texts/Text.hpp"
#include "OmbrixPlatform/Text/UTF8.hpp"

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

/// Remembers the day; if that fails, the figures are shown all the same.
void keep(const RecordedDay& recorded) {
  try {
    RecentDays().remember(recorded);
  } catch (const std::exception& error) {
    fmt::print(stderr, "ombrix: warning: {}\n", error.what());
  }
}

/// The stream for the figures: a line or a page on standard output must stand there alone.
std::FILE* outputBeside(const Options& options) {
  for (const std::string& written : {options.linePath, options.pagePath}) {
    if (!written.empty() && noticesBeside(written) == stderr) return stderr;
  }
  return stdout;
}

void showDay(const std::string& path, const Options& options, FigureTexts& figures) {
  const std::array read{path, options.heartRatePath};
  refuseSameOutputs(options.pagePath, options.linePath);
  refuseToReplaceByPage(options.pagePath, read);
  refuseToReplace(options.linePath, {.format = TrackFormat::geoJSON, .read = read});
  Track track = readTrackWithFixes(path, trackFormatNamed(options.format));
  if (!options.heartRatePath.empty()) track.heartRates = readHeartRates(options.heartRatePath);
  if (!options.linePath.empty()) writeLineString(options.linePath, track.fixes);
  const RecordedDay recorded =
      measured(std::move(track), platform::stringFromUTF8Repaired(platform::bytesOf(path)),
               options.weightKilograms);
  if (!options.pagePath.empty()) writeDayPage(options.pagePath, recorded);

  std::FILE* out = outputBeside(options);
  const auto summary = options.json || options.upload ? toJSON(recorded) : platform::JSON();
  if (options.json) {
    fmt::print(out, "{}\n", lineOf(summary));
  } else {
    fmt::print(out, "{}", dayReport(recorded, figures));
    if (out == stdout && standardOutputIsTerminal()) {
      fmt::print("\n{}", dayChart(recorded.day, figures, columnsOfStandardOutput(),
                                  standardOutputTakesStyle()));
    }
  }
  if (!options.pagePath.empty()) {
    fmt::print(options.json ? stderr : out, "\n{} {}\n", text("Wrote the page"), options.pagePath);
  }
  std::fflush(out);
  if (recorded.day.samples.empty()) {
    throw CommandFailure(fmt::format("{} has no fix that a day can be measured by", path));
  }
  if (!options.heartRatePath.empty() && recorded.day.totals.all.heartRates == 0) {
    fmt::print(stderr, "ombrix: warning: no heart rate of {} belongs to this day\n",
               options.heartRatePath);
  }
  keep(recorded);
  if (options.upload) {
    const UploadedDay uploaded = uploadDay(summary, path);
    fmt::print(stderr, "{}\n",
               fmt::format(fmt::runtime(text("Uploaded as day {}, the track with {} bytes")),
                           uploaded.name, countText(uploaded.trackBytes)));
  }
  failIfIncomplete(path, recorded.fault);
}

/// Shows a day; a lack of memory names the file.
void showOrFail(const std::string& path, const Options& options, FigureTexts& figures) {
  try {
    showDay(path, options, figures);
  } catch (const std::bad_alloc&) {
    throw CommandFailure(path + ": There is not memory enough to measure the day.");
  }
}

/// Shows all days, with a progress bar if there are many. A day that cannot be read is reported and
/// skipped; then the command fails at its end.
void showDays(const Options& options) {
  FigureTexts figures(forStandardOutput);
  if (options.paths.size() == 1) return showOrFail(options.paths.front(), options, figures);
  std::size_t failed = 0;
  {
    ProgressBar bar(text("Measuring"));
    for (std::size_t i = 0; i < options.paths.size(); ++i) {
      bar.show(i, options.paths.size());
      // On the same terminal the bar would disturb the report.
      if (standardOutputIsTerminal()) bar.hide();
      try {
        showOrFail(options.paths[i], options, figures);
      } catch (const CommandFailure& failure) {
        ++failed;
        bar.hide();
        fmt::print(stderr, "ombrix: {}\n", shownName(failure.what()));
      }
    }
  }
  if (failed > 0) {
    throw CommandFailure(
        fmt::format("{} of {} tracks could not be shown whole", failed, options.paths.size()));
  }
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
  command->add_option("--hr", options->heartRatePath, "Heart rates recorded during the day (CSV)")
      ->type_name("FILE")
      ->check(notEmpty());
  command
      ->add_option("--weight", options->weightKilograms,
                   "The user's weight in kilograms, to estimate the energy burned")
      ->check(numberBetween(1, 1'000));
  command
      ->add_option("--geojson", options->linePath,
                   "Write the track as a GeoJSON line string; - for standard output")
      ->type_name("FILE")
      ->check(notEmpty());
  command
      ->add_option("--html", options->pagePath,
                   "Write the day as a page for the browser; - for standard output")
      ->type_name("FILE")
      ->check(notEmpty());
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
    if (options->heartRatePath == "-" && options->paths.front() == "-") {
      throw CLI::ValidationError("standard input cannot be both TRACK and --hr");
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
