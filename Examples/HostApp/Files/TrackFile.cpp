#include "Examples/HostApp/Files/TrackFile.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::hostapp {
namespace {

platform::Data readStandardInput() {
  constexpr std::size_t kBlock = std::size_t{256} << 10;
  const auto stream =
      platform::InputStream::withDescriptor(STDIN_FILENO, platform::DescriptorOwnership::borrowed);
  if (const auto opened = stream->open(); !opened) throw CommandFailure(opened.error().what());
  platform::Data bytes;
  std::size_t size = 0;
  while (true) {
    if (size > kMostTrackBytes) throw CommandFailure("standard input is larger than 1 GiB");
    if (bytes.size() < size + kBlock) bytes.resize(std::max(2 * size, size + kBlock));
    const auto count = stream->read(std::span(bytes).subspan(size, kBlock));
    if (!count) throw CommandFailure(count.error().what());
    if (*count == 0) break;
    size += *count;
  }
  bytes.resize(size);
  return bytes;
}

}  // namespace

platform::Data readBytes(const std::string& path) {
  return path == "-" ? readStandardInput() : readWholeFile(path);
}

Track readTrackFile(const std::string& path, std::optional<TrackFormat> format) {
  const platform::Data bytes = readBytes(path);
  if (!format && path != "-") format = trackFormatOfFile(path);
  try {
    return ombrix::readTrack(bytes, format.value_or(trackFormatOfBytes(bytes)));
  } catch (const TrackFormatError& error) {
    throw CommandFailure(fmt::format("{}: {}", path, error.what()));
  }
}

void writeTrack(const std::string& path, std::span<const CLLocation> fixes) {
  writeFile(path, [fixes](const auto& stream) { LocationCSVWriter(stream).add(fixes); });
}

std::optional<TrackFormat> trackFormatNamed(const std::string& word) {
  if (word.empty()) return std::nullopt;
  return trackFormatOfFile("." + word);
}

}  // namespace ombrix::hostapp
