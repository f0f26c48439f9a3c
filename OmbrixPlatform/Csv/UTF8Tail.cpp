#include "OmbrixPlatform/Csv/UTF8Tail.hpp"

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>

#include "OmbrixPlatform/Detail/DecimalToDouble.hpp"
#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform {
namespace {

constexpr std::size_t kBlockBytes = 256 * 1024;

/// Enough bytes at the end of a file to hold its last scalar.
constexpr std::size_t kTailBytes = 8;

/// Checks UTF-8 in pieces and remembers the last scalar (RFC 3629, table of section 4).
class UTF8Checker {
 public:
  /// False as soon as a byte cannot belong to valid text.
  bool add(std::span<const unsigned char> bytes) noexcept {
    for (std::size_t i = 0; i < bytes.size();) {
      if (missing_ == 0 && bytes.size() - i >= 8) {
        const auto* const text = reinterpret_cast<const char*>(bytes.data() + i);
        if ((detail::loadEightBytes(text) & 0x8080808080808080) == 0) {
          i += 8;
          scalar_ = bytes[i - 1];
          continue;
        }
      }
      if (!addByte(bytes[i++])) return false;
    }
    return true;
  }

  [[nodiscard]] bool isComplete() const noexcept { return missing_ == 0; }
  [[nodiscard]] char32_t lastScalar() const noexcept { return scalar_; }

 private:
  bool addByte(unsigned char byte) noexcept {
    if (missing_ != 0) {
      if (byte < lowest_ || byte > highest_) return false;
      lowest_ = 0x80;
      highest_ = 0xBF;
      scalar_ = scalar_ << 6 | (byte & 0x3F);
      --missing_;
      return true;
    }
    lowest_ = byte == 0xE0 ? 0xA0 : byte == 0xF0 ? 0x90 : 0x80;
    highest_ = byte == 0xED ? 0x9F : byte == 0xF4 ? 0x8F : 0xBF;
    if (byte < 0x80) {
      scalar_ = byte;
    } else if (byte >= 0xC2 && byte <= 0xDF) {
      begin(1, byte & 0x1F);
    } else if (byte >= 0xE0 && byte <= 0xEF) {
      begin(2, byte & 0x0F);
    } else if (byte >= 0xF0 && byte <= 0xF4) {
      begin(3, byte & 0x07);
    } else {
      return false;
    }
    return true;
  }

  void begin(int missing, unsigned bits) noexcept {
    missing_ = missing;
    scalar_ = bits;
  }

  int missing_ = 0;
  unsigned char lowest_ = 0x80, highest_ = 0xBF;
  char32_t scalar_ = 0;
};

/// Reads exactly `buffer.size()` bytes at `place`.
bool readAt(int descriptor, std::span<unsigned char> buffer, off_t place) noexcept {
  while (!buffer.empty()) {
    const auto count =
        detail::retrying([&] { return ::pread(descriptor, buffer.data(), buffer.size(), place); });
    if (count <= 0) return false;
    buffer = buffer.subspan(static_cast<std::size_t>(count));
    place += count;
  }
  return true;
}

/// The last scalar, found from the end of the file alone.
std::optional<char32_t> scalarAtEnd(int descriptor, off_t size) {
  std::array<unsigned char, kTailBytes> end{};
  const auto count = std::min<std::size_t>(end.size(), static_cast<std::size_t>(size));
  if (!readAt(descriptor, std::span(end).first(count), size - static_cast<off_t>(count))) {
    return std::nullopt;
  }
  std::size_t begin = count - 1;
  while (begin > 0 && (end[begin] & 0xC0) == 0x80) --begin;
  UTF8Checker checker;
  if (!checker.add(std::span(end).subspan(begin, count - begin)) || !checker.isComplete()) {
    return std::nullopt;
  }
  return checker.lastScalar();
}

bool isUTF8(int descriptor, off_t size) {
  const auto block = std::make_unique_for_overwrite<unsigned char[]>(kBlockBytes);
  UTF8Checker checker;
  for (off_t place = 0; place < size;) {
    const auto count = std::min<off_t>(static_cast<off_t>(kBlockBytes), size - place);
    const std::span bytes(block.get(), static_cast<std::size_t>(count));
    if (!readAt(descriptor, bytes, place) || !checker.add(bytes)) return false;
    place += count;
  }
  return checker.isComplete();
}

}  // namespace

std::optional<char32_t> lastScalarOfFile(const std::string& path, bool (*settles)(char32_t)) {
  // Non-blocking: a path may name a pipe without a writer.
  const auto file = detail::openFile(path, O_RDONLY | O_NONBLOCK);
  struct stat info{};
  if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size == 0) {
    return std::nullopt;
  }
  const auto scalar = scalarAtEnd(file.get(), info.st_size);
  if (!scalar || settles(*scalar)) return scalar;
  if (!isUTF8(file.get(), info.st_size)) return std::nullopt;
  return scalar;
}

}  // namespace ombrix::platform
