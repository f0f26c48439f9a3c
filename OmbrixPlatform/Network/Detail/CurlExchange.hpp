#pragma once

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "OmbrixPlatform/Network/Detail/ContentDecoder.hpp"
#include "OmbrixPlatform/Network/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Detail/CurlSockets.hpp"
#include "OmbrixPlatform/Network/Detail/CurlTrust.hpp"
#include "OmbrixPlatform/Network/Detail/HTTPHeaderReader.hpp"
#include "OmbrixPlatform/Network/URLRequest.hpp"
#include "OmbrixPlatform/Network/URLResponse.hpp"
#include "OmbrixPlatform/Network/URLSessionTask.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform::detail {

class CurlTask;

/// One request sent and its answer received: an easy handle of its own and what its callbacks
/// gather. (libcurl 7.88 keeps a pointer into the last answer's header in a handle that is used
/// again, and writes through it.) Network thread only.
class CurlExchange {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// What a session decides for an exchange.
  struct Terms {
    std::chrono::duration<double> timeLimit{};  ///< seconds without progress
    bool isSecure = false;
    bool isMappedToLoopback = false;  ///< whatever the name service says
    bool bypassesProxy = false;
    CurlTrust* trust = nullptr;  ///< null: libcurl verifies alone
    bool isResend = false;       ///< takes a new connection and is sent once, whatever happens
  };

  /// @param now The loop's clock, looked at by the callbacks.
  CurlExchange(const TimePoint& now, CurlSockets& sockets);
  ~CurlExchange();
  CurlExchange(const CurlExchange&) = delete;
  CurlExchange& operator=(const CurlExchange&) = delete;

  /// Prepares the handle for the task's current request; false when libcurl refuses it.
  bool begin(std::shared_ptr<CurlTask> task, const Terms& terms);

  [[nodiscard]] CURL* easy() const noexcept { return easy_; }
  [[nodiscard]] const std::shared_ptr<CurlTask>& task() const noexcept { return task_; }

  /// When the exchange fails unless there is progress before.
  [[nodiscard]] TimePoint idleDeadline() const noexcept;

  /// Goes on after the task has room again. Not OK: the exchange is over.
  CURLcode resumeReceiving();

  /// Makes libcurl look again for what has come already. Not OK: the exchange is over.
  CURLcode nudge();

  /// Whether the final answer's header has come.
  [[nodiscard]] bool hasHeader() const noexcept { return response_ != nullptr; }

  /// Whether it was broken off since its connection held bytes that nobody had asked for.
  [[nodiscard]] bool foundSurplus() const noexcept { return foundSurplus_; }

  /// Whether the request may have reached the server, in full or in part.
  [[nodiscard]] bool wasSent() const noexcept { return sendings_ > 0; }

  /// Whether it was broken off since libcurl was about to send the request again.
  [[nodiscard]] bool wouldBeSentAgain() const noexcept { return wouldBeSentAgain_; }

  /// Whether it has got as far as a connection.
  [[nodiscard]] bool hasConnection() const;

  /// What went wrong, null for a whole answer.
  std::shared_ptr<const URLError> errorFor(CURLcode code);

  /// What libcurl knows of a failed exchange.
  [[nodiscard]] CurlFailure failureFor(CURLcode code) const;

  [[nodiscard]] const std::shared_ptr<const HTTPURLResponse>& response() const noexcept {
    return response_;
  }
  Data takeBody() { return std::move(body_); }
  [[nodiscard]] Date requestTime() const noexcept { return requestTime_; }
  [[nodiscard]] Date responseTime() const noexcept { return responseTime_; }

  /// Adds the steps of this exchange.
  void addTo(URLSessionTaskMetrics& metrics) const;

  [[nodiscard]] std::int64_t bytesSent() const;

  std::size_t activeIndex = 0;  ///< its place among the loop's active exchanges

 private:
  static std::size_t takeHeader(const char* text, std::size_t size, std::size_t count, void* self);
  static std::size_t takeBody(const char* bytes, std::size_t size, std::size_t count, void* self);
  static int takeProgress(void* self, curl_off_t expectedDown, curl_off_t down,
                          curl_off_t expectedUp, curl_off_t up);
  static curl_socket_t openSocket(void* self, curlsocktype purpose, curl_sockaddr* address);
  static int checkConnection(void* self, char* remote, char* local, int remotePort, int localPort);

  void setConstantOptions();
  bool setMethod(const URLRequest& request);
  bool setFields(const URLRequest& request);
  bool addField(const std::string& line);
  bool headerLine(std::string_view line);
  bool headerIsComplete();
  std::size_t bodyPiece(DataView piece);
  void fail(URLError::Code code, const std::string& message);

  CURL* const easy_;
  const TimePoint& now_;
  CurlSockets& sockets_;
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  curl_slist* fields_ = nullptr;
  curl_slist* connectTo_ = nullptr;
  std::shared_ptr<CurlTask> task_;
  std::shared_ptr<const URLRequest> request_;  // owns the body that libcurl reads
  std::optional<HTTPHeaderReader> header_;
  std::optional<ContentDecoder> decoder_;
  std::shared_ptr<const HTTPURLResponse> response_;
  std::shared_ptr<const URLError> ownError_;
  Data body_;
  std::chrono::steady_clock::duration timeLimit_{};
  TimePoint lastProgress_;
  std::int64_t progressSeen_ = 0;
  bool isPaused_ = false;
  bool foundSurplus_ = false;
  bool wouldBeSentAgain_ = false;
  int sendings_ = 0;  // connections that were given the request
  Date requestTime_{};
  Date responseTime_{};
};

}  // namespace ombrix::platform::detail
