#include "OmbrixPlatform/Network/Caching/Detail/HTTPCacheControl.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

#include <algorithm>
#include <charconv>
#include <string>

namespace ombrix::platform::detail {
namespace {

/// The argument of a directive without its quotes. No number has an escape in it.
std::string_view unquoted(std::string_view text) noexcept {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
    return text.substr(1, text.size() - 2);
  }
  return text;
}

void apply(CacheControl& control, std::string_view name, std::optional<std::string_view> argument) {
  const auto is = [name](std::string_view other) { return headerNamesEqual(name, other); };
  const auto seconds = [&](std::int64_t otherwise) {
    return argument ? deltaSeconds(unquoted(*argument)).value_or(otherwise) : otherwise;
  };
  if (is("max-age")) {
    if (!control.maxAge) control.maxAge = seconds(0);
  } else if (is("no-cache")) {
    control.noCache = true;
  } else if (is("no-store")) {
    control.noStore = true;
  } else if (is("must-revalidate")) {
    control.mustRevalidate = true;
  } else if (is("must-understand")) {
    control.mustUnderstand = true;
  } else if (is("immutable")) {
    control.isImmutable = true;
  } else if (is("stale-while-revalidate")) {
    if (!control.staleWhileRevalidate) control.staleWhileRevalidate = seconds(0);
  } else if (is("stale-if-error")) {
    if (!control.staleIfError) control.staleIfError = seconds(0);
  } else if (is("public")) {
    control.isPublic = true;
  } else if (is("private")) {
    control.isPrivate = true;
  } else if (is("only-if-cached")) {
    control.onlyIfCached = true;
  } else if (is("min-fresh")) {
    if (!control.minFresh) control.minFresh = seconds(kMostDeltaSeconds);
  } else if (is("max-stale")) {
    if (!control.maxStale) control.maxStale = argument ? seconds(0) : kMostDeltaSeconds;
  }
}

}  // namespace

std::optional<std::int64_t> deltaSeconds(std::string_view text) {
  std::int64_t value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  const bool isWhole = stop == text.data() + text.size();
  if (text.empty() || text[0] == '-' || !isWhole) return std::nullopt;
  if (error == std::errc::result_out_of_range) return kMostDeltaSeconds;
  if (error != std::errc{}) return std::nullopt;
  return std::min(value, kMostDeltaSeconds);
}

std::string_view trimmed(std::string_view text) noexcept {
  return platform::trimmed(text, kBlanks);
}

std::string_view takeListPart(std::string_view& list) noexcept {
  bool isQuoted = false;
  std::size_t end = 0;
  for (; end < list.size(); ++end) {
    const char character = list[end];
    if (isQuoted && character == '\\') {
      ++end;
    } else if (character == '"') {
      isQuoted = !isQuoted;
    } else if (character == ',' && !isQuoted) {
      break;
    }
  }
  const std::string_view part = list.substr(0, end);
  list.remove_prefix(std::min(end + 1, list.size()));
  return trimmed(part);
}

CacheControl cacheControlOf(const HTTPHeaders& headers) {
  CacheControl control;
  const auto field = headers.value("Cache-Control");
  if (!field) return control;
  control.isThere = true;
  std::string_view list = *field;
  while (!list.empty()) {
    const std::string_view part = takeListPart(list);
    const auto equals = part.find('=');
    if (equals == std::string_view::npos) {
      apply(control, part, std::nullopt);
    } else {
      apply(control, trimmed(part.substr(0, equals)), trimmed(part.substr(equals + 1)));
    }
  }
  return control;
}

}  // namespace ombrix::platform::detail
