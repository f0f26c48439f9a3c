#include "Examples/HostApp/Files/TrackFile.hpp"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>

#include "Examples/HostApp/Commands/Commands.hpp"
#include "Examples/HostApp/Files/WholeFile.hpp"
#include "Examples/HostApp/Texts/FigureTexts.hpp"
#include "Examples/HostApp/Texts/Text.hpp"
#include "OmbrixCore/Data/LocationCSVWriter.hpp"
#include "OmbrixPlatform/Files/InputStream.hpp"

namespace ombrix::hostapp {
namespace {

using platform::DataView;
using platform::FileResult;
using platform::InputStream;

/// A track's bytes from another stream, up to the largest size of a track; the beginning can be
/// examined before it is read.
class TrackStream final : public InputStream {
 public:
  explicit TrackStream(InputStream& source) : source_(source) {}

  FileResult<void> open() override {
    if (auto opened = source_.open(); !opened) return fail(opened.error());
    setStatus(platform::StreamStatus::open);
    head_.resize(kHeadBytes);
    std::size_t size = 0;
    while (size < kHeadBytes) {
      const auto count = source_.read(std::span(head_).subspan(size));
      if (!count) return fail(count.error());
      if (*count == 0) break;
      size += *count;
    }
    head_.resize(size);
    return {};
  }
  void close() noexcept override { source_.close(); }

  FileResult<std::size_t> read(std::span<std::byte> buffer) override {
    if (given_ < head_.size()) {
      const auto count = std::min(buffer.size(), head_.size() - given_);
      std::ranges::copy(head().subspan(given_, count), buffer.begin());
      given_ += count;
      return count;
    }
    const auto count = source_.read(buffer);
    if (!count) return fail(count.error());
    given_ += *count;
    if (given_ > kMostTrackBytes)
      return fail(platform::FileError(EFBIG, "read", "more than 1 GiB"));
    return count;
  }

  [[nodiscard]] DataView head() const noexcept { return head_; }
  [[nodiscard]] int fileDescriptor() const noexcept override { return source_.fileDescriptor(); }

 private:
  static constexpr std::size_t kHeadBytes = 4096;

  InputStream& source_;
  platform::Data head_;
  std::size_t given_ = 0;
};

platform::Data readAll(InputStream& stream) {
  constexpr std::size_t kBlockBytes = std::size_t{256} << 10;
  platform::Data bytes;
  std::size_t size = 0;
  while (true) {
    // Its capacity does not double: a large file leaves little memory.
    if (bytes.size() < size + kBlockBytes) bytes.resize(size + size / 4 + kBlockBytes);
    const auto count = stream.read(std::span(bytes).subspan(size));
    if (!count) throw CommandFailure(count.error().what());
    if (*count == 0) break;
    size += *count;
  }
  bytes.resize(size);
  return bytes;
}

Track readStream(const std::string& path, std::optional<TrackFormat> format) {
  const bool isStandardInput = path == "-";
  const auto source = isStandardInput ? InputStream::withDescriptor(
                                            STDIN_FILENO, platform::DescriptorOwnership::borrowed)
                                      : InputStream::withPath(path);
  TrackStream stream(*source);
  if (const auto opened = stream.open(); !opened) throw CommandFailure(opened.error().what());
  if (!format && !isStandardInput) format = trackFormatOfFile(path);
  if (!format) format = trackFormatOfBytes(stream.head());
  if (format == TrackFormat::csv) return readCSVTrack(stream);
  return ombrix::readTrack(readAll(stream), *format);
}

}  // namespace

Track readTrackFile(const std::string& path, std::optional<TrackFormat> format) {
  try {
    return readStream(path, format);
  } catch (const TrackFormatError& error) {
    throw CommandFailure(fmt::format("{}: {}", path, error.what()));
  } catch (const std::bad_alloc&) {
    throw TrackNeedsMemory(path + ": There is not memory enough to read the track.");
  }
}

void failIfIncomplete(const std::string& path, const std::string& fault) {
  if (fault.empty()) return;
  throw CommandFailure(fmt::format("{} could not be read whole: {}", path, fault));
}

TrackFormat trackFormatOfFileContents(const std::string& path) {
  const auto source = InputStream::withPath(path);
  TrackStream stream(*source);
  static_cast<void>(stream.open());  // An unreadable file looks like CSV.
  return trackFormatOfBytes(stream.head());
}

Track readTrackWithFixes(const std::string& path, std::optional<TrackFormat> format) {
  Track track = readTrackFile(path, format);
  if (track.fixes.empty()) {
    throw CommandFailure(fmt::format("there is no fix in {} ({} skipped)", path, track.skipped));
  }
  return track;
}

std::string leftOutText(std::span<const LeftOut> leftOut) {
  std::string all;
  for (const LeftOut& each : leftOut) {
    all += (all.empty() ? "" : ", ") + text(each.what);
    if (each.count > 1) all += fmt::format(" ({})", countText(each.count));
  }
  return all;
}

void tellLeftOut(const std::string& out, TrackFormat format, std::span<const LeftOut> leftOut) {
  if (leftOut.empty()) return;
  fmt::print(
      noticesBeside(out), "{}\n",
      fmt::format(fmt::runtime(text("Not kept in {}: {}")), nameOf(format), leftOutText(leftOut)));
}

void writeTrack(const std::string& path, std::span<const CLLocation> fixes) {
  writeFile(path, [fixes](const auto& stream) { LocationCSVWriter(stream).add(fixes); });
}

std::optional<TrackFormat> trackFormatNamed(const std::string& word) {
  if (word.empty()) return std::nullopt;
  return trackFormatOfFile("." + word);
}

}  // namespace ombrix::hostapp
