#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

// What the tests of the cache write their cases with.

namespace ombrix::platform::samples {

/// When the samples happen: Sun, 06 Nov 1994 08:49:37 GMT.
inline constexpr double kNow = 784'111'777;
inline constexpr std::string_view kNowText = "Sun, 06 Nov 1994 08:49:37 GMT";

/// Header fields of text, "Name: value" separated by "|".
inline HTTPHeaders fieldsOf(std::string_view text) {
  HTTPHeaders headers;
  while (!text.empty()) {
    const auto end = std::min(text.find('|'), text.size());
    const std::string_view field = text.substr(0, end);
    const auto colon = field.find(": ");
    headers.add(std::string(field.substr(0, colon)), std::string(field.substr(colon + 2)));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return headers;
}

inline std::string fieldsText(const HTTPHeaders& headers) {
  std::string text;
  for (const auto& [name, value] : headers) {
    text.append(text.empty() ? "" : "|").append(name).append(": ").append(value);
  }
  return text;
}

inline URLRequest requestFor(
    std::string_view url, std::string_view fields = "", std::string_view method = "GET",
    URLRequest::CachePolicy policy = URLRequest::CachePolicy::useProtocolCachePolicy) {
  URLRequest request(*URL::parse(url), policy);
  request.headers = fieldsOf(fields);
  request.httpMethod = method;
  return request;
}

inline CachedURLResponse answerOf(int status, std::string_view fields, std::string_view body = "",
                                  std::string_view url = "http://a.test/") {
  return {std::make_shared<const HTTPURLResponse>(*URL::parse(url), status, fieldsOf(fields)),
          std::make_shared<const Data>(dataFrom(body))};
}

/// Requests and bodies that follow from a number, for tests with many.
inline URLRequest numberedRequest(int n) {
  return requestFor("http://a.test/" + std::to_string(n));
}
inline std::string numberedBody(int n) {
  const auto bytes = static_cast<std::size_t>(n) * 7919 % 9000;  // below and above a page
  return std::to_string(n) + std::string(bytes, static_cast<char>('a' + n % 26));
}

}  // namespace ombrix::platform::samples
