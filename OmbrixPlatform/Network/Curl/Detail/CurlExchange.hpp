#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "OmbrixPlatform/Network/Curl/Detail/ContentDecoder.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlConnectionSettings.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlErrors.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlSockets.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/CurlTrust.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/HTTPHeaderReader.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/Transfer.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"
#include "OmbrixPlatform/Values/Data.hpp"
#include "OmbrixPlatform/Values/Date.hpp"

namespace ombrix::platform::detail {

/// A URL as libcurl has parsed it.
struct CurlURL {
  std::string text;
  std::shared_ptr<CURLU> parsed;  ///< null when it cannot be parsed
};

/// What the exchanges of one network thread share.
struct CurlSurroundings {
  std::chrono::steady_clock::time_point now;  ///< the loop's clock
  CurlSockets sockets;
  CURLSH* share = nullptr;  ///< the TLS sessions to resume, which handles do not keep for others
  std::shared_ptr<BodyBudget> budget;
  std::size_t maximumBodyBytes = 0;
  std::string userAgentField;  ///< the whole line, for requests that have none; empty: none
  std::string usualFields;     ///< that and the codings, for requests that state nothing there
  CurlURL lastURL;             ///< often asked for again: polls, uploads in pieces
  bool anyYields = false;      ///< an exchange has paused for the others' turn
};

/// One request sent and its answer received: an easy handle of its own and what its callbacks
/// gather. (libcurl 7.88 keeps a pointer into the last answer's header in a handle that is used
/// again, and writes through it.) Network thread only.
class CurlExchange {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  static constexpr const char* kCodingsField = "Accept-Encoding: gzip, deflate";

  /// The session's choices for an exchange.
  struct Terms {
    std::chrono::duration<double> timeLimit{};  ///< seconds without progress
    bool isMappedToLoopback = false;            ///< without asking the name service
    bool bypassesProxy = false;
    CurlTrust* trust = nullptr;  ///< for https
    const CurlConnectionSettings* settings = nullptr;
  };

  explicit CurlExchange(CurlSurroundings& surroundings);
  ~CurlExchange();
  CurlExchange(const CurlExchange&) = delete;
  CurlExchange& operator=(const CurlExchange&) = delete;

  /// Prepares the handle; false when libcurl refuses the request.
  bool begin(std::shared_ptr<Transfer> transfer, const Terms& terms);

  [[nodiscard]] CURL* easy() const noexcept { return easy_; }
  [[nodiscard]] const std::shared_ptr<Transfer>& transfer() const noexcept { return transfer_; }

  /// When the exchange fails if it makes no progress before then.
  [[nodiscard]] TimePoint idleDeadline() const noexcept;

  /// Goes on once the client has room again. Not OK: the exchange is over.
  CURLcode resumeReceiving();

  /// Goes on if it had paused for the others' turn. Not OK: the exchange is over.
  CURLcode takeTurn();

  /// Makes libcurl look again for bytes that have arrived already. Not OK: the exchange is over.
  CURLcode nudge();

  /// The number of its connection if that speaks HTTP/2; 0: it speaks another version, or there is
  /// none yet.
  [[nodiscard]] std::uint64_t streamsConnection() const noexcept {
    return carriesStreams_ ? connection_ : 0;
  }

  /// Whether the final answer's header has come.
  [[nodiscard]] bool hasHeader() const noexcept { return response_ != nullptr; }

  /// Whether it has got as far as a connection.
  [[nodiscard]] bool hasConnection() const;

  /// The facts by which the next step after a failed exchange is decided; the session has yet to
  /// add its own.
  [[nodiscard]] FailedExchange failed(const CurlFailure& failure) const;

  /// What libcurl knows of a failed exchange.
  [[nodiscard]] CurlFailure failureFor(CURLcode code) const;

  /// The error; null for a whole answer.
  [[nodiscard]] std::shared_ptr<const URLError> errorFor(const CurlFailure& failure) const;

  /// Moves the whole answer out; once.
  WireAnswer takeAnswer();

  std::size_t activeIndex = 0;  ///< its place among the loop's active exchanges
  bool mayStall = false;        ///< has shared its connection with another stream

