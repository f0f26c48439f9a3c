#include <algorithm>
#include <limits>
#include <utility>

#include "OmbrixPlatform/Network/Detail/CurlExchange.hpp"
#include "OmbrixPlatform/Network/Detail/CurlTask.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

// A server may claim any length: more room than this is made only as bytes come.
constexpr std::size_t kMaximumReservedBytes = std::size_t{1} << 20;
// What an answer may take up in memory, decoded.
constexpr std::size_t kMaximumBodyBytes = std::size_t{1} << 30;

bool mayHaveBody(const URLRequest& request, int statusCode) noexcept {
  return request.httpMethod != "HEAD" && statusCode != 204 && statusCode != 304;
}

/// Whether the request states the length of a body, be it 0.
bool takesBody(const URLRequest& request) noexcept {
  const std::string& method = request.httpMethod;
  if (method == "POST" || method == "PUT" || method == "PATCH") return true;
  return request.httpBody && !request.httpBody->empty() && method != "HEAD";
}

/// Fields that belong to the connection and the framing of the message, which are libcurl's.
bool isReserved(std::string_view name) noexcept {
  constexpr std::array<std::string_view, 5> kNames{"Content-Length", "Transfer-Encoding",
                                                   "Connection", "Keep-Alive", "Upgrade"};
  return std::ranges::any_of(kNames, [&](auto other) { return headerNamesEqual(name, other); });
}

}  // namespace

CurlExchange::CurlExchange(const TimePoint& now, CurlSockets& sockets)
    : easy_(::curl_easy_init()), now_(now), sockets_(sockets) {
  if (easy_ == nullptr) fatalError("libcurl cannot be set up");
  setConstantOptions();
}

CurlExchange::~CurlExchange() {
  ::curl_easy_cleanup(easy_);
  ::curl_slist_free_all(fields_);
  ::curl_slist_free_all(connectTo_);
}

void CurlExchange::setConstantOptions() {
  ::curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
  ::curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L);
  ::curl_easy_setopt(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
  ::curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 0L);
  ::curl_easy_setopt(easy_, CURLOPT_PIPEWAIT, 1L);
  ::curl_easy_setopt(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  // Asked for here, undone by `ContentDecoder`, which sees to the end of the stream.
  ::curl_easy_setopt(easy_, CURLOPT_ACCEPT_ENCODING, "gzip, deflate");
  ::curl_easy_setopt(easy_, CURLOPT_HTTP_CONTENT_DECODING, 0L);
  ::curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, errorText_.data());
  ::curl_easy_setopt(easy_, CURLOPT_PRIVATE, this);
  ::curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &takeHeader);
  ::curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
  ::curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION,
                     static_cast<std::size_t (*)(const char*, std::size_t, std::size_t, void*)>(
                         &CurlExchange::takeBody));
  ::curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
  ::curl_easy_setopt(easy_, CURLOPT_XFERINFOFUNCTION, &takeProgress);
  ::curl_easy_setopt(easy_, CURLOPT_XFERINFODATA, this);
  ::curl_easy_setopt(easy_, CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  ::curl_easy_setopt(easy_, CURLOPT_OPENSOCKETDATA, this);
  sockets_.installClosing(easy_);
  ::curl_easy_setopt(easy_, CURLOPT_PREREQFUNCTION, &checkConnection);
  ::curl_easy_setopt(easy_, CURLOPT_PREREQDATA, this);
}

