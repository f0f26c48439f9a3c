// The header of an answer, line by line, and the codings that it may name for a body: the lines up
// to the first empty one after the final status, the body in the rest.

#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/ContentDecoder.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/HTTPHeaderReader.hpp"

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
  const auto framing = detail::framingOf("GET", reader.statusCode(), reader.headers());
  require(framing.length >= 0);
  using Kind = detail::BodyFraming::Kind;
  require(framing.kind != Kind::length || reader.headers().contains("Content-Length"));
  require(framing.kind != Kind::chunked || reader.headers().contains("Transfer-Encoding"));
}

/// Decodes a body in pieces of that many bytes; nothing when it is damaged.
std::optional<Data> decoded(std::string_view codings, std::string_view body, std::size_t piece,
                            std::size_t step) {
  using enum detail::ContentDecoder::Result;
  detail::ContentDecoder decoder(codings);
  Data output;
  while (!body.empty()) {
    DataView input = bytesOf(body.substr(0, piece));
    body.remove_prefix(input.size());
    auto result = full;
    while (result == full) {
      const std::size_t before = output.size();
      result = decoder.decode(input, output, step);
      require(output.size() - before <= step);
    }
    if (result != ready) return std::nullopt;
    require(input.empty());
  }
  return decoder.isAtEnd() ? std::optional(std::move(output)) : std::nullopt;
}

/// A body must decode to the same bytes however it comes and however small the steps are.
void checkBody(std::string_view codings, std::string_view body) {
  require(decoded(codings, body, body.size() + 1, 1 << 16) == decoded(codings, body, 1, 100));
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
