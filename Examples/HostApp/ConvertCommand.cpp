#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <filesystem>
#include <memory>
#include <vector>

#include "Examples/HostApp/Commands.hpp"
#include "Examples/HostApp/Terminal.hpp"
#include "Examples/HostApp/TrackFile.hpp"
#include "Examples/HostApp/WholeFile.hpp"

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

/// Reads one file and writes another; how many fixes it holds.
std::size_t convertFile(const std::string& in, const std::string& out,
                        std::optional<TrackFormat> from, TrackFormat to) {
  const Track track = readTrackFile(in, from);
  const std::string converted = ombrix::writeTrack(track, to);
  // What a write reports, the stream keeps for when it is closed.
  writeFile(out, [&](const auto& stream) {
    static_cast<void>(stream->write(platform::bytesOf(converted)));
  });
  return track.fixes.size();
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

/// Converts all tracks of a folder into another one. A file that is no track is told and passed
/// over; the command fails at its end then.
void convertFolder(const Options& options, TrackFormat to) {
  const auto tracks = tracksIn(options.in);
  if (tracks.empty()) throw CommandFailure(fmt::format("there is no track in {}", options.in));
  fs::create_directories(options.out);
  std::size_t done = 0, failed = 0;
  {
    ProgressBar bar("Converting");
    for (const fs::path& track : tracks) {
      fs::path out = fs::path(options.out) / track.filename();
      out.replace_extension(options.to);
      try {
        convertFile(track.string(), out.string(), trackFormatNamed(options.from), to);
      } catch (const CommandFailure& failure) {
        ++failed;
        fmt::print(stderr, "ombrix: {}\n", failure.what());
      }
      bar.show(++done, tracks.size());
    }
  }
  fmt::print("Wrote {} tracks to {}\n", tracks.size() - failed, options.out);
  if (failed > 0) throw CommandFailure(fmt::format("{} tracks could not be converted", failed));
}

void convert(const Options& options) {
  const auto to =
      options.to.empty() ? trackFormatOfFile(options.out) : trackFormatNamed(options.to);
  if (!to || *to == TrackFormat::fit) {
    throw CLI::ValidationError("OUT ends in .csv, .gpx, .tcx or .geojson, or --to says what it is");
  }
  if (options.in != "-" && fs::is_directory(options.in)) {
    if (options.to.empty()) throw CLI::ValidationError("a folder needs --to");
    return convertFolder(options, *to);
  }
  const std::size_t fixes =
      convertFile(options.in, options.out, trackFormatNamed(options.from), *to);
  fmt::print(noticesBeside(options.out), "Wrote {} fixes to {}\n", fixes, options.out);
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
  command->add_option("--from", options->from, "What IN is, whatever its name says")
      ->check(CLI::IsMember(words(kTrackFormatWords)));
  command->add_option("--to", options->to, "What OUT is to be, whatever its name says")
      ->check(CLI::IsMember(words(kWrittenFormatWords)));
  command->callback([options] { convert(*options); });
}

}  // namespace ombrix::hostapp
