#include <zlib.h>

#include <array>
#include <utility>

#include "OmbrixPlatform/Network/Detail/ContentDecoder.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

constexpr std::size_t kMaximumCodings = 4;
constexpr std::size_t kPieceBytes = 32 * 1024;

// Window bits as zlib counts them: 32 more finds out between gzip and zlib, negative is bare.
constexpr int kGzipOrZlib = MAX_WBITS + 32;
constexpr int kBareDeflate = -MAX_WBITS;

}  // namespace

struct ContentDecoder::Stage {
  explicit Stage(bool gzip) : isGzip(gzip) {
    if (::inflateInit2(&stream, kGzipOrZlib) != Z_OK) fatalError("inflate cannot be set up");
  }
  ~Stage() { ::inflateEnd(&stream); }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  z_stream stream{};
  const bool isGzip;
  bool hasBegun = false;
  bool hasEnded = false;
  std::optional<std::byte> held;  // the first byte, which alone does not tell zlib's form
};

ContentDecoder::ContentDecoder() = default;
ContentDecoder::ContentDecoder(ContentDecoder&&) noexcept = default;
ContentDecoder& ContentDecoder::operator=(ContentDecoder&&) noexcept = default;
ContentDecoder::~ContentDecoder() = default;

std::optional<ContentDecoder> ContentDecoder::make(std::string_view codings) {
  ContentDecoder decoder;
  while (true) {
    const auto comma = codings.rfind(',');
    std::string_view name = codings.substr(comma == std::string_view::npos ? 0 : comma + 1);
    const auto first = name.find_first_not_of(" \t");
    name = first == std::string_view::npos ? std::string_view() : name.substr(first);
    name = name.substr(0, name.find_last_not_of(" \t") + 1);
    const bool isGzip = headerNamesEqual(name, "gzip") || headerNamesEqual(name, "x-gzip");
    if (isGzip || headerNamesEqual(name, "deflate")) {
      if (decoder.stages_.size() == kMaximumCodings) return std::nullopt;
      decoder.stages_.push_back(std::make_unique<Stage>(isGzip));
    } else if (!name.empty() && !headerNamesEqual(name, "identity")) {
      return std::nullopt;
    }
    if (comma == std::string_view::npos) return decoder;
    codings = codings.substr(0, comma);
  }
}

bool ContentDecoder::decode(DataView input, Data& output, std::size_t maximumBytes) {
  return decodeFrom(0, input, output, maximumBytes);
}

bool ContentDecoder::decodeFrom(std::size_t index, DataView input, Data& output,
                                std::size_t maximumBytes) {
  if (index == stages_.size()) {
    if (input.size() > maximumBytes - std::min(maximumBytes, output.size())) return false;
    output.insert(output.end(), input.begin(), input.end());
    return true;
  }
  Stage& stage = *stages_[index];
  z_stream& stream = stage.stream;
  if (input.empty()) return true;
  Data joined;
  if (!stage.hasBegun && !stage.isGzip) {
    if (!stage.held && input.size() == 1) {
      stage.held = input.front();
      return true;
    }
    if (stage.held) {
      joined.push_back(*std::exchange(stage.held, std::nullopt));
      joined.insert(joined.end(), input.begin(), input.end());
      input = joined;
    }
  }
  // zlib takes the bytes as its own non-const type and leaves them as they are.
  stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(input.data()));
  stream.avail_in = static_cast<uInt>(input.size());
  std::array<std::byte, kPieceBytes> piece;
  bool outputWasFull = false;
  while (stream.avail_in > 0 || outputWasFull) {
    if (stage.hasEnded) {
      // Another gzip member may follow (RFC 1952 section 2.2); anything else is damage.
      if (!stage.isGzip || ::inflateReset(&stream) != Z_OK) return false;
      stage.hasEnded = false;
    }
    stream.next_out = reinterpret_cast<Bytef*>(piece.data());
    stream.avail_out = static_cast<uInt>(piece.size());
    int result = ::inflate(&stream, Z_NO_FLUSH);
    // Two bytes are the header of zlib's form.
    if (result == Z_DATA_ERROR && !stage.hasBegun && !stage.isGzip && stream.total_in <= 2) {
      // Some servers send "deflate" without the zlib wrapper that RFC 9110 asks for.
      if (::inflateReset2(&stream, kBareDeflate) != Z_OK) return false;
      stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(input.data()));
      stream.avail_in = static_cast<uInt>(input.size());
      stage.hasBegun = true;
      continue;
    }
    stage.hasBegun = true;
    if (result == Z_BUF_ERROR) result = Z_OK;  // nothing more to do just now
    if (result != Z_OK && result != Z_STREAM_END) return false;
    stage.hasEnded = result == Z_STREAM_END;
    outputWasFull = stream.avail_out == 0 && !stage.hasEnded;
    const DataView decoded{piece.data(), piece.size() - stream.avail_out};
    if (!decodeFrom(index + 1, decoded, output, maximumBytes)) return false;
  }
  return true;
}

bool ContentDecoder::isAtEnd() const noexcept {
  for (const auto& stage : stages_) {
    if (stage->held || (stage->hasBegun && !stage->hasEnded)) return false;
  }
  return true;
}

}  // namespace ombrix::platform::detail
