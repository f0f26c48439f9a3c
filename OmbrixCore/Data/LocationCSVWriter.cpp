#include "OmbrixCore/Data/LocationCSVWriter.hpp"

#include <utility>

#include "OmbrixPlatform/Csv/NumberText.hpp"
#include "OmbrixPlatform/Csv/UTF8Tail.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix {
namespace {

constexpr platform::TruncatingNumberFormat kSixDecimals{6};
constexpr platform::TruncatingNumberFormat kOneDecimal{1};

// A torn "5.0,10.9" could end as "5.0,1", a whole row with another number; "5.0,1?" cannot.
constexpr platform::CSVWriter::Configuration kTrackFormat{
    .delimiter = ',', .newline = "\n", .tornRowEnd = "?"};

constexpr bool isLineBreak(char32_t scalar) noexcept {
  return (scalar >= U'\n' && scalar <= U'\r') || scalar == U'\u0085' || scalar == U'\u2028' ||
         scalar == U'\u2029';
}

std::shared_ptr<platform::OutputStream> appendingStream(const platform::URL& url) {
  if (!url.isFileURL()) platform::fatalError("No output stream can be made for a track's URL");
  return platform::OutputStream::withURL(url, platform::OutputFileMode::append);
}

}  // namespace

LocationCSVWriter::LocationCSVWriter(const platform::URL& url)
    : writer_(appendingStream(url), kTrackFormat) {
  // The only character that combines a line break with something else is "\r\n", itself a line
  // break: a file's last character begins with a line break exactly when its last scalar is one.
  const auto lastScalar = platform::lastScalarOfFile(url.path(), &isLineBreak);
  if (!lastScalar || isLineBreak(*lastScalar)) return;
  writer_.writeNewline();
  writer_.flush();
  linesBefore_ = writer_.linesWritten();
}

LocationCSVWriter::LocationCSVWriter(std::shared_ptr<platform::OutputStream> stream)
    : writer_(std::move(stream), kTrackFormat) {}

void LocationCSVWriter::add(const CLLocation& location) {
  addRow(location);
  writer_.flush();
}

void LocationCSVWriter::add(std::span<const CLLocation> locations) {
  for (const CLLocation& location : locations) addRow(location);
  writer_.flush();
}

void LocationCSVWriter::sync() {
  if (const auto synced = stream()->sync(); !synced) {
    throw platform::CSVError(platform::CSVError::Kind::cannotWriteStream, synced.error().what());
  }
}

void LocationCSVWriter::addRow(const CLLocation& location) {
  writer_.addField(platform::timeIntervalSince1970(location.timestamp), kSixDecimals);
  writer_.addField(location.coordinate.latitude, kSixDecimals);
  writer_.addField(location.coordinate.longitude, kSixDecimals);
  writer_.addField(location.altitude, kSixDecimals);
  writer_.addField(location.course, kOneDecimal);
  writer_.addField(location.speed, kSixDecimals);
  writer_.addField(location.verticalAccuracy, kOneDecimal);
  writer_.addField(location.horizontalAccuracy, kOneDecimal);
  writer_.endRow();
}

}  // namespace ombrix