bool CurlExchange::begin(std::shared_ptr<CurlTask> task, const Terms& terms) {
  task_ = std::move(task);
  request_ = task_->request();
  header_.emplace();
  timeLimit_ = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::min<std::chrono::duration<double>>(terms.timeLimit, std::chrono::hours(24 * 365)));
  lastProgress_ = now_;
  requestTime_ = services().clock.get().now();

  if (::curl_easy_setopt(easy_, CURLOPT_URL, request_->url.absoluteString().c_str()) != CURLE_OK ||
      !setMethod(*request_) || !setFields(*request_)) {
    return false;
  }
  ::curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION,
                     terms.isSecure ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1);
  // libcurl shares this out among the addresses of a host; the limit itself is kept by the loop.
  ::curl_easy_setopt(easy_, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(std::clamp<std::chrono::milliseconds::rep>(
                         std::chrono::duration_cast<std::chrono::milliseconds>(timeLimit_).count(),
                         1, std::numeric_limits<int>::max() / 2)));
  if (terms.isMappedToLoopback) {
    connectTo_ = ::curl_slist_append(nullptr, "::127.0.0.1:");
    if (connectTo_ == nullptr) return false;
  }
  ::curl_easy_setopt(easy_, CURLOPT_CONNECT_TO, connectTo_);
  ::curl_easy_setopt(easy_, CURLOPT_FRESH_CONNECT, terms.isResend ? 1L : 0L);
  ::curl_easy_setopt(easy_, CURLOPT_NOPROXY, terms.bypassesProxy ? "*" : nullptr);
  if (terms.trust != nullptr) terms.trust->install(easy_);
  return true;
}

bool CurlExchange::setMethod(const URLRequest& request) {
  const std::string& method = request.httpMethod;
  const bool hasBody = request.httpBody && !request.httpBody->empty();
  ::curl_easy_setopt(easy_, CURLOPT_NOPROGRESS, hasBody ? 0L : 1L);
  if (takesBody(request)) {
    const DataView body = hasBody ? DataView(*request.httpBody) : DataView();
    ::curl_easy_setopt(easy_, CURLOPT_POST, 1L);
    ::curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    ::curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, body.empty() ? "" : textOf(body).data());
    return ::curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST,
                              method == "POST" ? nullptr : method.c_str()) == CURLE_OK;
  }
  const bool isHead = method == "HEAD";
  ::curl_easy_setopt(easy_, isHead ? CURLOPT_NOBODY : CURLOPT_HTTPGET, 1L);
  return ::curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST,
                            isHead || method == "GET" ? nullptr : method.c_str()) == CURLE_OK;
}

bool CurlExchange::addField(const std::string& line) {
  curl_slist* longer = ::curl_slist_append(fields_, line.c_str());
  if (longer == nullptr) return false;
  fields_ = longer;
  return true;
}

bool CurlExchange::setFields(const URLRequest& request) {
  std::string line;
  for (const HTTPHeaders* headers : {&request.headers, &task_->conditions()}) {
    for (const auto& [name, value] : *headers) {
      if (isReserved(name)) continue;
      line = name;
      // libcurl would take a name with nothing after the colon as a field to leave out.
      line.append(value.empty() ? ";" : ": ").append(value);
      if (!addField(line)) return false;
    }
  }
  // What libcurl would add to a body by itself.
  const bool isPost = takesBody(request);
  if (isPost && !request.headers.contains("Content-Type") && !addField("Content-Type:"))
    return false;
  if (isPost && !request.headers.contains("Expect") && !addField("Expect:")) return false;
  return ::curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, fields_) == CURLE_OK;
}

CurlExchange::TimePoint CurlExchange::idleDeadline() const noexcept {
  return isPaused_ ? TimePoint::max() : lastProgress_ + timeLimit_;
}

void CurlExchange::fail(URLError::Code code, const std::string& message) {
  if (!ownError_) ownError_ = makeURLError(code, message);
}

std::size_t CurlExchange::takeHeader(const char* text, std::size_t size, std::size_t count,
                                     void* self) {
  const std::size_t bytes = size * count;
  return static_cast<CurlExchange*>(self)->headerLine({text, bytes}) ? bytes : 0;
}

bool CurlExchange::headerLine(std::string_view line) {
  lastProgress_ = now_;
  switch (header_->add(line)) {
    case HTTPHeaderReader::Result::more:
      return true;
    case HTTPHeaderReader::Result::complete:
      return headerIsComplete();
    case HTTPHeaderReader::Result::malformed:
      fail(URLError::Code::cannotParseResponse, "the header of the answer is malformed");
      return false;
    case HTTPHeaderReader::Result::tooLong:
      fail(URLError::Code::badServerResponse, "the header of the answer is too long");
      return false;
  }
  return false;
}

