#include "OmbrixPlatform/Network/Caching/Detail/HTTPCaching.hpp"

#include <algorithm>
#include <array>

#include "OmbrixPlatform/Network/Caching/Detail/HTTPCacheControl.hpp"
#include "OmbrixPlatform/Network/HTTPDate.hpp"
#include "OmbrixPlatform/Values/ASCII.hpp"

namespace ombrix::platform::detail {
namespace {

using Names = std::initializer_list<std::string_view>;

bool isAnyOf(std::string_view name, Names names) noexcept {
  return std::ranges::any_of(names, [name](auto other) { return headerNamesEqual(name, other); });
}

bool isAnyOf(int status, std::initializer_list<int> statuses) noexcept {
  return std::ranges::find(statuses, status) != statuses.end();
}

/// RFC 9110 section 15.1, without 206: parts are not kept.
bool isCacheableByDefault(int status) noexcept {
  return isAnyOf(status, {200, 203, 204, 300, 301, 308, 404, 405, 410, 414, 501});
}

/// The final statuses of RFC 9110.
bool isUnderstood(int status) noexcept {
  const bool isKnown = (status >= 200 && status <= 206) || (status >= 300 && status <= 308) ||
                       (status >= 400 && status <= 417) || isAnyOf(status, {421, 422, 426}) ||
                       (status >= 500 && status <= 505);
  return isKnown && status != 306;
}

/// Whether an answer with this status stands for the URL, and not for the request's conditions or
/// range.
bool isWhole(int status) noexcept {
  return status >= 200 && status <= 599 && !isAnyOf(status, {206, 304, 412, 416});
}

std::optional<Date> dateField(const HTTPHeaders& headers, std::string_view name, Date now) {
  const auto text = headers.value(name);
  return text ? dateFromHTTPText(trimmed(*text), now) : std::nullopt;
}

/// The value of "Age". Anything but one number counts as old: its meaning is unknown, and asking
/// once more is cheaper than serving an outdated answer.
double ageFieldSeconds(const HTTPHeaders& headers) {
  const auto age = headers.value("Age");
  return age ? static_cast<double>(deltaSeconds(trimmed(*age)).value_or(kMostDeltaSeconds)) : 0;
}

double secondsBetween(Date earlier, Date later) noexcept { return (later - earlier).count(); }

double lifetimeOf(int status, const HTTPHeaders& headers, const CacheControl& control, Date date,
                  Date now) {
  if (control.maxAge) return static_cast<double>(*control.maxAge);
  if (headers.contains("Expires")) {
    const auto expires = dateField(headers, "Expires", now);  // "0" and the like: long ago
    return expires ? std::max(0.0, secondsBetween(date, *expires)) : 0;
  }
  const auto modified = dateField(headers, "Last-Modified", now);
  if (!modified || !(isCacheableByDefault(status) || control.isPublic)) return 0;
  constexpr double kHeuristicShare = 0.1;  // RFC 9111 section 4.2.2
  return std::max(0.0, secondsBetween(*modified, date) * kHeuristicShare);
}

bool isOfConnection(std::string_view name) noexcept {
  return isAnyOf(name, {"Connection", "Keep-Alive", "Proxy-Connection", "Proxy-Authenticate",
                        "Proxy-Authentication-Info", "Proxy-Authorization", "TE", "Trailer",
                        "Transfer-Encoding", "Upgrade"});
}

/// Whether "Connection" nominates the field as one of its own.
bool isNominated(std::string_view name, const HTTPHeaders& headers) noexcept {
  std::string_view list = headers.value("Connection").value_or("");
  while (!list.empty()) {
    if (headerNamesEqual(takeListPart(list), name)) return true;
  }
  return false;
}

/// Entity tags compared weakly (RFC 9110 section 8.8.3.2).
bool tagsMatch(std::string_view a, std::string_view b) noexcept {
  const auto opaque = [](std::string_view tag) {
    return tag.starts_with("W/") ? tag.substr(2) : tag;
  };
  return opaque(a) == opaque(b);
}

/// Scheme, host and port of a key.
std::string_view originOf(std::string_view key) noexcept {
  const auto authority = key.find("://");
  if (authority == std::string_view::npos) return {};
  return key.substr(0, key.find('/', authority + 3));
}

bool isStored(URLRequest::CachePolicy policy) noexcept {
  return policy == URLRequest::CachePolicy::returnCacheDataElseLoad ||
         policy == URLRequest::CachePolicy::returnCacheDataDontLoad;
}

}  // namespace

double Freshness::ageSeconds(Date now) const noexcept {
  return initialAgeSeconds + std::max(0.0, secondsBetween(responseTime, now));
}

Freshness freshnessOf(int status, const HTTPHeaders& headers, const ExchangeTimes& times) {
  const CacheControl control = cacheControlOf(headers);
  const Date date = dateField(headers, "Date", times.response).value_or(times.response);
  const double age = ageFieldSeconds(headers);
  const double apparentAge = std::max(0.0, secondsBetween(date, times.response));
  const double delay = std::max(0.0, secondsBetween(times.request, times.response));
  return {
      .lifetimeSeconds = lifetimeOf(status, headers, control, date, times.response),
      .initialAgeSeconds = std::max(apparentAge, age + delay),
      .responseTime = times.response,
      .noCache = control.noCache,
      .mustRevalidate = control.mustRevalidate,
      .isImmutable = control.isImmutable,
      .hasValidator = headers.contains("ETag") || headers.contains("Last-Modified"),
      .staleWhileRevalidateSeconds = static_cast<double>(control.staleWhileRevalidate.value_or(0)),
      .staleIfErrorSeconds = static_cast<double>(control.staleIfError.value_or(0))};
}

bool isStorable(const URLRequest& request, const HTTPURLResponse& response) {
  const int status = response.statusCode();
  if (request.httpMethod != "GET" || !isWhole(status)) return false;
  const CacheControl control = cacheControlOf(response.headers());
  if (control.mustUnderstand ? !isUnderstood(status) : control.noStore) return false;
  if (cacheControlOf(request.headers).noStore) return false;
  if (!selectingFields(response.headers(), request.headers)) return false;
  return isCacheableByDefault(status) || control.maxAge || control.isPublic || control.isPrivate ||
         response.headers().contains("Expires");
}

bool isSafeMethod(std::string_view method) noexcept {
  return method == "GET" || method == "HEAD" || method == "OPTIONS" || method == "TRACE";
}

bool isPartialOrConditional(const HTTPHeaders& headers) noexcept {
  return std::ranges::any_of(headers, [](const HTTPHeaders::Field& field) {
    return isAnyOf(field.name, {"Range", "If-Range", "If-Match", "If-None-Match",
                                "If-Modified-Since", "If-Unmodified-Since"});
  });
}

StoredUse useOf(const URLRequest& request, const Freshness* stored, Date now) {
  using enum StoredUse;
  using enum URLRequest::CachePolicy;
  if (request.cachePolicy == reloadIgnoringLocalCacheData) return load;
  if (isStored(request.cachePolicy)) {
    if (stored != nullptr) return serve;
    return request.cachePolicy == returnCacheDataDontLoad ? unavailable : load;
  }
  CacheControl asked = cacheControlOf(request.headers);
  if (!asked.isThere) {
    std::string_view pragma = request.headers.value("Pragma").value_or("");
    while (!pragma.empty()) {
      asked.noCache = asked.noCache || headerNamesEqual(takeListPart(pragma), "no-cache");
    }
  }
  if (stored == nullptr) return asked.onlyIfCached ? unavailable : load;

  const double age = stored->ageSeconds(now);
  const double left = stored->lifetimeSeconds - age;
  const auto asDouble = [](std::int64_t seconds) { return static_cast<double>(seconds); };
  // The clock was set back since this answer came: nobody knows how old it is.
  const bool isKnownAge = stored->responseTime <= now;
  const bool isAllowed = isKnownAge && !stored->noCache && !asked.noCache;
  const bool isFreshEnough = left > 0 && !(asked.minFresh && left < asDouble(*asked.minFresh));
  const bool isStaleAllowed = left <= 0 && !asked.minFresh && !stored->mustRevalidate;
  const bool isTooOld = asked.maxAge && age > asDouble(*asked.maxAge);
  // A fresh answer that the server calls immutable needs no validation, even when a page is
  // reloaded.
  if (isAllowed && isFreshEnough && (!isTooOld || stored->isImmutable)) return serve;
  if (isAllowed && isStaleAllowed && !isTooOld) {
    if (asked.maxStale && -left <= asDouble(*asked.maxStale)) return serve;
    if (-left < stored->staleWhileRevalidateSeconds && !request.wantsEachAnswer) {
      return asked.onlyIfCached ? serve : serveWhileRevalidating;
    }
  }
  if (asked.onlyIfCached) return unavailable;
  return stored->hasValidator ? validate : load;
}

bool mayServeOnError(const URLRequest& request, const Freshness& stored, Date now) {
  if (request.cachePolicy != URLRequest::CachePolicy::useProtocolCachePolicy) return false;
  if (stored.noCache || stored.mustRevalidate || stored.responseTime > now) return false;
  if (cacheControlOf(request.headers).noCache) return false;
  const double beyond = std::max(0.0, stored.ageSeconds(now) - stored.lifetimeSeconds);
  return beyond < stored.staleIfErrorSeconds;
}

bool isServerError(int status) noexcept { return isAnyOf(status, {500, 502, 503, 504}); }

HTTPHeaders fieldsWithAge(const HTTPHeaders& stored, double ageSeconds) {
  HTTPHeaders fields = stored;
  const double whole = std::clamp(ageSeconds, 0.0, static_cast<double>(kMostDeltaSeconds));
  fields.set("Age", std::to_string(static_cast<std::int64_t>(whole)));
  return fields;
}

HTTPHeaders conditionsFrom(const HTTPHeaders& stored) {
  HTTPHeaders conditions;
  if (const auto tag = stored.value("ETag")) conditions.set("If-None-Match", std::string(*tag));
  if (const auto modified = stored.value("Last-Modified")) {
    conditions.set("If-Modified-Since", std::string(*modified));
  }
  return conditions;
}

HTTPHeaders fieldsToKeep(const HTTPHeaders& headers) {
  HTTPHeaders kept;
  for (const auto& [name, value] : headers) {
    const bool isLeftOut = isOfConnection(name) || isNominated(name, headers) ||
                           headerNamesEqual(name, "Authorization");
    if (!isLeftOut) kept.set(name, value);
  }
  return kept;
}

bool confirms(const HTTPHeaders& notModified, const HTTPHeaders& stored) {
  const auto differ = [&](std::string_view name, auto isEqual) {
    const auto theirs = notModified.value(name);
    const auto ours = stored.value(name);
    return theirs && ours && !isEqual(*theirs, *ours);
  };
  if (stored.contains("ETag")) return !differ("ETag", &tagsMatch);
  return !differ("Last-Modified", std::equal_to<>());
}

HTTPHeaders mergedFields(const HTTPHeaders& stored, const HTTPHeaders& notModified) {
  HTTPHeaders merged = stored;
  merged.remove("Age");  // the 304 has its own, or is new
  for (const auto& [name, value] : notModified) {
    const bool isOfBody = isAnyOf(name, {"Content-Length", "Content-Encoding", "Content-Range",
                                         "Content-MD5", "Content-Digest"});
    if (isOfBody || isOfConnection(name) || isNominated(name, notModified)) continue;
    merged.set(name, value);
  }
  return merged;
}

std::string cacheKey(const URL& url) {
  std::string key(url.absoluteString(), 0, url.absoluteString().find('#'));
  const auto schemeEnd = key.find("://");
  if (schemeEnd == std::string::npos) return key;
  const auto authority = schemeEnd + 3;
  auto end = std::min(key.find_first_of("/?", authority), key.size());
  const auto at = std::string_view(key).substr(0, end).rfind('@');
  const auto host = at != std::string::npos && at >= authority ? at + 1 : authority;
  const auto lowerCase = [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i < to; ++i) key[i] = asciiLowercased(key[i]);
  };
  lowerCase(0, schemeEnd);
  lowerCase(host, end);
  const std::string_view port = key.starts_with("https:") ? ":443" : ":80";
  const std::string_view authorityText = std::string_view(key).substr(authority, end - authority);
  if (authorityText.ends_with(port) || authorityText.ends_with(':')) {
    const auto length = authorityText.ends_with(':') ? 1 : port.size();
    end -= length;
    key.erase(end, length);
  }
  if (end == key.size() || key[end] == '?') key.insert(end, 1, '/');
  return key;
}

