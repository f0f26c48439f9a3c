#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <limits>

namespace ombrix::platform {
namespace {

// The character classes of RFC 3986, one bit each. "%" is handled separately.
enum CharacterClass : std::uint8_t {
  kScheme = 1,
  kHostName = 2,
  kUserInfo = 4,
  kPath = 8,
  kQuery = 16,
  kHexDigit = 32,
  kEndsScheme = 64,
  kEndsAuthority = 128,
};

constexpr std::array<std::uint8_t, 256> makeClasses() {
  std::array<std::uint8_t, 256> classes{};
  const auto add = [&](std::string_view characters, int bits) {
    for (const char c : characters) {
      auto& entry = classes[static_cast<unsigned char>(c)];
      entry = static_cast<std::uint8_t>(entry | bits);
    }
  };
  constexpr int kEverywhere = kHostName | kUserInfo | kPath | kQuery;
  add("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", kScheme | kEverywhere);
  add("-._~!$&'()*+,;=", kEverywhere);
  add("+-.", kScheme);
  add(":", kUserInfo | kPath | kQuery);
  add("@/", kPath | kQuery);
  add("?", kQuery);
  add("0123456789ABCDEFabcdef", kHexDigit);
  add(":/?#", kEndsScheme);
  add("/?#", kEndsAuthority);
  return classes;
}
constexpr auto kClasses = makeClasses();

constexpr bool is(char c, std::uint8_t bits) noexcept {
  return (kClasses[static_cast<unsigned char>(c)] & bits) != 0;
}

/// Where the first character of a class stands; the text's length when there is none.
std::size_t findClass(std::string_view text, std::size_t from, std::uint8_t bits) noexcept {
  while (from < text.size() && !is(text[from], bits)) ++from;
  return from;
}

constexpr bool isLetter(char c) noexcept {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

constexpr bool startsEscape(std::string_view rest) noexcept {
  return rest.size() >= 3 && rest[0] == '%' && is(rest[1], kHexDigit) && is(rest[2], kHexDigit);
}

bool consistsOf(std::string_view text, std::uint8_t bits) noexcept {
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (is(text[i], bits)) continue;
    if (!startsEscape(text.substr(i))) return false;
    i += 2;
  }
  return true;
}

/// Decodes a text that is known to hold whole escapes only.
std::string decoded(std::string_view text) {
  std::string result;
  auto escape = text.find('%');
  if (escape == std::string_view::npos) return std::string(text);
  result.reserve(text.size());
  for (; escape != std::string_view::npos; escape = text.find('%')) {
    result.append(text.substr(0, escape));
    result.push_back(
        static_cast<char>(hexValue(text[escape + 1]) * 16 + hexValue(text[escape + 2])));
    text.remove_prefix(escape + 3);
  }
  return result.append(text);
}

void appendEncoded(std::string& result, std::string_view text, std::uint8_t allowed) {
  while (true) {
    std::size_t plain = 0;
    while (plain < text.size() && is(text[plain], allowed)) ++plain;
    result.append(text.substr(0, plain));
    if (plain == text.size()) return;
    const auto byte = static_cast<unsigned char>(text[plain]);
    result.append({'%', kHexDigits[byte >> 4], kHexDigits[byte & 15U]});
    text.remove_prefix(plain + 1);
  }
}

struct HostAndPort {
  std::string_view userInfo, host, port;
  bool hasUserInfo = false;
};

/// Takes an authority apart; the host keeps its brackets.
HostAndPort splitAuthority(std::string_view authority) noexcept {
  HostAndPort parts;
  if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
    parts.hasUserInfo = true;
    parts.userInfo = authority.substr(0, at);
    authority.remove_prefix(at + 1);
  }
  const auto bracket = authority.rfind(']');
  const auto colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
  parts.host = authority.substr(0, colon);
  if (colon != std::string_view::npos) parts.port = authority.substr(colon + 1);
  return parts;
}

bool isAddressLiteral(std::string_view host) noexcept {
  if (!host.starts_with('[') || !host.ends_with(']')) return false;
  host = host.substr(1, host.size() - 2);
  if (host.starts_with('v') || host.starts_with('V')) {  // a future version: "v" hex "." text
    const auto dot = host.find('.');
    return dot != std::string_view::npos && dot > 1 && dot + 1 < host.size() &&
           std::ranges::all_of(host.substr(1, dot - 1), [](char c) { return is(c, kHexDigit); }) &&
           std::ranges::all_of(host.substr(dot + 1), [](char c) { return is(c, kUserInfo); });
  }
  if (host.size() >= INET6_ADDRSTRLEN) return false;
  std::array<char, INET6_ADDRSTRLEN> text{};
  std::ranges::copy(host, text.begin());
  in6_addr address{};
  return inet_pton(AF_INET6, text.data(), &address) == 1;
}

/// The number that a port's digits state; empty above 65535 and for anything but digits.
std::optional<std::uint16_t> portNumber(std::string_view digits) noexcept {
  std::uint16_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc{} || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

bool isAuthority(std::string_view authority) noexcept {
  const HostAndPort parts = splitAuthority(authority);
  return consistsOf(parts.userInfo, kUserInfo) &&
         (isAddressLiteral(parts.host) || consistsOf(parts.host, kHostName)) &&
         (parts.port.empty() || portNumber(parts.port));
}

/// RFC 3986 section 5.2.4, on segments: every "." is removed, and every ".." removes the segment
/// before it, too.
std::string removingDotSegments(std::string_view path) {
  std::string result;
  result.reserve(path.size());
  const bool isAbsolute = path.starts_with('/');
  if (isAbsolute) path.remove_prefix(1);
  while (true) {
    const auto slash = path.find('/');
    const bool isLast = slash == std::string_view::npos;
    const std::string_view segment = path.substr(0, slash);
    // Until the last segment is reached, `result` holds whole segments, each followed by "/".
    if (segment == "..") {
      if (!result.empty()) {
        const auto previous = result.rfind('/', result.size() - 2);
        result.resize(result.size() < 2 || previous == std::string::npos ? 0 : previous + 1);
      }
    } else if (segment != ".") {
      result.append(segment);
      if (!isLast) result.push_back('/');
    }
    if (isLast) break;
    path.remove_prefix(slash + 1);
  }
  if (isAbsolute) result.insert(result.begin(), '/');
  return result;
}

std::string_view withoutTrailingSlashes(std::string_view path) noexcept {
  while (path.ends_with('/')) path.remove_suffix(1);
  return path;
}

}  // namespace

std::optional<URL::Marks> URL::split(std::string_view text) {
  if (text.size() >= std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
  Marks marks;
  std::size_t at = 0;
  const auto delimiter = findClass(text, 0, kEndsScheme);
  if (delimiter < text.size() && text[delimiter] == ':') {
    const auto scheme = text.substr(0, delimiter);
    if (scheme.empty() || !isLetter(scheme[0]) ||
        !std::ranges::all_of(scheme, [](char c) { return is(c, kScheme); })) {
      return std::nullopt;  // nor may the first segment of a relative path contain a colon
    }
    marks.schemeEnd = static_cast<std::uint32_t>(delimiter);
    at = delimiter + 1;
  }
  if (text.substr(at).starts_with("//")) {
    at += 2;
    marks.authorityBegin = static_cast<std::uint32_t>(at);
    const auto end = findClass(text, at, kEndsAuthority);
    if (!isAuthority(text.substr(at, end - at))) return std::nullopt;
    at = end;
  }
  marks.pathBegin = static_cast<std::uint32_t>(at);
  const auto pathEnd = std::min(text.find_first_of("?#", at), text.size());
  const auto queryEnd = std::min(text.find('#', pathEnd), text.size());
  marks.pathEnd = static_cast<std::uint32_t>(pathEnd);
  marks.queryEnd = static_cast<std::uint32_t>(queryEnd);
  const bool isValid = consistsOf(text.substr(at, pathEnd - at), kPath) &&
                       (queryEnd == pathEnd ||
                        consistsOf(text.substr(pathEnd + 1, queryEnd - pathEnd - 1), kQuery)) &&
                       (queryEnd == text.size() || consistsOf(text.substr(queryEnd + 1), kQuery));
  if (!isValid) return std::nullopt;
  return marks;
}

std::optional<URL> URL::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto marks = split(text);
  if (!marks) return std::nullopt;
  return URL(std::string(text), *marks);
}

std::optional<URL> URL::parse(std::string_view reference, const URL& base) {
  const auto marks = split(reference);
  if (!marks) return std::nullopt;
  const URL relative(std::string(reference), *marks);
  if (relative.scheme()) {
    return relative.withPath(removingDotSegments(relative.encodedPath()));
  }

  std::string text;
  text.reserve(base.text_.size() + reference.size());
  if (const auto scheme = base.scheme()) text.append(*scheme).push_back(':');
  const auto authority = relative.authority() ? relative.authority() : base.authority();
  if (authority) text.append("//").append(*authority);

  std::string path;
  auto query = relative.query();
  const std::string_view given = relative.encodedPath();
  if (relative.authority() || given.starts_with('/')) {
    path = removingDotSegments(given);
  } else if (given.empty()) {
    path = base.encodedPath();
    if (!query) query = base.query();
  } else {
    const std::string_view basePath = base.encodedPath();
    std::string merged(basePath.substr(0, basePath.rfind('/') + 1));
    if (merged.empty() && base.authority()) merged = "/";
    path = removingDotSegments(merged.append(given));
  }
  // Without a host, "//" at the start of a path would read as one; without a scheme, a colon in the
  // first segment would read as its end (section 4.2).
  if (!authority && path.starts_with("//")) {
    text.append("/.");
  } else if (text.empty() && path.find(':') < path.find('/')) {
    text.append("./");
  }
  text.append(path);
  if (query) text.append("?").append(*query);
  if (const auto fragment = relative.fragment()) text.append("#").append(*fragment);
  if (text.empty()) return std::nullopt;
  const auto resolved = split(text);
  if (!resolved) return std::nullopt;
  return URL(std::move(text), *resolved);
}

URL URL::fileURL(std::string_view path) {
  return fileURL(path, path.empty() || path.ends_with('/'));
}

URL URL::fileURL(std::string_view path, bool isDirectory) {
  constexpr std::string_view kStart = "file://";
  std::string text(kStart);
  if (!path.starts_with('/')) {
    std::array<char, PATH_MAX> folder{};
    if (getcwd(folder.data(), folder.size()) != nullptr && folder[0] == '/') {
      appendEncoded(text, folder.data(), kPath);
    }
    if (!text.ends_with('/') || text.size() == kStart.size()) text.push_back('/');
  }
  appendEncoded(text, withoutTrailingSlashes(path), kPath);
  while (text.size() > kStart.size() + 1 && text.ends_with('/')) text.pop_back();
  if (text.size() == kStart.size() || (isDirectory && !text.ends_with('/'))) text.push_back('/');
  const auto end = static_cast<std::uint32_t>(text.size());
  return {std::move(text), Marks{.schemeEnd = 4,
                                 .authorityBegin = kStart.size(),
                                 .pathBegin = kStart.size(),
                                 .pathEnd = end,
                                 .queryEnd = end}};
}

std::optional<std::string_view> URL::scheme() const noexcept {
  if (marks_.schemeEnd == 0) return std::nullopt;
  return std::string_view(text_).substr(0, marks_.schemeEnd);
}

std::optional<std::string_view> URL::authority() const noexcept {
  if (marks_.authorityBegin == 0) return std::nullopt;
  return std::string_view(text_).substr(marks_.authorityBegin,
                                        marks_.pathBegin - marks_.authorityBegin);
}

std::optional<std::string_view> URL::userInfo() const noexcept {
  const HostAndPort parts = splitAuthority(authority().value_or(""));
  if (!parts.hasUserInfo) return std::nullopt;
  return parts.userInfo;
}

std::optional<std::string> URL::host() const {
  std::string_view host = splitAuthority(authority().value_or("")).host;
  if (host.empty()) return std::nullopt;
  if (host.starts_with('[')) return std::string(host.substr(1, host.size() - 2));
  return decoded(host);
}

std::optional<std::uint16_t> URL::port() const noexcept {
  return portNumber(splitAuthority(authority().value_or("")).port);
}

std::string_view URL::encodedPath() const noexcept {
  return std::string_view(text_).substr(marks_.pathBegin, marks_.pathEnd - marks_.pathBegin);
}

std::string URL::path() const {
  std::string_view path = encodedPath();
  if (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return decoded(path);
}

std::optional<std::string_view> URL::query() const noexcept {
  if (marks_.queryEnd == marks_.pathEnd) return std::nullopt;
  return std::string_view(text_).substr(marks_.pathEnd + 1, marks_.queryEnd - marks_.pathEnd - 1);
}

std::optional<std::string_view> URL::fragment() const noexcept {
  if (marks_.queryEnd == text_.size()) return std::nullopt;
  return std::string_view(text_).substr(marks_.queryEnd + 1);
}

bool URL::isFileURL() const noexcept {
  return std::ranges::equal(scheme().value_or(""), std::string_view("file"), {},
                            [](char c) { return static_cast<char>(c | 0x20); });
}

std::string URL::lastPathComponent() const {
  const std::string_view path = encodedPath();
  const std::string_view trimmed = withoutTrailingSlashes(path);
  if (trimmed.empty()) return path.empty() ? "" : "/";
  return decoded(trimmed.substr(trimmed.rfind('/') + 1));
}

std::string URL::pathExtension() const {
  const std::string name = lastPathComponent();
  const auto dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? "" : name.substr(dot + 1);
}

URL URL::withPath(std::string_view encoded) const {
  const std::string_view text = text_;
  std::string changed;
  changed.reserve(text.size() + encoded.size() + 2);
  changed.append(text.substr(0, marks_.pathBegin));
  if (!authority() && encoded.starts_with("//")) changed.append("/.");
  changed.append(encoded).append(text.substr(marks_.pathEnd));
  Marks marks = marks_;
  marks.pathEnd = static_cast<std::uint32_t>(changed.size() - (text.size() - marks_.pathEnd));
  marks.queryEnd = marks.pathEnd + (marks_.queryEnd - marks_.pathEnd);
  return {std::move(changed), marks};
}

URL URL::appendingPathComponent(std::string_view name) const {
  return appendingPathComponent(name, name.ends_with('/'));
}

URL URL::appendingPathComponent(std::string_view name, bool isDirectory) const {
  name = withoutTrailingSlashes(name);
  while (name.starts_with('/')) name.remove_prefix(1);
  std::string path(encodedPath());
  if (!name.empty()) {
    if (path.empty() ? authority().has_value() : !path.ends_with('/')) path.push_back('/');
    // A colon in the first segment of a relative path would end a scheme.
    if (path.empty() && !scheme()) path.append("./");
    appendEncoded(path, name, kPath);
  }
  if (isDirectory && !path.ends_with('/')) path.push_back('/');
  return withPath(path);
}

URL URL::deletingLastPathComponent() const {
  const std::string_view path = withoutTrailingSlashes(encodedPath());
  if (path.empty()) return *this;
  const auto slash = path.rfind('/');
  return withPath(slash == std::string_view::npos ? "./" : path.substr(0, slash + 1));
}

URL URL::deletingPathExtension() const {
  const std::string_view path = encodedPath();
  const std::string_view trimmed = withoutTrailingSlashes(path);
  const auto dot = trimmed.rfind('.');
  const auto nameBegin = trimmed.rfind('/') + 1;
  if (dot == std::string_view::npos || dot <= nameBegin || dot + 1 == trimmed.size()) return *this;
  return withPath(std::string(trimmed.substr(0, dot)).append(path.substr(trimmed.size())));
}

std::string addingPercentEncoding(std::string_view text, URLAllowedCharacters allowed) {
  std::string result;
  result.reserve(text.size());
  appendEncoded(result, text, allowed == URLAllowedCharacters::urlPathAllowed ? kPath : kQuery);
  return result;
}

std::optional<std::string> removingPercentEncoding(std::string_view text) {
  for (auto at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 3)) {
    if (!startsEscape(text.substr(at))) return std::nullopt;
  }
  return decoded(text);
}

}  // namespace ombrix::platform
