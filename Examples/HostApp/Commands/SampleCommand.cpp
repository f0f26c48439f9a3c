#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <limits>
#include <memory>

#include "Examples/HostApp/Commands/Arguments.hpp"
#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Days/SampleDay.hpp"
#include "Examples/HostApp/Files/HeartRates.hpp"
#include "Examples/HostApp/Files/Replacing.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {

void addSampleCommand(CLI::App& app) {
  struct Options {
    std::string path, ratesPath;
    SampleDayOptions day;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("sample", "Makes up a day of skiing and writes its track");
  command->add_option("OUT", options->path, "The track file to write; - for standard output")
      ->required();
  command->add_option("--hr", options->ratesPath, "Write heart rates of that day to this file, too")
      ->type_name("FILE")
      ->check(notEmpty());
  command->add_option("--seed", options->day.seed, "Equal seeds give equal days")
      ->check(wholeNumberBetween(0, std::numeric_limits<long long>::max()))
      ->capture_default_str();
  command->add_option("--runs", options->day.runs, "Lift rides, each followed by a run")
      ->check(wholeNumberBetween(1, 100))
      ->capture_default_str();
  command->callback([options] {
    Track track, rates;
    track.fixes = makeSampleDay(options->day);
    const auto& fixes = track.fixes;
    refuseSameOutputs(options->path, options->ratesPath);
    refuseToReplace(options->path, {.format = TrackFormat::csv, .track = &track});
    if (!options->ratesPath.empty()) {
      rates.heartRates = makeSampleHeartRates(fixes, options->day.seed);
      refuseToReplace(options->ratesPath, {.format = TrackFormat::csv, .track = &rates});
    }
    writeTrack(options->path, fixes);
    if (!options->ratesPath.empty()) writeHeartRates(options->ratesPath, rates.heartRates);
    const bool isOutput =
        !options->ratesPath.empty() && noticesBeside(options->ratesPath) == stderr;
    fmt::print(
        isOutput ? stderr : noticesBeside(options->path), "{}\n",
        fmt::format(fmt::runtime(text("Wrote {} fixes to {}")), fixes.size(), options->path));
  });
}

}  // namespace ombrix::hostapp