bool CurlExchange::headerIsComplete() {
  responseTime_ = services().clock.get().now();
  const HTTPHeaders& headers = header_->headers();
  std::int64_t expected = -1;
  if (const auto length = contentLength(headers)) {
    if (!*length) {
      fail(URLError::Code::badServerResponse, "the answer states no single length");
      return false;
    }
    expected = **length;
  }
  if (mayHaveBody(*request_, header_->statusCode())) {
    decoder_ = ContentDecoder::make(headers.value("Content-Encoding").value_or(""));
    if (!decoder_) {
      fail(URLError::Code::cannotDecodeContentData, "the answer's content coding is not known");
      return false;
    }
    if (!decoder_->isIdentity() || headers.contains("Transfer-Encoding")) expected = -1;
    if (expected > 0) {
      body_.reserve(std::min(static_cast<std::size_t>(expected), kMaximumReservedBytes));
    }
  } else {
    expected = 0;
  }
  response_ = std::make_shared<const HTTPURLResponse>(
      request_->url, header_->statusCode(), header_->takeHeaders(), header_->httpVersion());
  task_->headerCame(response_, expected);
  return true;
}

std::size_t CurlExchange::takeBody(const char* bytes, std::size_t size, std::size_t count,
                                   void* self) {
  return static_cast<CurlExchange*>(self)->bodyPiece(bytesOf({bytes, size * count}));
}

std::size_t CurlExchange::bodyPiece(DataView piece) {
  lastProgress_ = now_;
  if (!response_) return 0;
  if (task_->mustPause(body_.size())) {
    isPaused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  const std::size_t before = body_.size();
  if (!decoder_ || !decoder_->decode(piece, body_, kMaximumBodyBytes)) {
    const bool isTooLong = decoder_ && body_.size() + piece.size() > kMaximumBodyBytes;
    fail(isTooLong ? URLError::Code::dataLengthExceedsMaximum
                   : URLError::Code::cannotDecodeContentData,
         isTooLong ? "the answer's body is too long" : "the answer's body is damaged");
    return 0;
  }
  task_->bodyCame(body_.size() - before, body_);
  return piece.size();
}

int CurlExchange::takeProgress(void* self, curl_off_t /*expectedDown*/, curl_off_t /*down*/,
                               curl_off_t /*expectedUp*/, curl_off_t up) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  if (up == exchange.progressSeen_) return 0;
  exchange.progressSeen_ = up;
  exchange.lastProgress_ = exchange.now_;
  exchange.task_->bodySent(up);
  return 0;
}

/// A socket for a connection, none for a request that has been sent already.
curl_socket_t CurlExchange::openSocket(void* self, curlsocktype /*purpose*/,
                                       curl_sockaddr* address) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  exchange.wouldBeSentAgain_ = exchange.sendings_ > 0;
  return exchange.wouldBeSentAgain_ ? CURL_SOCKET_BAD : exchange.sockets_.open(*address);
}

/// Looks at a connection right before a request goes out. What a server has sent beyond the length
/// of an answer would be taken for the next one, which libcurl does not see to; and libcurl sends
/// any request again by itself when a connection that it uses again has died, which is for the
/// session to decide.
int CurlExchange::checkConnection(void* self, char* /*remote*/, char* /*local*/, int remotePort,
                                  int localPort) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  if (exchange.sendings_ > 0) {
    exchange.wouldBeSentAgain_ = true;
    return CURL_PREREQFUNC_ABORT;
  }
  long newConnections = 0;
  ::curl_easy_getinfo(exchange.easy_, CURLINFO_NUM_CONNECTS, &newConnections);
  exchange.foundSurplus_ = newConnections == 0 &&
                           exchange.sockets_.hasUnreadBytes(exchange.easy_, localPort, remotePort);
  if (exchange.foundSurplus_) return CURL_PREREQFUNC_ABORT;
  ++exchange.sendings_;
  return CURL_PREREQFUNC_OK;
}

