#include <charconv>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/HTTPHeaderReader.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

namespace ombrix::platform::detail {
namespace {

std::string_view withoutLineEnd(std::string_view line) {
  if (line.ends_with('\n')) line.remove_suffix(1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

}  // namespace

HTTPHeaderReader::Result HTTPHeaderReader::add(std::string_view line) {
  bytes_ += line.size();
  if (bytes_ > kMaximumBytes) return Result::tooLong;
  if (isComplete_) return Result::more;  // a trailer
  line = withoutLineEnd(line);
  if (statusCode_ == 0) return readStatus(line) ? Result::more : Result::malformed;
  if (line.empty()) {
    keepField();
    if (statusCode_ == 101) return Result::upgrade;
    if (statusCode_ < 200) {
      statusCode_ = 0;
      headers_ = {};
      return Result::more;
    }
    isComplete_ = true;
    return Result::complete;
  }
  if (++fields_ > kMaximumFields) return Result::tooLong;
  return readField(line);
}

bool HTTPHeaderReader::readStatus(std::string_view line) {
  if (!line.starts_with("HTTP/")) return false;
  const auto blank = line.find(' ');
  if (blank == std::string_view::npos || line.size() < blank + 4) return false;
  const char* digits = line.data() + blank + 1;
  const auto [end, error] = std::from_chars(digits, digits + 3, statusCode_);
  const bool isNumber = error == std::errc() && end == digits + 3 && statusCode_ >= 100;
  const bool ends = line.size() == blank + 4 || line[blank + 4] == ' ';
  if (!isNumber || !ends) {
    statusCode_ = 0;
    return false;
  }
  httpVersion_ = line.substr(0, blank);
  return true;
}

HTTPHeaderReader::Result HTTPHeaderReader::readField(std::string_view line) {
  if (kBlanks.contains(line.front())) {
    if (name_.empty()) return Result::malformed;
    value_.append(" ").append(trimmed(line, kBlanks));
    return HTTPHeaders::isValue(value_) ? Result::more : Result::malformed;
  }
  keepField();
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return Result::malformed;
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = trimmed(line.substr(colon + 1), kBlanks);
  if (!name.empty() && kBlanks.contains(name.back())) return Result::ambiguous;
  if (!HTTPHeaders::isName(name) || !HTTPHeaders::isValue(value)) return Result::malformed;
  name_ = name;
  value_ = value;
  return Result::more;
}

void HTTPHeaderReader::keepField() {
  if (!name_.empty()) headers_.add(std::move(name_), std::move(value_));
  name_.clear();
}

namespace {

/// The number that all lengths of a list state; empty when they differ.
std::optional<std::int64_t> singleLength(std::string_view list) {
  std::optional<std::int64_t> length;
  while (true) {
    const auto comma = list.find(',');
    const std::string_view text = trimmed(list.substr(0, comma), kBlanks);
    std::int64_t number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc() && end == text.data() + text.size() && number >= 0;
    if (!isNumber || text.starts_with('-') || length.value_or(number) != number) {
      return std::nullopt;
    }
    length = number;
    if (comma == std::string_view::npos) return length;
    list.remove_prefix(comma + 1);
  }
}

}  // namespace

BodyFraming framingOf(std::string_view method, int statusCode, const HTTPHeaders& headers) {
  using Kind = BodyFraming::Kind;
  const auto coding = headers.value("Transfer-Encoding");
  const auto stated = headers.value("Content-Length");
  if (coding && !headerNamesEqual(*coding, "chunked")) {
    return {.fault = "the answer has a transfer coding that nobody asked for"};
  }
  if (coding && stated) return {.fault = "the answer states its length in two ways"};
  const auto length = stated ? singleLength(*stated) : std::nullopt;
  if (stated && !length) return {.fault = "the answer states no single length"};
  if (method == "HEAD" || statusCode == 204 || statusCode == 304) return {};
  if (coding) return {.kind = Kind::chunked};
  return length ? BodyFraming{.kind = Kind::length, .length = *length}
                : BodyFraming{.kind = Kind::untilClose};
}

}  // namespace ombrix::platform::detail
