#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <set>
#include <span>
#include <vector>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/Replacing.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Terminal/ShownName.hpp"
#include "Examples/HostApp/Terminal/Terminal.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "Examples/HostApp/Texts/Text.hpp"

namespace ombrix::hostapp {
namespace {

namespace fs = std::filesystem;

struct Options {
  std::string in, out;
  std::string from, to;
};

std::vector<std::string> words(std::span<const char* const> all) {
  return {all.begin(), all.end()};
}

/// The outcome for one track.
struct Converted {
  std::size_t fixes = 0;              ///< Written.
  std::size_t skipped = 0;            ///< Rows and points that are not a writable fix.
  std::vector<LeftOut> leftOut = {};  ///< Data that the format has no place for.
  std::string fault = {};             ///< Why the track could not be read whole, if it could not.
};

/// Reads one file and writes another one; a track of which the format holds nothing is a failure.
Converted convertFile(const std::string& in, const std::string& out,
                      std::optional<TrackFormat> from, TrackFormat to,
                      Existing existing = Existing::replaced) {
  const Track track = readTrackFile(in, from);
  const std::size_t fixes = writableFixes(track);
  const Converted converted{fixes, track.skipped + track.fixes.size() - fixes, leftOut(track, to),
                            track.fault};
  if (!isWorthWriting(track, to)) {
    if (isWorthWriting(track, TrackFormat::tcx)) {
      throw CommandFailure(
          fmt::format("there is no fix in {}, and only TCX holds a recording without", in));
    }
    throw CommandFailure(fmt::format("there is no fix in {} ({} skipped)", in, converted.skipped));
  }
  refuseToReplace(out, {to, &track, {&in, 1}});
  const std::string text = ombrix::writeTrack(track, to);
  // The stream keeps a failed write's error until it is closed.
  writeFile(
      out, [&](const auto& stream) { static_cast<void>(stream->write(platform::bytesOf(text))); },
      existing);
  return converted;
}

/// Adds one track's omissions to those of the others.
void add(std::vector<LeftOut>& all, std::span<const LeftOut> one) {
  for (const LeftOut& each : one) {
    const auto known = std::ranges::find(all, each.what, &LeftOut::what);
    known == all.end() ? all.push_back(each) : void(known->count += each.count);
  }
}

std::vector<fs::path> tracksIn(const fs::path& folder) {
  std::vector<fs::path> tracks;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file() && trackFormatOfFile(entry.path().filename().string())) {
      tracks.push_back(entry.path());
    }
  }
  std::ranges::sort(tracks);
  return tracks;
}

/// The file for a folder's track. A file that another track was already converted to must not be
/// overwritten.
fs::path outputFor(const fs::path& track, const Options& options, std::set<fs::path>& taken) {
  fs::path out = fs::path(options.out) / track.filename();
  out.replace_extension(options.to);
  if (!taken.insert(out).second) {
    throw CommandFailure(
        fmt::format("{} is left out: {} is another track", track.string(), out.string()));
  }
  return out;
}

/// Converts all tracks of a folder into another one. A track that cannot be converted is reported
/// and skipped; then the command fails at its end.
void convertFolder(const Options& options, TrackFormat to) {
  const auto tracks = tracksIn(options.in);
  if (tracks.empty()) throw CommandFailure(fmt::format("there is no track in {}", options.in));
  fs::create_directories(options.out);
  // In a folder of its own every file is a track's, or somebody else's.
  const auto existing =
      fs::equivalent(options.in, options.out) ? Existing::kept : Existing::replaced;
  std::set<fs::path> taken;
  std::size_t done = 0, written = 0, failed = 0, skipped = 0;
  std::vector<LeftOut> left;
  {
    ProgressBar bar(text("Converting"));
    for (const fs::path& track : tracks) {
      try {
        const fs::path out = outputFor(track, options, taken);
        const Converted converted =
            convertFile(track.string(), out.string(), trackFormatNamed(options.from), to, existing);
        ++written;
        skipped += converted.skipped;
        add(left, converted.leftOut);
        failIfIncomplete(track.string(), converted.fault);
      } catch (const CommandFailure& failure) {
        ++failed;
        fmt::print(stderr, "ombrix: {}\n", shownName(failure.what()));
      }
      bar.show(++done, tracks.size());
    }
  }
  fmt::print("{}\n", fmt::format(fmt::runtime(text("Wrote {} tracks to {} ({} points skipped)")),
                                 countText(written), shownName(options.out), countText(skipped)));
  tellLeftOut(options.out, to, left);
  if (failed > 0) {
    throw CommandFailure(fmt::format("{} tracks could not be converted whole", failed));
  }
}

void convert(const Options& options) {
  const auto to =
      options.to.empty() ? trackFormatOfFile(options.out) : trackFormatNamed(options.to);
  if (!to || *to == TrackFormat::fit) {
    throw CLI::ValidationError(
        "OUT must end in .csv, .gpx, .tcx or .geojson, or --to must name its format");
  }
  if (options.in != "-" && fs::is_directory(options.in)) {
    if (options.to.empty()) throw CLI::ValidationError("a folder needs --to");
    if (options.out == "-") throw CLI::ValidationError("a folder's tracks go into a folder, not -");
    return convertFolder(options, *to);
  }
  const Converted converted =
      convertFile(options.in, options.out, trackFormatNamed(options.from), *to);
  fmt::print(noticesBeside(options.out), "{}\n",
             fmt::format(fmt::runtime(text("Wrote {} fixes to {} ({} skipped)")),
                         countText(converted.fixes), shownName(options.out),
                         countText(converted.skipped)));
  tellLeftOut(options.out, *to, converted.leftOut);
  failIfIncomplete(options.in, converted.fault);
}

}  // namespace

void addConvertCommand(CLI::App& app) {
  const auto options = std::make_shared<Options>();
  CLI::App* command =
      app.add_subcommand("convert", "Reads a track of one format and writes it in another one");
  command->add_option("IN", options->in, "The track, or a folder of tracks; - for standard input")
      ->required();
  command->add_option("OUT", options->out, "The file or folder to write; - for standard output")
      ->required();
  command->add_option("--from", options->from, "The format of IN, whatever its name")
      ->check(CLI::IsMember(words(kTrackFormatWords)));
  command->add_option("--to", options->to, "The format of OUT, whatever its name")
      ->check(CLI::IsMember(words(kWrittenFormatWords)));
  command->callback([options] { convert(*options); });
}

}  // namespace ombrix::hostapp
