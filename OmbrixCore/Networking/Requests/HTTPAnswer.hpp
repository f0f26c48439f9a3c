#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"
#include "OmbrixPlatform/Values/SharedData.hpp"

namespace ombrix {

/// Measurements of a request: where its answer came from, times, and bytes of the bodies.
struct HTTPMetrics : platform::URLSessionTaskMetrics {
  std::int64_t bytesSent = 0;
  std::int64_t bytesReceived = 0;  ///< decoded
  int attempt = 1;                 ///< which attempt brought the answer, from 1
};

/// How the exchange of a request ended, in addition to what its callbacks get.
struct HTTPExchange {
  std::shared_ptr<const platform::HTTPURLResponse> response;  ///< null without an HTTP answer
  std::shared_ptr<const platform::URLError> error;            ///< null without a transport error
  HTTPMetrics metrics;
};

/// A successful answer. A value that is cheap to copy: copies share body and header fields.
struct HTTPAnswer {
  int code = 0;
  platform::SharedData data;  ///< the body; empty when there was none
  std::shared_ptr<const platform::HTTPURLResponse> response;  ///< null where code and body are all
  HTTPMetrics metrics;

  /// The value of a header field; empty when there is none. Valid as long as the answer is.
  [[nodiscard]] std::optional<std::string_view> header(std::string_view name) const noexcept {
    return response ? response->valueForHTTPHeaderField(name) : std::nullopt;
  }

  /// The URL that the answer came from, after redirects; null where `response` is.
  [[nodiscard]] const platform::URL* url() const noexcept {
    return response ? &response->url() : nullptr;
  }

  /// Whether status and body are equal; the rest does not count.
  friend bool operator==(const HTTPAnswer& a, const HTTPAnswer& b) {
    return a.code == b.code && a.data == b.data;
  }
};

}  // namespace ombrix
