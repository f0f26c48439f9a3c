#include "Examples/HostApp/Files/HeartRates.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "OmbrixCore/Data/HRCSVParser.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Health/HKQuantitySample.hpp"

namespace ombrix::hostapp {

std::vector<HeartRate> readHeartRates(const std::string& path) {
  const auto stream = platform::InputStream::withPath(path);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());
  bool brokeOff = false;
  const CSVParseObserver observer(
      [&](const CSVParseProgress& progress) { brokeOff = progress.brokeOff; });
  const auto samples = HRCSVParser().parse(*stream, observer);
  if (brokeOff) throw CommandFailure(fmt::format("reading {} stopped before its end", path));
  if (!samples) throw CommandFailure(fmt::format("cannot read {}", path));
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
