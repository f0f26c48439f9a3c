#include "Examples/HostApp/Files/Replacing.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <new>
#include <string_view>
#include <system_error>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::hostapp {
namespace {

namespace fs = std::filesystem;

/// The rows of a CSV file: fixes, or heart rates, which are short.
/// @throws CommandFailure for a file that cannot be read, or that has rows of two and more numbers
///   which cannot: nobody knows what they hold
Track rowsOf(const std::string& path) {
  constexpr std::size_t kFixFields = 8;
  const auto unread = [&] {
    return CommandFailure(fmt::format("{} cannot be read, so it is not replaced", path));
  };
  const auto stream = platform::InputStream::withPath(path);
  if (!stream->open()) throw unread();
  Track track;
  try {
    platform::CSVReader reader(*stream, {.keptFields = kFixFields});
    while (const auto row = reader.next()) {
      std::array<double, kFixFields> numbers{};
      std::size_t count = 0;
      for (; count < std::min(row->size(), kFixFields); ++count) {
        const auto number = platform::doubleFromText((*row)[count]);
        if (!number) break;
        numbers[count] = *number;
      }
      if (count < 2) continue;
      const auto& [time, latitude, longitude, altitude, course, speed, vertical, horizontal] =
          numbers;
      if (row->size() < kFixFields) {
        track.heartRates.push_back({platform::dateSince1970(time), latitude});
      } else if (count < kFixFields) {
        throw unread();
      } else {
        track.fixes.push_back({.coordinate = {latitude, longitude},
                               .altitude = altitude,
                               .horizontalAccuracy = horizontal,
                               .verticalAccuracy = vertical,
                               .course = course,
                               .speed = speed,
                               .timestamp = platform::dateSince1970(time)});
      }
    }
  } catch (const platform::CSVError&) {
    throw unread();
  }
  return track;
}

/// Whether what is written holds all that a file of a format does. What memory cannot hold may be
/// a recording all the same.
bool holdsAllOf(const std::string& path, TrackFormat format, const NewFile& by) try {
  const Track none;
  const Track& track = by.track != nullptr ? *by.track : none;
  // A CSV of heart rates has no fixes, and holds what is not at a fix, as TCX does.
  const bool areRates = track.fixes.empty() && by.track != nullptr;
  const TrackFormat written = areRates ? TrackFormat::tcx : by.format.value_or(TrackFormat::csv);
  if (format == TrackFormat::csv) return holdsAll(track, written, rowsOf(path));
  std::error_code error;
  if (fs::file_size(path, error) > kMostTrackBytes) return false;
  std::optional<Track> older;
  try {
    older = readTrackFile(path, format);
  } catch (const TrackNeedsMemory&) {
    return false;
  } catch (const CommandFailure&) {
    return true;  // Nothing of it can be read.
  }
  return holdsAll(track, written, *older);
} catch (const std::bad_alloc&) {
  return false;
}

/// Whether a file holds something that is not written. Its name and its beginning may speak of two
/// formats: one of them may be damaged.
bool holdsMore(const std::string& path, std::optional<TrackFormat> named, const NewFile& by) {
  const TrackFormat looked = trackFormatOfFileContents(path);
  return !holdsAllOf(path, looked, by) ||
         (named && named != looked && !holdsAllOf(path, *named, by));
}

}  // namespace

void refuseToReplace(const std::string& out, const NewFile& by) {
  std::error_code none;
  if (!fs::is_regular_file(out, none) || fs::file_size(out, none) == 0) return;
  if (noticesBeside(out) == stderr) return;  // That is standard output.
  if (by.track != nullptr && !by.track->fault.empty()) {
    throw CommandFailure(fmt::format("{} could not be read whole: {}; {} is not replaced",
                                     fmt::join(by.read, ", "), by.track->fault, out));
  }
  const auto named = trackFormatOfFile(out);
  const bool isRead = std::ranges::any_of(
      by.read, [&](const std::string& path) { return fs::equivalent(path, out, none); });
  // A CSV that is written over itself loses rows that are none, which is what it is done for.
  const bool isMended = isRead && by.track != nullptr && by.format == TrackFormat::csv &&
                        trackFormatOfFileContents(out) == TrackFormat::csv;
  const bool isLost = (named && named != by.format) || (isRead && by.track == nullptr) ||
                      (!isMended && holdsMore(out, named, by));
  if (!isLost) return;
  if (isRead && by.track != nullptr && !by.track->unread.empty()) {
    throw CommandFailure(
        fmt::format("{} holds more than is written ({}): choose another name to write to", out,
                    leftOutText(by.track->unread)));
  }
  throw CommandFailure(
      fmt::format("{} is a recording and would be lost: choose another name to write to", out));
}

void refuseToReplaceByPage(const std::string& out, std::span<const std::string> read) {
  constexpr std::string_view kMark = "data-axis=\"time\"";  // at the start of each day's page
  constexpr std::size_t kStartBytes = 100;
  refuseToReplace(out, {.read = read});
  std::error_code none;
  if (!fs::is_regular_file(out, none) || noticesBeside(out) == stderr) return;
  std::string start(kStartBytes, '\0');
  std::ifstream file(out, std::ios::binary);
  file.read(start.data(), static_cast<std::streamsize>(start.size()));
  start.resize(static_cast<std::size_t>(file.gcount()));
  if (start.empty() || start.contains(kMark)) return;
  throw CommandFailure(fmt::format(
      "{} is no page of a day and would be lost: choose another name to write to", out));
}

void refuseSameOutputs(const std::string& one, const std::string& other) {
  std::error_code none;
  if (one.empty() || other.empty()) return;
  const auto whole = [&](const std::string& path) {
    return fs::weakly_canonical(fs::absolute(path, none), none);
  };
  if (one != other && whole(one) != whole(other) && !fs::equivalent(one, other, none)) return;
  throw CommandFailure(fmt::format("{} and {} are one file", one, other));
}

}  // namespace ombrix::hostapp
