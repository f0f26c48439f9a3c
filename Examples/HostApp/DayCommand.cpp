#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "Examples/HostApp/Commands.hpp"
#include "Examples/HostApp/DayReport.hpp"
#include "Examples/HostApp/DaySummary.hpp"
#include "Examples/HostApp/Preferences.hpp"
#include "Examples/HostApp/TrackFile.hpp"

namespace ombrix::hostapp {

void addDayCommand(CLI::App& app) {
  struct Options {
    std::string path;
    bool json = false;
    bool allFixes = false;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("day", "Measures a recorded day and prints its figures");
  command->add_option("TRACK.csv", options->path, "The recorded track")->required();
  addPreferenceOptions(*command);
  command->add_flag("--json", options->json, "Print one JSON object, in SI units");
  command->add_flag("--all-fixes", options->allFixes,
                    "Count the fixes that are too inaccurate for statistics, too");
  command->callback([options] {
    const Track track = readTrack(options->path);
    const auto filter = options->allFixes ? FixFilter::all : FixFilter::accurateForStats;
    const DaySummary day = summarize(track.fixes, track.skipped, filter);
    fmt::print("{}", options->json ? toJSON(day) + "\n" : dayReport(day, options->path));
  });
}

}  // namespace ombrix::hostapp
