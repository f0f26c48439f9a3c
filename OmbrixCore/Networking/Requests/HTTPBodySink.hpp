#pragma once

#include <expected>
#include <memory>

#include "OmbrixPlatform/Network/HTTPHeaders.hpp"
#include "OmbrixPlatform/Network/URLError.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"

namespace ombrix {

class HttpRequestOperation;

/// Takes the body of a successful answer piece by piece, as it comes. Called on the session's
/// delegate queue, one call at a time; a call that waits there holds up other requests. An error
/// ends the request.
class HTTPBodySink {
 public:
  using Flow = platform::URLSessionTaskDelegate::Flow;

  virtual ~HTTPBodySink() = default;

  /// @return `hold` to have no more for now, until `HttpRequestOperation::receiveMore`; see
  ///   `URLSessionTaskDelegate`.
  virtual std::expected<Flow, platform::URLError> take(const platform::HTTPURLResponse& response,
                                                       platform::DataView piece) = 0;

  /// The body is whole.
  virtual std::expected<void, platform::URLError> end(
      const platform::HTTPURLResponse& response) = 0;

  /// The request has ended without a whole body; before anybody is told.
  virtual void breakOff() {}

  /// The request has failed, and another operation is about to repeat it.
  ///
  /// @param headers What it asks with, to be changed.
  /// @return False where a body can no more be taken from its beginning: it is not made again.
  [[nodiscard]] virtual bool beginAgain(
      [[maybe_unused]] const std::shared_ptr<HttpRequestOperation>& operation,
      [[maybe_unused]] platform::HTTPHeaders& headers) {
    return false;
  }
};

}  // namespace ombrix
