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

Contents contentsOf(const Track& track) {
  Contents contents;
  for (const CLLocation& fix : track.fixes) {
    contents.fixes.add(platform::timeIntervalSince1970(fix.timestamp));
  }
  for (const HeartRate& rate : track.heartRates) {
    contents.heartRates.add(platform::timeIntervalSince1970(rate.time));
  }
  return contents;
}

/// The rows of a CSV file that begin with two numbers: fixes or heart rates.
Extent rowsOf(const std::string& path) {
  Extent rows;
  const auto stream = platform::InputStream::withPath(path);
  try {
    platform::CSVReader reader(*stream, {.keptFields = 2});
    while (const auto row = reader.next()) {
      if (row->size() < 2 || !platform::doubleFromText((*row)[1])) continue;
      if (const auto seconds = platform::doubleFromText((*row)[0])) rows.add(*seconds);
    }
  } catch (const platform::CSVError&) {
    // What cannot be read is not kept from those who may write it.
  }
  return rows;
}

bool holdsAllOf(const std::string& path, TrackFormat format, const Contents& contents) {
  if (format == TrackFormat::csv) {
    const Extent rows = rowsOf(path);
    return contents.fixes.covers(rows) || contents.heartRates.covers(rows);
  }
  try {
    const Contents older = contentsOf(readTrackFile(path, format));
    return contents.fixes.covers(older.fixes) && contents.heartRates.covers(older.heartRates);
  } catch (const CommandFailure&) {
    return true;  // Nothing of it can be read.
  }
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
  const bool isLost =
      (named && named != by.format) ||
      (isRead ? by.track == nullptr
              : holdsMore(out, named, by.track ? contentsOf(*by.track) : Contents()));
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
  if (one != other && whole(one) != whole(other)) return;
  throw CommandFailure(fmt::format("{} and {} are one file", one, other));
}

}  // namespace ombrix::hostapp
