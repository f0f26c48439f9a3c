#include "Examples/HostApp/HeartRates.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Examples/HostApp/Commands.hpp"
#include "OmbrixCore/Data/HRCSVParser.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"
#include "OmbrixPlatform/Health/HKQuantitySample.hpp"

namespace ombrix::hostapp {

std::vector<HeartRate> readHeartRates(const std::string& path) {
  const auto stream = platform::InputStream::withPath(path);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());
  const auto samples = HRCSVParser().parse(*stream);
  if (!samples) throw CommandFailure(fmt::format("cannot read {}", path));
  const auto beatsPerMinute = *platform::HKUnit::fromString("count/min");
  std::vector<HeartRate> rates;
  rates.reserve(samples->size());
  for (const auto& sample : *samples) {
    const double rate = sample.quantity().doubleValue(beatsPerMinute);
    if (std::isfinite(rate)) rates.push_back({sample.startDate(), rate});
  }
  std::ranges::stable_sort(rates, {}, &HeartRate::time);
  return rates;
}

}  // namespace ombrix::hostapp
