#include "Examples/HostApp/Files/Replacing.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <system_error>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/TrackFile.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "OmbrixDay/Filters/PlausibleFix.hpp"
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::hostapp {
namespace {

namespace fs = std::filesystem;

/// How many points of a kind a file holds, and of what time, in seconds since 1970.
struct Extent {
  std::size_t count = 0;
  double first = std::numeric_limits<double>::infinity();
  double last = -std::numeric_limits<double>::infinity();

  void add(double seconds) {
    ++count;
    if (!std::isfinite(seconds)) return;
    first = std::min(first, seconds);
    last = std::max(last, seconds);
  }

  [[nodiscard]] bool covers(const Extent& other) const {
    constexpr double kRounding = 1e-3;  // of the formats
    return other.count == 0 || (count >= other.count && first <= other.first + kRounding &&
                                last >= other.last - kRounding);
  }
};

struct Contents {
  Extent fixes, heartRates;
};

/// What a file of a format holds of a track: CSV fixes or, without any, heart rates; the others the
/// fixes on the globe.
Contents contentsIn(std::optional<TrackFormat> format, const Track& track) {
  Contents contents;
  const bool isCSV = format == TrackFormat::csv;
  for (const CLLocation& fix : track.fixes) {
    if (isCSV || isOnGlobe(fix)) {
      contents.fixes.add(platform::timeIntervalSince1970(fix.timestamp));
    }
  }
  if (isCSV && !track.fixes.empty()) return contents;
  for (const HeartRate& rate : track.heartRates) {
    contents.heartRates.add(platform::timeIntervalSince1970(rate.time));
  }
  return contents;
}

/// The rows of a CSV file that begin with two numbers: fixes, or heart rates, which are short.
/// @throws CommandFailure for a file that cannot be read: nobody knows what it holds
Contents rowsOf(const std::string& path) {
  constexpr std::size_t kFixFields = 8;
  Contents contents;
  const auto unread = [&] {
    return CommandFailure(fmt::format("{} cannot be read, so it is not replaced", path));
  };
  const auto stream = platform::InputStream::withPath(path);
  if (!stream->open()) throw unread();
  try {
    platform::CSVReader reader(*stream, {.keptFields = kFixFields});
    while (const auto row = reader.next()) {
      if (row->size() < 2 || !platform::doubleFromText((*row)[1])) continue;
      const auto seconds = platform::doubleFromText((*row)[0]);
      Extent& rows = row->size() < kFixFields ? contents.heartRates : contents.fixes;
      if (seconds) rows.add(*seconds);
    }
  } catch (const platform::CSVError&) {
    throw unread();
  }
  return contents;
}

bool holdsAllOf(const std::string& path, TrackFormat format, const Contents& contents) {
  const auto covers = [&](const Contents& older) {
    return contents.fixes.covers(older.fixes) && contents.heartRates.covers(older.heartRates);
  };
  if (format == TrackFormat::csv) return covers(rowsOf(path));
  std::error_code none;
  if (fs::file_size(path, none) > kMostTrackBytes) return false;
  std::optional<Track> older;
  try {
    older = readTrackFile(path, format);
  } catch (const TrackNeedsMemory&) {
    return false;  // It may be a recording all the same.
  } catch (const CommandFailure&) {
    return true;  // Nothing of it can be read.
  }
  return covers(contentsIn(format, *older));
}

/// Whether a file holds a fix or heart rate that is not among these. Its name and its beginning may
/// speak of two formats: one of them may be damaged.
bool holdsMore(const std::string& path, std::optional<TrackFormat> named,
               const Contents& contents) {
  const TrackFormat looked = trackFormatOfFileContents(path);
  return !holdsAllOf(path, looked, contents) ||
         (named && named != looked && !holdsAllOf(path, *named, contents));
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
  const bool isLost =
      (named && named != by.format) || (isRead && by.track == nullptr) ||
      (!isMended &&
       holdsMore(out, named, by.track ? contentsIn(by.format, *by.track) : Contents()));
  if (!isLost) return;
  throw CommandFailure(
      fmt::format("{} is a recording and would be lost: choose another name to write to", out));
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
