#pragma once

// Private: the common part of the parsers of tracks and of heart rates. Log lines name the file and
// the function of the parser, so they also carry its line: `where`.

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "OmbrixCore/Data/CSVParseObserver.hpp"
#include "OmbrixCore/Extensions/Logging/Log.hpp"
#include "OmbrixPlatform/Concurrency/DispatchQueue.hpp"
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Files/URL.hpp"

namespace ombrix::detail {

/// Opens a stream on the file at a file URL's path; on failure returns null and logs an
/// error.
inline std::unique_ptr<platform::InputStream> openCSVStream(
    const platform::URL& url, LogTag tag,
    std::source_location where = std::source_location::current()) {
  auto stream = url.isFileURL() ? platform::InputStream::withURL(url) : nullptr;
  if (stream != nullptr && stream->open()) return stream;
  logError(tag, "Filesystem: Couldn't read input stream for CSV", where);
  return nullptr;
}

/// The next capacity when `count` items of `itemBytes` fill the list. Estimates the remaining rows
/// from those read so far, on samples of growing size, so that a long list is moved only once,
/// while it is short. The growth is bounded: the first rows may say nothing about a gigabyte after
/// them.
inline std::size_t nextCapacity(std::size_t count, std::size_t itemBytes,
                                const platform::CSVReader& reader) {
  constexpr std::size_t kFirstSample = 64;
  constexpr std::size_t kSecondSample = 1024;
  constexpr std::size_t kThirdSample = 16 * 1024;
  constexpr std::size_t kMostBytesAtOnce = 128 * 1024 * 1024;
  if (count == 0) return kFirstSample;
  const auto total = reader.bytesTotal();
  const auto read = reader.bytesRead();
  if (!total || *total <= read) return count + count / 2;
  // A tenth more than expected: unused capacity is never touched and costs no memory, while moving
  // the list once more would hold it twice in memory.
  const double rowsPerByte = static_cast<double>(count) / static_cast<double>(read);
  const auto expected =
      static_cast<std::size_t>(1.1 * rowsPerByte * static_cast<double>(*total - read));
  const std::size_t most = std::max(kMostBytesAtOnce / itemBytes, count / 2);
  const std::size_t estimate = count + std::min(std::max(expected, count / 8) + 1, most);
  if (count < kSecondSample) return std::min(estimate, kSecondSample);
  const bool isLong = estimate > 8 * kThirdSample;
  return isLong && count < kThirdSample ? kThirdSample : estimate;
}

/// Grows a full list, by less if memory is short.
/// @throws std::bad_alloc when there is none at all
template <class Item>
void makeRoom(std::vector<Item>& items, const platform::CSVReader& reader) {
  try {
    items.reserve(nextCapacity(items.size(), sizeof(Item), reader));
  } catch (const std::bad_alloc&) {
    items.reserve(items.size() + items.size() / 8 + 1);
  }
}

/// Reads all rows in order. Passes a row of exactly `Columns` plain numbers to `fromNumbers`, any
/// other row to `transform`, which returns the same item or logs an error and returns none.
template <std::size_t Columns, class Item, class FromNumbers, class Transform>
void readCSVRows(platform::CSVReader& reader, std::vector<Item>& items, CSVParseProgress& progress,
                 const CSVParseObserver& observer, FromNumbers fromNumbers, Transform transform,
                 LogTag tag, std::source_location where) {
  std::uint64_t nextReport = observer.isWatching() ? CSVParseObserver::kReportBytes
                                                   : std::numeric_limits<std::uint64_t>::max();
  std::uint64_t droppedRows = 0;
  std::array<double, Columns> numbers;
  while (true) {
    if (items.size() == items.capacity()) makeRoom(items, reader);
    if (reader.nextNumbers(numbers)) {
      items.push_back(fromNumbers(numbers));
    } else {
      const auto row = reader.next();
      for (; droppedRows < reader.droppedRows(); ++droppedRows, ++progress.rowsSkipped) {
        // Kept: the text of `parseTransform`, which a row with such a field never reaches.
        logError(tag, "Data: Error while trying to read CSV for migration, bad row", where);
      }
      if (!row) break;
      if (const std::optional<Item> item = transform(*row)) {
        items.push_back(*item);
      } else {
        ++progress.rowsSkipped;
      }
    }
    progress.bytesRead = reader.bytesRead();
    if (progress.bytesRead >= nextReport) {
      progress.rowsRead = items.size();
      observer.report(progress);
      nextReport = progress.bytesRead + CSVParseObserver::kReportBytes;
    }
  }
  progress.bytesRead = reader.bytesRead();
  progress.brokeOff = reader.error().has_value();
}

/// Logs a failure; if memory is too short even for a line, drops the line.
inline void logParseError(LogTag tag, std::source_location where) noexcept {
  try {
    logError(tag, "Data: Error parsing CSV", where);
  } catch (const std::exception&) {
    // There is no way left to report it.
  }
}

/// A complete synchronous parse of text or of a stream; if no reader can be created, logs an error
/// and returns nothing.
template <std::size_t Columns, class Item, class Source, class FromNumbers, class Transform>
std::optional<std::vector<Item>> parseCSV(Source&& source, const CSVParseObserver& observer,
                                          FromNumbers fromNumbers, Transform transform, LogTag tag,
                                          std::source_location where) {
  std::vector<Item> items;
  CSVParseProgress progress;
  bool hasReader = false;
  try {
    platform::CSVReader reader(source, {.keptFields = Columns});
    hasReader = true;
    progress.bytesTotal = reader.bytesTotal();
    readCSVRows<Columns>(reader, items, progress, observer, fromNumbers, transform, tag, where);
  } catch (const std::exception&) {
    // The source cannot be read, or memory is short.
    progress.brokeOff = true;
  }
  // The rows before a failure are valid: they are kept, and the log says that more are missing. The
  // reader has released its memory by now, which the log line may need.
  if (progress.brokeOff) logParseError(tag, where);
  if (!hasReader) return std::nullopt;
  progress.rowsRead = items.size();
  progress.isFinished = true;
  if (observer.isWatching()) observer.report(progress);
  return items;
}

/// Runs a part of a parse and returns its result; if it throws, for example for lack of memory,
/// logs an error and returns nothing.
template <class Piece>
auto loggingFailure(LogTag tag, Piece piece,
                    std::source_location where = std::source_location::current())
    -> decltype(piece()) {
  try {
    return piece();
  } catch (const std::exception&) {
    logParseError(tag, where);
    return {};
  }
}

inline const platform::URL& viewOf(const platform::URL& url) noexcept { return url; }
inline std::string_view viewOf(const std::string& string) noexcept { return string; }
inline platform::InputStream& viewOf(
    const std::shared_ptr<platform::InputStream>& stream) noexcept {
  return *stream;
}

/// Parses a source, kept until then, on a queue and calls the completion there with the result. If
/// the job cannot start, calls it with nothing on this thread.
/// @param makeSource Returns the source, or throws.
template <class Parser, class MakeSource>
void parseOn(platform::DispatchQueue& queue, const Parser& parser, MakeSource makeSource,
             typename Parser::Completion completion, CSVParseObserver observer, LogTag tag,
             std::source_location where = std::source_location::current()) {
  struct Work {
    Parser parser;
    std::invoke_result_t<MakeSource> source;
    typename Parser::Completion completion;
    CSVParseObserver observer;
  };
  std::shared_ptr<Work> work;
  try {
    work = std::make_shared<Work>(parser, makeSource());
    work->completion = std::move(completion);
    work->observer = std::move(observer);
    queue.async([work] {
      Work mine = std::move(*work);
      mine.completion(mine.parser.parse(viewOf(mine.source), mine.observer));
    });
  } catch (const std::exception&) {
    logParseError(tag, where);
    auto& left = work != nullptr && work->completion ? work->completion : completion;
    left(std::nullopt);
  }
}

}  // namespace ombrix::detail
