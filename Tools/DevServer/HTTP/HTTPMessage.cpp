#include "Tools/DevServer/HTTP/HTTPMessage.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <ctime>
#include <iterator>

#include "OmbrixPlatform/Coding/JSON.hpp"
#include "OmbrixPlatform/Network/HTTPDate.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

namespace ombrix::devserver {
namespace {

constexpr std::size_t kChunkBytes = 1000;

std::string_view reasonPhrase(int status) {
  static constexpr std::pair<int, std::string_view> kReasons[] = {
      {200, "OK"},
      {201, "Created"},
      {202, "Accepted"},
      {204, "No Content"},
      {206, "Partial Content"},
      {300, "Multiple Choices"},
      {301, "Moved Permanently"},
      {302, "Found"},
      {303, "See Other"},
      {304, "Not Modified"},
      {305, "Use Proxy"},
      {307, "Temporary Redirect"},
      {308, "Permanent Redirect"},
      {400, "Bad Request"},
      {401, "Unauthorized"},
      {403, "Forbidden"},
      {404, "Not Found"},
      {405, "Method Not Allowed"},
      {410, "Gone"},
      {413, "Content Too Large"},
      {422, "Unprocessable Content"},
      {429, "Too Many Requests"},
      {431, "Request Header Fields Too Large"},
      {500, "Internal Server Error"},
      {501, "Not Implemented"},
      {502, "Bad Gateway"},
      {503, "Service Unavailable"},
      {504, "Gateway Timeout"},
      {505, "HTTP Version Not Supported"},
  };
  const auto found = std::ranges::find(kReasons, status, &std::pair<int, std::string_view>::first);
  return found == std::end(kReasons) ? "Status" : found->second;
}

// The date of the current second, cached since a busy server needs it thousands of times.
const std::string& currentHTTPDate() {
  thread_local std::time_t second = 0;
  thread_local std::string text;
  const std::time_t now = std::time(nullptr);
  if (now != second) {
    second = now;
    text = httpDate(std::chrono::system_clock::from_time_t(now));
  }
  return text;
}

void appendChunks(std::string& out, std::string_view body) {
  while (!body.empty()) {
    const auto chunk = body.substr(0, kChunkBytes);
    fmt::format_to(std::back_inserter(out), "{:x}\r\n{}\r\n", chunk.size(), chunk);
    body.remove_prefix(chunk.size());
  }
  out += "0\r\n\r\n";
}

}  // namespace

void Fields::set(std::string name, std::string value) {
  remove(name);
  add(std::move(name), std::move(value));
}

void Fields::remove(std::string_view name) {
  std::erase_if(fields_, [&](const Field& field) { return equalsIgnoringCase(field.name, name); });
}

const std::string* Fields::find(std::string_view name) const {
  for (const Field& field : fields_) {
    if (equalsIgnoringCase(field.name, name)) return &field.value;
  }
  return nullptr;
}

std::string_view Fields::value(std::string_view name) const {
  const std::string* found = find(name);
  return found != nullptr ? std::string_view{*found} : std::string_view{};
}

std::vector<std::string_view> Fields::values(std::string_view name) const {
  std::vector<std::string_view> found;
  for (const Field& field : fields_) {
    if (equalsIgnoringCase(field.name, name)) found.push_back(field.value);
  }
  return found;
}

std::optional<std::uint64_t> Fields::number(std::string_view name) const {
  const std::string_view text = value(name);
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

Response Response::text(std::string body, int status, std::string_view contentType) {
  Response response;
  response.status = status;
  response.headers.add("Content-Type", std::string(contentType));
  response.body = std::move(body);
  return response;
}

Response Response::json(const platform::JSON& value, int status) {
  return text(std::string(platform::textOf(value.rawData())), status, "application/json");
}

Response Response::message(int status, std::string_view text) {
  return json(platform::JSON::Dictionary{{"message", text}}, status);
}

Response Response::following(Script script) {
  Response response;
  response.script = std::move(script);
  return response;
}

std::string Response::bytes(bool isForHead) const {
  std::string out;
  appendTo(out, isForHead);
  return out;
}

void Response::appendTo(std::string& out, bool isForHead) const {
  const bool hasNoBody = status == 204 || status == 304 || status < 200;
  const auto write = std::back_inserter(out);
  fmt::format_to(write, "HTTP/1.1 {} {}\r\n", status, reasonPhrase(status));
  bool hasDate = false, hasLength = hasNoBody;
  for (const auto& [name, value] : headers) {
    // A field without a value suppresses the one that would be added.
    hasDate = hasDate || equalsIgnoringCase(name, "Date");
    hasLength = hasLength || equalsIgnoringCase(name, "Content-Length");
    if (value.empty()) continue;
    out.append(name).append(": ").append(value).append("\r\n");
  }
  if (!hasDate) out.append("Date: ").append(currentHTTPDate()).append("\r\n");
  if (isChunked && !hasNoBody) {
    out += "Transfer-Encoding: chunked\r\n";
  } else if (!hasLength) {
    fmt::format_to(write, "Content-Length: {}\r\n", body.size());
  }
  out += "\r\n";
  if (isForHead || hasNoBody) return;
  if (isChunked) {
    appendChunks(out, body);
  } else {
    out += body;
  }
}

std::string httpDate(std::chrono::system_clock::time_point time) {
  return platform::httpTextFrom(platform::Date(time));
}

std::string percentDecoded(std::string_view text, bool blanks) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      const int high = platform::hexValue(text[i + 1]);
      const int low = platform::hexValue(text[i + 2]);
      if (high >= 0 && low >= 0) {
        out += static_cast<char>(high * 16 + low);
        i += 2;
        continue;
      }
    }
    out += blanks && text[i] == '+' ? ' ' : text[i];
  }
  return out;
}

Fields parseQuery(std::string_view text) {
  Fields items;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('&'), text.size());
    const std::string_view item = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (item.empty()) continue;
    const std::size_t equals = std::min(item.find('='), item.size());
    const std::string_view value = equals < item.size() ? item.substr(equals + 1) : "";
    items.add(percentDecoded(item.substr(0, equals), true), percentDecoded(value, true));
  }
  return items;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return platform::equalIgnoringASCIICase(a, b);
}

std::string_view trimmed(std::string_view text) noexcept {
  return platform::trimmed(text, platform::kBlanks);
}

}  // namespace ombrix::devserver