std::vector<std::string> invalidatedKeys(const URLRequest& request,
                                         const HTTPURLResponse& response) {
  const bool isError = response.statusCode() < 200 || response.statusCode() >= 400;
  if (isError || isSafeMethod(request.httpMethod)) return {};
  std::vector<std::string> keys{cacheKey(request.url)};
  for (const std::string_view name : {"Location", "Content-Location"}) {
    const auto text = response.headers().value(name);
    const auto url = text ? URL::parse(*text, request.url) : std::nullopt;
    if (!url) continue;
    std::string key = cacheKey(*url);
    if (originOf(key) == originOf(keys[0]) && key != keys[0]) keys.push_back(std::move(key));
  }
  return keys;
}

std::optional<SelectingFields> selectingFields(const HTTPHeaders& response,
                                               const HTTPHeaders& request) {
  SelectingFields fields;
  const auto add = [&](std::string_view name) {
    const auto value = request.value(name);
    fields.push_back(
        {asciiLowercased(name), value ? std::optional<std::string>(*value) : std::nullopt});
  };
  add("authorization");
  std::string_view list = response.value("Vary").value_or("");
  while (!list.empty()) {
    const std::string_view name = takeListPart(list);
    if (name == "*" || fields.size() == kMostSelectingFields) return std::nullopt;
    if (!name.empty() && !headerNamesEqual(name, "authorization")) add(name);
  }
  return fields;
}

bool selects(const SelectingFields& fields, const HTTPHeaders& request) noexcept {
  return std::ranges::all_of(fields, [&](const SelectingField& field) {
    const auto value = request.value(field.name);
    return field.value ? value == *field.value : !value;
  });
}

}  // namespace ombrix::platform::detail
