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
#include "OmbrixPlatform/Csv/CSVReader.hpp"
#include "OmbrixPlatform/Csv/NumberText.hpp"
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

/// The rows that hold two numbers, as the parser wants them: it stops the program at a row of one
/// field.
/// @param[out] left How many rows hold none.
std::string wholeRows(std::string_view csv, std::size_t& left) {
  std::string rows;
  platform::CSVReader reader(csv, {.keptFields = 2});
  while (const auto row = reader.next()) {
    const bool isWhole = row->size() >= 2 && platform::doubleFromText((*row)[0]) &&
                         platform::doubleFromText((*row)[1]);
    if (isWhole) {
      rows += fmt::format("{},{}\n", (*row)[0], (*row)[1]);
    } else {
      ++left;
    }
  }
  return rows;
}

}  // namespace

std::vector<HeartRate> readHeartRates(const std::string& path) {
  std::size_t left = 0;
  const std::string rows = wholeRows(contentsOf(path), left);
  const auto samples = HRCSVParser().parse(std::string_view(rows));
  if (!samples || samples->empty()) {
    throw CommandFailure(fmt::format("there is no heart rate in {}", path));
  }
  if (left > 0) {
    fmt::print(stderr, "ombrix: warning: {}: {} rows are no heart rates\n", path, left);
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
