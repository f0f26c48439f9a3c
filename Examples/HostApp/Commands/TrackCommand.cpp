#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <memory>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/Replacing.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Texts/Text.hpp"
#include "OmbrixDay/Filters/PlausibleFix.hpp"

namespace ombrix::hostapp {

void addTrackCommand(CLI::App& app) {
  CLI::App* track = app.add_subcommand("track", "Works on track files");
  track->require_subcommand(1);

  struct Options {
    std::string in, out;
  };
  const auto options = std::make_shared<Options>();
  CLI::App* rewrite =
      track->add_subcommand("rewrite", "Reads a track and writes the fixes it holds");
  rewrite->add_option("IN", options->in, "The track file to read")->required();
  rewrite->add_option("OUT", options->out, "The track file to write; - for standard output")
      ->required();
  rewrite->callback([options] {
    Track read = readTrackFile(options->in);
    // A number that is not finite has no text: its row would lack a field, and would not be a fix.
    read.skipped += std::erase_if(read.fixes, [](const CLLocation& fix) { return !isFinite(fix); });
    if (read.fixes.empty()) {
      throw CommandFailure(
          fmt::format("there is no fix in {} ({} skipped)", options->in, read.skipped));
    }
    refuseToReplace(options->out, {TrackFormat::csv, &read, {&options->in, 1}});
    writeTrack(options->out, read.fixes);
    fmt::print(noticesBeside(options->out), "{}\n",
               fmt::format(fmt::runtime(text("Wrote {} fixes to {} ({} skipped)")),
                           read.fixes.size(), options->out, read.skipped));
    tellLeftOut(options->out, TrackFormat::csv, leftOut(read, TrackFormat::csv));
    failIfIncomplete(options->in, read.fault);
  });
}

}  // namespace ombrix::hostapp
