#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "OmbrixPlatform/Files/URL.hpp"
#include "OmbrixPlatform/Network/HTTPHeaders.hpp"

namespace ombrix::platform {

/// The answer to a request, apart from its body; immutable, held by `std::shared_ptr<const>`.
class URLResponse {
 public:
  explicit URLResponse(URL url) : url_(std::move(url)) {}
  virtual ~URLResponse() = default;

  /// The URL that the answer came from, after redirects.
  [[nodiscard]] const URL& url() const noexcept { return url_; }

 private:
  URL url_;
};

/// The status and header fields of an HTTP answer.
class HTTPURLResponse final : public URLResponse {
 public:
  HTTPURLResponse(URL url, int statusCode, HTTPHeaders headers,
                  std::string httpVersion = "HTTP/1.1")
      : URLResponse(std::move(url)),
        statusCode_(statusCode),
        headers_(std::move(headers)),
        httpVersion_(std::move(httpVersion)) {}

  [[nodiscard]] int statusCode() const noexcept { return statusCode_; }
  [[nodiscard]] const HTTPHeaders& headers() const noexcept { return headers_; }

  /// "HTTP/1.1", "HTTP/2", …
  [[nodiscard]] const std::string& httpVersion() const noexcept { return httpVersion_; }

  /// The value of a header field; empty when there is none. Valid as long as the response is.
  [[nodiscard]] std::optional<std::string_view> valueForHTTPHeaderField(
      std::string_view name) const noexcept {
    return headers_.value(name);
  }

 private:
  int statusCode_;
  HTTPHeaders headers_;
  std::string httpVersion_;
};

}  // namespace ombrix::platform
