#include "Examples/HostApp/Files/HeartRates.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <utility>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "OmbrixCore/Data/HRCSVParser.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Health/HKQuantitySample.hpp"

namespace ombrix::hostapp {

namespace {

constexpr std::size_t kMostBytes = std::size_t{256} << 20;  // more than ten million rows

/// The bytes of a file that a person chose.
std::string contentsOf(const std::string& path) {
  const auto stream = platform::InputStream::withPath(path);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());
  std::string contents;
  std::vector<std::byte> block(std::size_t{256} << 10);
  while (true) {
    const auto count = stream->read(block);
    if (!count) throw CommandFailure(fmt::format("reading {} stopped before its end", path));
    if (*count == 0) return contents;
    contents.append(reinterpret_cast<const char*>(block.data()), *count);
    if (contents.size() > kMostBytes) {
      throw CommandFailure(fmt::format("{} is too large for heart rates", path));
    }
  }
}

/// Takes out the lines that hold a single field: the parser stops the program at them.
/// @return how many there were
std::size_t removeShortLines(std::string& csv) {
  std::string kept;
  std::size_t removed = 0;
  for (std::size_t begin = 0; begin < csv.size();) {
    const std::size_t end = std::min(csv.find_first_of("\r\n", begin), csv.size() - 1) + 1;
    const auto line = std::string_view(csv).substr(begin, end - begin);
    if (line.contains(',')) {
      kept += line;
    } else if (line.find_first_not_of("\r\n") != line.npos) {
      ++removed;
    }
    begin = end;
  }
  csv = std::move(kept);
  return removed;
}

}  // namespace

std::vector<HeartRate> readHeartRates(const std::string& path) {
  std::string csv = contentsOf(path);
  const std::size_t removed = removeShortLines(csv);
  const auto samples = HRCSVParser().parse(std::string_view(csv));
  if (!samples || samples->empty()) {
    throw CommandFailure(fmt::format("there is no heart rate in {}", path));
  }
  if (removed > 0) {
    fmt::print(stderr, "ombrix: warning: {}: {} lines are no heart rates\n", path, removed);
  }
  const auto beatsPerMinute = *platform::HKUnit::fromString("count/min");
  std::vector<HeartRate> rates;
  rates.reserve(samples->size());
  for (const auto& sample : *samples) {
    const double rate = sample.quantity().doubleValue(beatsPerMinute);
    const double time = platform::timeIntervalSince1970(sample.startDate());
    if (std::isfinite(rate) && std::isfinite(time)) rates.push_back({sample.startDate(), rate});
  }
  std::ranges::stable_sort(rates, {}, &HeartRate::time);
  return rates;
}

void writeHeartRates(const std::string& path, std::span<const HeartRate> rates) {
  std::string rows;
  for (const HeartRate& rate : rates) {
    rows += fmt::format("{},{}\n", platform::timeIntervalSince1970(rate.time), rate.beatsPerMinute);
  }
  // What a write reports, the stream keeps for when it is closed.
  writeFile(path,
            [&](const auto& stream) { static_cast<void>(stream->write(platform::bytesOf(rows))); });
}

}  // namespace ombrix::hostapp
