#include "Examples/HostApp/Files/HeartRates.hpp"

#include <fmt/format.h>
#include <unistd.h>

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

/// The rows of a file that hold two numbers, as the parser requires: it stops the program at a row
/// of one field.
/// @param[out] left How many rows hold none.
std::string wholeRows(const std::string& path, std::size_t& left) try {
  const auto stream = path == "-" ? platform::InputStream::withDescriptor(
                                        STDIN_FILENO, platform::DescriptorOwnership::borrowed)
                                  : platform::InputStream::withPath(path);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());
  std::string rows;
  platform::CSVReader reader(*stream, {.keptFields = 2});
  while (const auto row = reader.next()) {
    const bool isWhole = row->size() >= 2 && platform::doubleFromText((*row)[0]) &&
                         platform::doubleFromText((*row)[1]);
    if (isWhole) {
      rows += fmt::format("{},{}\n", (*row)[0], (*row)[1]);
    } else {
      ++left;
    }
    if (rows.size() > kMostBytes) {
      throw CommandFailure(fmt::format("{} is too large for heart rates", path));
    }
  }
  return rows;
} catch (const platform::CSVError&) {
  throw CommandFailure(fmt::format("reading {} stopped before its end", path));
}

}  // namespace

std::vector<HeartRate> readHeartRates(const std::string& path) {
  std::size_t left = 0;
  const std::string rows = wholeRows(path, left);
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
  // The stream keeps a failed write's error until it is closed.
  writeFile(path,
            [&](const auto& stream) { static_cast<void>(stream->write(platform::bytesOf(rows))); });
}

}  // namespace ombrix::hostapp
