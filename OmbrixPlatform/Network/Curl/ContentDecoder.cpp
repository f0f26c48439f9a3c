#include <zlib.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <span>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/ContentDecoder.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kPieceBytes = 32 * 1024;

// Window bits as zlib counts them: adding 32 detects gzip or zlib, a negative number means no
// wrapper.
constexpr int kGzipOrZlib = MAX_WBITS + 32;
constexpr int kBareDeflate = -MAX_WBITS;

}  // namespace

struct ContentDecoder::Stream {
  explicit Stream(bool gzip) : isGzip(gzip) {
    if (::inflateInit2(&z, kGzipOrZlib) != Z_OK) fatalError("inflate cannot be set up");
  }
  ~Stream() { ::inflateEnd(&z); }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  int inflateInto(DataView& input, std::span<std::byte> output);
  int inflateOnce(DataView& input);

  z_stream z{};
  const bool isGzip;
  bool hasBegun = false;
  bool hasEnded = false;
  bool mayHoldMore = false;       // the last step filled its output
  std::optional<std::byte> held;  // the first byte, which alone does not tell zlib's form
  std::uint64_t bytesIn = 0;
  std::uint64_t bytesOut = 0;
};

ContentDecoder::ContentDecoder(std::string_view codings) {
  const std::string_view name = trimmed(codings, kBlanks);
  const bool isGzip = headerNamesEqual(name, "gzip") || headerNamesEqual(name, "x-gzip");
  if (isGzip || headerNamesEqual(name, "deflate")) stream_ = std::make_unique<Stream>(isGzip);
}

ContentDecoder::ContentDecoder(ContentDecoder&&) noexcept = default;
ContentDecoder& ContentDecoder::operator=(ContentDecoder&&) noexcept = default;
ContentDecoder::~ContentDecoder() = default;

int ContentDecoder::Stream::inflateOnce(DataView& input) {
  // zlib takes the bytes as its own non-const type and leaves them as they are.
  z.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(input.data()));
  z.avail_in =
      static_cast<uInt>(std::min<std::size_t>(input.size(), std::numeric_limits<uInt>::max()));
  const uInt given = z.avail_in;
  const int result = ::inflate(&z, Z_NO_FLUSH);
  bytesIn += given - z.avail_in;
  input = input.subspan(given - z.avail_in);
  return result;
}

/// One step; `z.avail_out` tells how much of the output is left.
int ContentDecoder::Stream::inflateInto(DataView& input, std::span<std::byte> output) {
  z.next_out = reinterpret_cast<Bytef*>(output.data());
  z.avail_out = static_cast<uInt>(output.size());
  if (hasBegun || isGzip) {
    hasBegun = true;
    return inflateOnce(input);
  }
  // Some servers send "deflate" without the zlib wrapper that RFC 9110 asks for; two bytes tell.
  std::array<std::byte, 2> first{};
  if (!held) {
    held = input.front();
    input = input.subspan(1);
    if (input.empty()) return Z_OK;
  }
  first = {*std::exchange(held, std::nullopt), input.front()};
  input = input.subspan(1);
  hasBegun = true;
  DataView header(first);
  if (inflateOnce(header) != Z_DATA_ERROR) return Z_OK;
  bytesIn = 0;
  if (::inflateReset2(&z, kBareDeflate) != Z_OK) return Z_DATA_ERROR;
  header = first;
  return inflateOnce(header);
}

ContentDecoder::Result ContentDecoder::decode(DataView& input, Data& output,
                                              std::size_t maximumBytes) {
  if (isIdentity()) {
    const DataView taken = input.first(std::min(input.size(), maximumBytes));
    output.insert(output.end(), taken.begin(), taken.end());
    input = input.subspan(taken.size());
    return input.empty() ? Result::ready : Result::full;
  }
  Stream& stream = *stream_;
  std::array<std::byte, kPieceBytes> piece;
  while (!input.empty() || stream.mayHoldMore) {
    if (maximumBytes == 0) return Result::full;
    if (stream.hasEnded) {
      // Another gzip member may follow (RFC 1952 section 2.2); anything else is damage.
      if (!stream.isGzip || ::inflateReset(&stream.z) != Z_OK) return Result::damaged;
      stream.hasEnded = false;
    }
    const std::span room(piece.data(), std::min(piece.size(), maximumBytes));
    int result = stream.inflateInto(input, room);
    if (result == Z_BUF_ERROR) result = Z_OK;  // nothing more to do just now
    if (result != Z_OK && result != Z_STREAM_END) return Result::damaged;
    stream.hasEnded = result == Z_STREAM_END;
    stream.mayHoldMore = stream.z.avail_out == 0 && !stream.hasEnded;
    const DataView decoded = std::span(room).first(room.size() - stream.z.avail_out);
    output.insert(output.end(), decoded.begin(), decoded.end());
    maximumBytes -= decoded.size();
    stream.bytesOut += decoded.size();
    if (stream.bytesOut > kAnyRatioBytes && stream.bytesOut / kMaximumRatio > stream.bytesIn) {
      return Result::exploding;
    }
  }
  return Result::ready;
}

bool ContentDecoder::isAtEnd() const noexcept {
  return isIdentity() || (!stream_->held && (!stream_->hasBegun || stream_->hasEnded));
}

}  // namespace ombrix::platform::detail