 private:
  static std::size_t takeHeader(const char* text, std::size_t size, std::size_t count, void* self);
  static std::size_t takeBody(const char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t giveBody(char* buffer, std::size_t size, std::size_t count, void* self);
  static int rewindBody(void* self, curl_off_t offset, int origin);
  static int takeProgress(void* self, curl_off_t expectedDown, curl_off_t down,
                          curl_off_t expectedUp, curl_off_t up);
  static curl_socket_t openSocket(void* self, curlsocktype purpose, curl_sockaddr* address);
  static int checkConnection(void* self, char* remote, char* local, int remotePort, int localPort);

  void setConstantOptions();
  void setConnectionOptions();
  void followProgress();
  bool setMethod(const URLRequest& request);
  bool setBodySource(const URLRequest& request);
  std::size_t nextOfBody(std::span<std::byte> buffer);
  bool setFields(const URLRequest& request);
  bool setURL(const URL& url);
  bool headerLine(std::string_view line);
  bool headerIsComplete();
  std::size_t bodyPiece(DataView piece);
  void answerHasEnded() noexcept;
  std::optional<DataView> nextStep(DataView& rest, std::size_t most, bool& isDone);
  bool keep(DataView decoded);
  std::size_t pause(std::size_t consumed, bool yields);
  bool fail(URLError::Code code, const char* sentence);
  /// Runs a callback's work: no exception may pass through libcurl. When memory is short, the
  /// exchange fails and libcurl gets `refusal`.
  template <class Result, class Work>
  Result guarded(Result refusal, Work work) noexcept {
    try {
      return work();
    } catch (const std::bad_alloc&) {
      body_ = GatheredBody();  // the rest needs memory, too
      if (!ownError_) ownError_ = errorOfMissingMemory();
      return refusal;
    }
  }
  [[nodiscard]] bool refusesToSendAgain() noexcept;
  [[nodiscard]] bool mayUse(const CurlSockets::Connection& connection);
  [[nodiscard]] bool saysThatHTTP1IsRequired() const noexcept;
  [[nodiscard]] bool connectionDiedBefore(CURLcode code) const noexcept;
  [[nodiscard]] URLSessionTaskMetrics steps() const;

  CURL* const easy_;
  CurlSurroundings& surroundings_;
  std::array<char, CURL_ERROR_SIZE> errorText_{};
  std::shared_ptr<CURLU> url_;
  std::string lines_;               // the request's own fields, each with a NUL behind it
  std::vector<curl_slist> fields_;  // all fields, as libcurl wants them
  curl_slist* connectTo_ = nullptr;
  std::shared_ptr<Transfer> transfer_;
  std::shared_ptr<const URLRequest> request_;  // owns the body that libcurl reads
  CurlTrust* trust_ = nullptr;
  std::shared_ptr<const CurlTrust::TLSConnection> tls_;  // of HTTP/1.1
  bool hasCertificate_ = false;                          // of its own, for servers that ask
  HTTPHeaderReader header_;
  BodyFraming framing_;
  ContentDecoder decoder_{""};
  std::shared_ptr<const HTTPURLResponse> response_;
  std::shared_ptr<const URLError> ownError_;
  TransferClient::BodyUse bodyUse_ = TransferClient::BodyUse::gather;
  GatheredBody body_;
  Data step_;                  // what a step decodes
  std::size_t consumed_ = 0;   // of the piece that libcurl will hand over again
  std::int64_t rawBytes_ = 0;  // of the coded body
  std::chrono::steady_clock::duration timeLimit_{};
  TimePoint lastProgress_;
  std::int64_t progressSeen_ = 0;
  std::int64_t bodyRead_ = 0;     // of the request's source
  std::int64_t bodyLength_ = -1;  // of that source; -1: unknown
  std::uint64_t connection_ = 0;  // its number
  int sendings_ = 0;              // connections that were given the request
  int socketError_ = 0;           // errno of the last socket that could not be opened
  bool isReused_ = false;         // the connection
  bool carriesStreams_ = false;
  bool hasLine_ = false;  // of an answer's header
  bool isPaused_ = false;
  bool isYielding_ = false;
  bool foundSurplus_ = false;
  bool wouldBeSentAgain_ = false;
  bool answerHasBegun_ = false;  // on the connection that died
  bool isHTTP1Required_ = false;
  Date requestTime_{};
  Date responseTime_{};
};

}  // namespace ombrix::platform::detail
