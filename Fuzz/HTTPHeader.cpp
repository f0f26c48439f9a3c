// The header of an answer, line by line, and the codings that it may name for a body: the lines up
// to the first empty one after the final status, the body in the rest.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "OmbrixPlatform/Network/Detail/ContentDecoder.hpp"
#include "OmbrixPlatform/Network/Detail/HTTPHeaderReader.hpp"

namespace {

using namespace ombrix::platform;
using detail::HTTPHeaderReader;

void require(bool condition) {
  if (!condition) std::abort();
}

void checkHeaders(const HTTPHeaderReader& reader) {
  require(reader.statusCode() >= 200 && reader.statusCode() <= 999);
  require(reader.httpVersion().starts_with("HTTP/"));
  require(reader.headers().size() <= HTTPHeaderReader::kMaximumFields);
  for (const auto& [name, value] : reader.headers()) {
    require(HTTPHeaders::isName(name) && HTTPHeaders::isValue(value));
  }
  const auto length = detail::contentLength(reader.headers());
  require(length.has_value() == reader.headers().contains("Content-Length"));
  require(!length || !*length || **length >= 0);
}

/// A body must decode to the same bytes whether it comes at once or piece by piece.
void checkBody(std::string_view codings, std::string_view body) {
  constexpr std::size_t kMaximumBytes = 1 << 20;
  auto whole = detail::ContentDecoder::make(codings);
  auto pieces = detail::ContentDecoder::make(codings);
  require(whole.has_value() == pieces.has_value());
  if (!whole) return;
  Data a;
  Data b;
  const bool isWhole = whole->decode(bytesOf(body), a, kMaximumBytes) && whole->isAtEnd();
  bool isWholeInPieces = true;
  for (std::size_t at = 0; isWholeInPieces && at < body.size(); ++at) {
    isWholeInPieces = pieces->decode(bytesOf(body.substr(at, 1)), b, kMaximumBytes);
  }
  isWholeInPieces = isWholeInPieces && pieces->isAtEnd();
  require(a.size() <= kMaximumBytes && b.size() <= kMaximumBytes);
  require(isWhole == isWholeInPieces);
  if (isWhole) require(a == b);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  HTTPHeaderReader reader;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n') + 1);
    if (line.empty()) break;
    rest.remove_prefix(line.size());
    const auto result = reader.add(line);
    if (result == HTTPHeaderReader::Result::more) continue;
    require((result == HTTPHeaderReader::Result::complete) == reader.isComplete());
    if (!reader.isComplete()) return 0;
    checkHeaders(reader);
    checkBody(reader.headers().value("Content-Encoding").value_or(""), rest);
    return 0;
  }
  return 0;
}
