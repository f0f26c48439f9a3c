#include "Tools/DevServer/HTTP/RequestParser.hpp"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace ombrix::devserver {
namespace {

constexpr std::size_t kMostHeadBytes = std::size_t{64} * 1024;
constexpr std::size_t kMostLineBytes = std::size_t{4} * 1024;  // for a chunk's size or a trailer
constexpr std::size_t kMostReservedBytes = std::size_t{16} * 1024 * 1024;

std::optional<std::uint64_t> wholeNumber(std::string_view text, int base) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

RequestParser::State RequestParser::parse(std::string_view& bytes) {
  if (phase_ == Phase::head) {
    const State state = parseHead(bytes);
    if (state != State::complete) return state;
    phase_ = remaining_ == 0 && phase_ == Phase::sizedBody ? Phase::complete : phase_;
    if (phase_ != Phase::complete && bytes.empty() &&
        equalsIgnoringCase(request_.headers.value("Expect"), "100-continue")) {
      return State::wantsContinue;
    }
  }
  return parseBody(bytes);
}

Request RequestParser::take() {
  phase_ = Phase::head;
  scanned_ = 0;
  return std::exchange(request_, {});
}

RequestParser::State RequestParser::parseHead(std::string_view& bytes) {
  while (bytes.starts_with("\r\n")) {  // empty lines before a request are skipped
    bytes.remove_prefix(2);
    scanned_ = 0;
  }
  const std::size_t end = bytes.find("\r\n\r\n", scanned_ > 3 ? scanned_ - 3 : 0);
  if (std::min(end, bytes.size()) > kMostHeadBytes) {
    fail(431, "the head of the request is too long");
    return State::failed;
  }
  if (end == std::string_view::npos) {
    scanned_ = bytes.size();
    return State::incomplete;
  }
  std::string_view head = bytes.substr(0, end + 2);
  bytes.remove_prefix(end + 4);
  bool isFirst = true;
  while (!head.empty()) {
    const std::size_t length = head.find("\r\n");
    const std::string_view line = head.substr(0, length);
    head.remove_prefix(length + 2);
    if (!(isFirst ? parseRequestLine(line) : parseField(line))) return State::failed;
    isFirst = false;
  }
  return chooseFraming() ? State::complete : State::failed;
}

bool RequestParser::parseRequestLine(std::string_view line) {
  const std::size_t first = line.find(' '), last = line.rfind(' ');
  if (first == std::string_view::npos || first == last || first == 0) {
    return fail(400, "the request line is not one");
  }
  const std::string_view version = line.substr(last + 1);
  if (version != "HTTP/1.1" && version != "HTTP/1.0") {
    return fail(version.starts_with("HTTP/") ? 505 : 400, "only HTTP/1.1 and HTTP/1.0 are spoken");
  }
  std::string_view target = line.substr(first + 1, last - first - 1);
  request_.method = line.substr(0, first);
  request_.target = target;
  request_.isKeptAlive = version == "HTTP/1.1";
  if (!target.starts_with('/')) {  // the absolute form that is sent to proxies
    const std::size_t scheme = target.find("://");
    if (scheme == std::string_view::npos) return fail(400, "the target is not a path");
    target.remove_prefix(std::min(target.find('/', scheme + 3), target.size()));
    if (target.empty()) target = "/";
  }
  const std::size_t query = std::min(target.find('?'), target.size());
  request_.path = percentDecoded(target.substr(0, query), false);
  if (query < target.size()) request_.query = parseQuery(target.substr(query + 1));
  return true;
}

bool RequestParser::parseField(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0 || line.find_first_of(" \t") < colon) {
    return fail(400, "a header field has no name");
  }
  request_.headers.add(std::string(line.substr(0, colon)),
                       std::string(trimmed(line.substr(colon + 1))));
  return true;
}

bool RequestParser::chooseFraming() {
  const auto connection = request_.headers.value("Connection");
  if (equalsIgnoringCase(connection, "close")) request_.isKeptAlive = false;

  const auto lengths = request_.headers.values("Content-Length");
  if (const std::string* encoding = request_.headers.find("Transfer-Encoding")) {
    if (!equalsIgnoringCase(*encoding, "chunked")) {
      return fail(501, "the only transfer encoding spoken is chunked");
    }
    if (!lengths.empty()) return fail(400, "both a length and a transfer encoding were given");
    phase_ = Phase::chunkSize;
    return true;
  }
  phase_ = Phase::sizedBody;
  remaining_ = 0;
  if (lengths.empty()) return true;
  const auto length = wholeNumber(lengths.front(), 10);
  const bool agree = std::ranges::all_of(lengths, [&](auto one) { return one == lengths.front(); });
  if (!length || !agree) return fail(400, "the length of the body is unclear");
  if (*length > mostBodyBytes_) return fail(413, "the body is too long");
  remaining_ = *length;
  request_.body.reserve(std::min<std::size_t>(*length, kMostReservedBytes));
  return true;
}

RequestParser::State RequestParser::parseBody(std::string_view& bytes) {
  while (phase_ != Phase::complete && phase_ != Phase::failed) {
    if (!advance(bytes)) return State::incomplete;
  }
  return phase_ == Phase::complete ? State::complete : State::failed;
}

// Performs one step on the body; false when it needs more bytes.
bool RequestParser::advance(std::string_view& bytes) {
  if (phase_ == Phase::sizedBody || phase_ == Phase::chunk) {
    takeBody(bytes);
    if (remaining_ > 0) return false;
    phase_ = phase_ == Phase::chunk ? Phase::chunkEnd : Phase::complete;
    return true;
  }
  const auto line = readLine(bytes);
  if (!line) return phase_ == Phase::failed;
  if (phase_ == Phase::chunkSize) {
    beginChunk(*line);
  } else if (phase_ == Phase::chunkEnd) {
    phase_ = Phase::chunkSize;
    if (!line->empty()) fail(400, "a chunk is longer than its size");
  } else if (line->empty()) {  // the line after the trailers
    phase_ = Phase::complete;
  }
  return true;
}

void RequestParser::beginChunk(std::string_view line) {
  const auto size = wholeNumber(trimmed(line.substr(0, line.find(';'))), 16);
  if (!size) {
    fail(400, "a chunk has no size");
  } else if (*size > mostBodyBytes_ - request_.body.size()) {
    fail(413, "the body is too long");
  } else {
    remaining_ = *size;
    phase_ = *size == 0 ? Phase::trailers : Phase::chunk;
  }
}

std::optional<std::string_view> RequestParser::readLine(std::string_view& bytes) {
  const std::size_t end = bytes.find("\r\n");
  if (std::min(end, bytes.size()) > kMostLineBytes) fail(400, "a line is too long");
  if (end == std::string_view::npos || phase_ == Phase::failed) return std::nullopt;
  const std::string_view line = bytes.substr(0, end);
  bytes.remove_prefix(end + 2);
  return line;
}

void RequestParser::takeBody(std::string_view& bytes) {
  const auto part =
      bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, bytes.size())));
  request_.body += part;
  remaining_ -= part.size();
  bytes.remove_prefix(part.size());
}

bool RequestParser::fail(int status, std::string_view message) {
  phase_ = Phase::failed;
  failure_ = {status, message};
  return false;
}

}  // namespace ombrix::devserver