CURLcode CurlExchange::resumeReceiving() {
  if (!isPaused_) return CURLE_OK;
  isPaused_ = false;
  lastProgress_ = now_;
  return ::curl_easy_pause(easy_, CURLPAUSE_CONT);
}

CURLcode CurlExchange::nudge() {
  if (isPaused_ || ::curl_easy_pause(easy_, CURLPAUSE_RECV) != CURLE_OK) return CURLE_OK;
  return ::curl_easy_pause(easy_, CURLPAUSE_CONT);
}

CurlFailure CurlExchange::failureFor(CURLcode code) const {
  CurlFailure failure{.code = code, .message = errorText_.data()};
  ::curl_easy_getinfo(easy_, CURLINFO_OS_ERRNO, &failure.systemError);
  ::curl_easy_getinfo(easy_, CURLINFO_SSL_VERIFYRESULT, &failure.verifyResult);
  return failure;
}

std::shared_ptr<const URLError> CurlExchange::errorFor(CURLcode code) {
  if (ownError_) return ownError_;
  if (wouldBeSentAgain_) {
    return makeURLError(URLError::Code::networkConnectionLost,
                        "the connection was lost before an answer came");
  }
  if (code != CURLE_OK) return urlErrorFor(failureFor(code));
  if (!response_) {
    return makeURLError(URLError::Code::networkConnectionLost,
                        "the connection ended before the answer's header did");
  }
  if (decoder_ && !decoder_->isAtEnd()) {
    return makeURLError(URLError::Code::cannotDecodeContentData, "the answer's body is cut short");
  }
  return nullptr;
}

bool CurlExchange::hasConnection() const {
  curl_off_t microseconds = 0;
  long sentBytes = 0;
  ::curl_easy_getinfo(easy_, CURLINFO_CONNECT_TIME_T, &microseconds);
  ::curl_easy_getinfo(easy_, CURLINFO_REQUEST_SIZE, &sentBytes);
  return microseconds > 0 || sentBytes > 0;
}

std::int64_t CurlExchange::bytesSent() const {
  curl_off_t sent = 0;
  ::curl_easy_getinfo(easy_, CURLINFO_SIZE_UPLOAD_T, &sent);
  return sent;
}

void CurlExchange::addTo(URLSessionTaskMetrics& metrics) const {
  const auto seconds = [&](CURLINFO info) {
    curl_off_t microseconds = 0;
    ::curl_easy_getinfo(easy_, info, &microseconds);
    return URLSessionTaskMetrics::Seconds(std::chrono::microseconds(microseconds));
  };
  long connections = 0;
  ::curl_easy_getinfo(easy_, CURLINFO_NUM_CONNECTS, &connections);
  metrics.isReusedConnection = connections == 0;
  const auto named = seconds(CURLINFO_NAMELOOKUP_TIME_T);
  const auto connected = seconds(CURLINFO_CONNECT_TIME_T);
  const auto secured = seconds(CURLINFO_APPCONNECT_TIME_T);
  const URLSessionTaskMetrics::Seconds none{};
  metrics.nameLookup = metrics.isReusedConnection ? none : named;
  metrics.connecting = metrics.isReusedConnection ? none : std::max(none, connected - named);
  metrics.secureConnection =
      metrics.isReusedConnection ? none : std::max(none, secured - connected);
  metrics.firstByte = seconds(CURLINFO_STARTTRANSFER_TIME_T);
  long version = 0;
  ::curl_easy_getinfo(easy_, CURLINFO_HTTP_VERSION, &version);
  metrics.networkProtocol = version == CURL_HTTP_VERSION_2_0   ? "h2"
                            : version == CURL_HTTP_VERSION_1_0 ? "http/1.0"
                                                               : "http/1.1";
}

}  // namespace ombrix::platform::detail
