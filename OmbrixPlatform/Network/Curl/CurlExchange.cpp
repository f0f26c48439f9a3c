#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/CurlExchange.hpp"
#include "OmbrixPlatform/Network/Curl/Detail/TransferRules.hpp"
#include "OmbrixPlatform/Services.hpp"
#include "OmbrixPlatform/Values/Clock.hpp"
#include "OmbrixPlatform/Values/FatalError.hpp"

namespace ombrix::platform::detail {
namespace {

// A server may claim any length: more room than this is made only as bytes arrive.
constexpr std::size_t kMaximumReservedBytes = std::size_t{1} << 20;
// A body is decoded in steps of this many bytes, and other transfers get their turn after this
// many.
constexpr std::size_t kStepBytes = std::size_t{32} << 10;
constexpr std::size_t kTurnBytes = std::size_t{256} << 10;

constexpr const char* kTooLong = "the answer's body is too long to be kept in memory";

/// Whether the request states the length of a body, be it 0.
bool takesBody(const URLRequest& request) noexcept {
  const std::string& method = request.httpMethod;
  if (method == "POST" || method == "PUT" || method == "PATCH" || request.httpBodySource) {
    return true;
  }
  return request.httpBody && !request.httpBody->empty() && method != "HEAD";
}

/// The loopback addresses for libcurl: ::1 as well as 127.0.0.1 where this machine has both.
/// libcurl would report a missing address instead of the other one's refusal.
const char* loopback() noexcept {
  static const bool hasBoth = [] {
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    const int socket = ::socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool isThere =
        ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    if (socket >= 0) ::close(socket);
    return isThere;
  }();
  return hasBoth ? "::localhost:" : "::127.0.0.1:";
}

/// Whether there are as many as the look-up of a name takes, whose want libcurl does not tell.
bool areDescriptorsLeft() noexcept {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return false;
  for (const int end : ends) ::close(end);
  return true;
}

/// Fields that belong to the connection and the framing of the message, which are libcurl's; and
/// "Expect", where it drops the answer of a server that refuses that (417), to ask again without.
bool isReserved(std::string_view name) noexcept {
  constexpr std::array<std::string_view, 6> kNames{
      "Content-Length", "Transfer-Encoding", "Expect", "Connection", "Keep-Alive", "Upgrade"};
  return std::ranges::any_of(kNames, [&](auto other) { return headerNamesEqual(name, other); });
}

}  // namespace

CurlExchange::CurlExchange(CurlSurroundings& surroundings)
    : easy_(::curl_easy_init()), surroundings_(surroundings) {
  if (easy_ == nullptr) fatalError("libcurl cannot be set up");
  (void)errorOfMissingMemory();  // it is made while there is memory
  setConstantOptions();
}

CurlExchange::~CurlExchange() {
  ::curl_easy_cleanup(easy_);
  ::curl_slist_free_all(connectTo_);
}

void CurlExchange::setConstantOptions() {
  ::curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
  ::curl_easy_setopt(easy_, CURLOPT_QUICK_EXIT, 1L);
  CURL_IGNORE_DEPRECATION(  // the overload for names searches all of libcurl's
      ::curl_easy_setopt(easy_, CURLOPT_PROTOCOLS, long{CURLPROTO_HTTP | CURLPROTO_HTTPS});)
  ::curl_easy_setopt(easy_, CURLOPT_FOLLOWLOCATION, 0L);
  // Decoded by `ContentDecoder`, which also checks how the stream ends.
  ::curl_easy_setopt(easy_, CURLOPT_HTTP_CONTENT_DECODING, 0L);
  ::curl_easy_setopt(easy_, CURLOPT_ERRORBUFFER, errorText_.data());
  ::curl_easy_setopt(easy_, CURLOPT_PRIVATE, this);
  ::curl_easy_setopt(easy_, CURLOPT_HEADERFUNCTION, &takeHeader);
  ::curl_easy_setopt(easy_, CURLOPT_HEADERDATA, this);
  ::curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION,
                     static_cast<std::size_t (*)(const char*, std::size_t, std::size_t, void*)>(
                         &CurlExchange::takeBody));
  ::curl_easy_setopt(easy_, CURLOPT_WRITEDATA, this);
  ::curl_easy_setopt(easy_, CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  ::curl_easy_setopt(easy_, CURLOPT_OPENSOCKETDATA, this);
  surroundings_.sockets.installClosing(easy_);
  ::curl_easy_setopt(easy_, CURLOPT_PREREQFUNCTION, &checkConnection);
  ::curl_easy_setopt(easy_, CURLOPT_PREREQDATA, this);
}

bool CurlExchange::begin(std::shared_ptr<Transfer> transfer, const Terms& terms) {
  transfer_ = std::move(transfer);
  request_ = transfer_->request;
  trust_ = terms.trust;
  timeLimit_ = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::min<std::chrono::duration<double>>(terms.timeLimit, std::chrono::hours(24 * 365)));
  lastProgress_ = surroundings_.now;
  requestTime_ = services().clock.get().now();

  if (!setURL(request_->url) || !setMethod(*request_) || !setFields(*request_)) return false;
  setConnectionOptions();
  if (!terms.settings->install(easy_, transfer_->origin.isSecure)) return false;
  hasCertificate_ = terms.settings->hasCertificate();
  if (terms.isMappedToLoopback) {
    connectTo_ = ::curl_slist_append(nullptr, loopback());
    if (connectTo_ == nullptr) return false;
    ::curl_easy_setopt(easy_, CURLOPT_CONNECT_TO, connectTo_);
  }
  if (terms.bypassesProxy) ::curl_easy_setopt(easy_, CURLOPT_NOPROXY, "*");
  if (trust_ != nullptr) trust_->install(easy_, transfer_->judgesServer);
  return true;
}

/// Gives libcurl the URL already parsed: a URL that libcurl parses itself is written out again,
/// character by character.
bool CurlExchange::setURL(const URL& url) {
  const std::string& text = url.absoluteString();
  CurlURL& last = surroundings_.lastURL;
  if (last.text != text) {
    std::shared_ptr<CURLU> parsed(::curl_url(), [](CURLU* it) { ::curl_url_cleanup(it); });
    const bool isParsed =
        parsed && ::curl_url_set(parsed.get(), CURLUPART_URL, text.c_str(),
                                 CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME) == CURLUE_OK;
    // Otherwise libcurl finds the fault itself and reports it.
    last = {text, isParsed ? std::move(parsed) : nullptr};
  }
  url_ = last.parsed;
  if (url_) ::curl_easy_setopt(easy_, CURLOPT_CURLU, url_.get());
  return ::curl_easy_setopt(easy_, CURLOPT_URL, text.c_str()) == CURLE_OK;
}

void CurlExchange::setConnectionOptions() {
  // libcurl divides this time among a host's addresses; the loop enforces the limit itself.
  ::curl_easy_setopt(easy_, CURLOPT_CONNECTTIMEOUT_MS,
                     static_cast<long>(std::clamp<std::chrono::milliseconds::rep>(
                         std::chrono::duration_cast<std::chrono::milliseconds>(timeLimit_).count(),
                         1, std::numeric_limits<int>::max() / 2)));
  if (transfer_->isResend) ::curl_easy_setopt(easy_, CURLOPT_FRESH_CONNECT, 1L);
  const bool usesHTTP2 = transfer_->origin.isSecure && !transfer_->usesHTTP1;
  ::curl_easy_setopt(easy_, CURLOPT_HTTP_VERSION,
                     usesHTTP2 ? CURL_HTTP_VERSION_2TLS : CURL_HTTP_VERSION_1_1);
  if (!transfer_->origin.isSecure) return;
  ::curl_easy_setopt(easy_, CURLOPT_PIPEWAIT, 1L);
  ::curl_easy_setopt(easy_, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  ::curl_easy_setopt(easy_, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
  ::curl_easy_setopt(easy_, CURLOPT_SHARE, surroundings_.share);
}

bool CurlExchange::setMethod(const URLRequest& request) {
  const std::string& method = request.httpMethod;
  if (request.httpBodySource) return setBodySource(request);
  const bool hasBody = request.httpBody && !request.httpBody->empty();
  if (hasBody) followProgress();
  if (takesBody(request)) {
    const DataView body = hasBody ? DataView(*request.httpBody) : DataView();
    ::curl_easy_setopt(easy_, CURLOPT_POST, 1L);
    ::curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    ::curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, body.empty() ? "" : textOf(body).data());
    return ::curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST,
                              method == "POST" ? nullptr : method.c_str()) == CURLE_OK;
  }
  if (method == "GET") return true;
  const bool isHead = method == "HEAD";
  if (isHead) ::curl_easy_setopt(easy_, CURLOPT_NOBODY, 1L);
  return ::curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, isHead ? nullptr : method.c_str()) ==
         CURLE_OK;
}

void CurlExchange::followProgress() {
  ::curl_easy_setopt(easy_, CURLOPT_NOPROGRESS, 0L);
  ::curl_easy_setopt(easy_, CURLOPT_XFERINFOFUNCTION, &takeProgress);
  ::curl_easy_setopt(easy_, CURLOPT_XFERINFODATA, this);
}

/// The body is read as it is sent; as an upload, whatever the method's name.
bool CurlExchange::setBodySource(const URLRequest& request) {
  bodyRead_ = 0;
  bodyLength_ = request.httpBodySource->length().value_or(-1).value_or(-1);
  followProgress();
  ::curl_easy_setopt(easy_, CURLOPT_UPLOAD, 1L);
  ::curl_easy_setopt(easy_, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(bodyLength_));
  ::curl_easy_setopt(easy_, CURLOPT_READFUNCTION, &giveBody);
  ::curl_easy_setopt(easy_, CURLOPT_READDATA, this);
  ::curl_easy_setopt(easy_, CURLOPT_SEEKFUNCTION, &rewindBody);
  ::curl_easy_setopt(easy_, CURLOPT_SEEKDATA, this);
  return ::curl_easy_setopt(easy_, CURLOPT_CUSTOMREQUEST, request.httpMethod.c_str()) == CURLE_OK;
}

std::size_t CurlExchange::giveBody(char* buffer, std::size_t size, std::size_t count, void* self) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  return exchange.guarded(std::size_t{CURL_READFUNC_ABORT}, [&] {
    return exchange.nextOfBody(std::as_writable_bytes(std::span(buffer, size * count)));
  });
}

/// The next bytes for libcurl to send, never more than the stated length; CURL_READFUNC_ABORT when
/// there are fewer.
std::size_t CurlExchange::nextOfBody(std::span<std::byte> buffer) {
  const bool isStated = bodyLength_ >= 0;
  if (isStated) {
    buffer =
        buffer.first(std::min(buffer.size(), static_cast<std::size_t>(bodyLength_ - bodyRead_)));
  }
  if (buffer.empty()) return 0;
  const auto read = request_->httpBodySource->read(bodyRead_, buffer);
  if (!read) {
    if (!ownError_) ownError_ = std::make_shared<const URLError>(read.error());
    return CURL_READFUNC_ABORT;
  }
  if (*read == 0 && isStated) {
    fail(URLError::Code::requestBodyStreamExhausted,
         "the request's body became shorter on its way");
    return CURL_READFUNC_ABORT;
  }
  bodyRead_ += static_cast<std::int64_t>(*read);
  return *read;
}

int CurlExchange::rewindBody(void* self, curl_off_t offset, int origin) {
  if (origin != SEEK_SET) return CURL_SEEKFUNC_CANTSEEK;
  static_cast<CurlExchange*>(self)->bodyRead_ = offset;
  return CURL_SEEKFUNC_OK;
}

bool CurlExchange::setFields(const URLRequest& request) {
  constexpr std::size_t kFieldsAdded = 4;
  std::size_t bytes = 0;
  for (const HTTPHeaders* headers : {&request.headers, &transfer_->conditions}) {
    for (const auto& [name, value] : *headers) bytes += name.size() + value.size() + 3;
  }
  lines_.reserve(bytes);  // so that they stay where they are
  fields_.reserve(request.headers.size() + transfer_->conditions.size() + kFieldsAdded);
  // libcurl only reads them.
  const auto add = [&](const char* line) { fields_.push_back({const_cast<char*>(line), nullptr}); };
  for (const HTTPHeaders* headers : {&request.headers, &transfer_->conditions}) {
    for (const auto& [name, value] : *headers) {
      if (isReserved(name)) continue;
      const std::size_t begin = lines_.size();
      // libcurl reads a name with nothing after the colon as a field to leave out.
      lines_.append(name).append(value.empty() ? ";" : ": ").append(value).push_back('\0');
      add(lines_.data() + begin);
    }
  }
  const auto isOpen = [&](const char* name) { return !request.headers.contains(name); };
  // Fields that libcurl would add to a body on its own.
  const bool isPost = takesBody(request);
  if (isPost && isOpen("Content-Type")) add("Content-Type:");
  if (isPost) add("Expect:");
  // As our own fields libcurl formats them once, as its options twice. A part of a coded body
  // cannot be decoded.
  const bool takesCodings = isOpen("Accept-Encoding");
  const bool takesAgent = isOpen("User-Agent");
  const bool isPart = !isOpen("Range");
  if (takesCodings && takesAgent && !isPart) {
    add(surroundings_.usualFields.c_str());
  } else {
    if (takesCodings) add(isPart ? "Accept-Encoding: identity" : kCodingsField);
    if (takesAgent && !surroundings_.userAgentField.empty()) {
      add(surroundings_.userAgentField.c_str());
    }
  }
  for (std::size_t i = 1; i < fields_.size(); ++i) fields_[i - 1].next = &fields_[i];
  return fields_.empty() ||
         ::curl_easy_setopt(easy_, CURLOPT_HTTPHEADER, fields_.data()) == CURLE_OK;
}

CurlExchange::TimePoint CurlExchange::idleDeadline() const noexcept {
  return isPaused_ ? TimePoint::max() : lastProgress_ + timeLimit_;
}

/// Always false, which callbacks return to end the exchange.
bool CurlExchange::fail(URLError::Code code, const char* sentence) {
  if (!ownError_) ownError_ = makeURLError(code, sentence);
  return false;
}

std::size_t CurlExchange::takeHeader(const char* text, std::size_t size, std::size_t count,
                                     void* self) {
  const std::size_t bytes = size * count;
  auto& exchange = *static_cast<CurlExchange*>(self);
  return exchange.guarded(false, [&] { return exchange.headerLine({text, bytes}); }) ? bytes : 0;
}

bool CurlExchange::headerLine(std::string_view line) {
  hasLine_ = true;
  lastProgress_ = surroundings_.now;
  using enum HTTPHeaderReader::Result;
  switch (header_.add(line)) {
    case more:
      return true;
    case complete:
      return headerIsComplete();
    case malformed:
      return fail(URLError::Code::cannotParseResponse, "the header of the answer is malformed");
    case ambiguous:
      return fail(URLError::Code::badServerResponse,
                  "a field of the answer has a blank before its colon");
    case tooLong:
      return fail(URLError::Code::badServerResponse, "the header of the answer is too long");
    case upgrade:
      return fail(URLError::Code::badServerResponse,
                  "the server switches to a protocol that nobody asked for");
  }
  return false;
}

bool CurlExchange::headerIsComplete() {
  responseTime_ = services().clock.get().now();
  if (trust_ != nullptr) trust_->signs() = {};
  const HTTPHeaders& headers = header_.headers();
  using Kind = BodyFraming::Kind;
  framing_ = framingOf(request_->httpMethod, header_.statusCode(), headers);
  if (framing_.fault != nullptr) return fail(URLError::Code::badServerResponse, framing_.fault);
  std::int64_t expected = framing_.kind == Kind::length ? framing_.length : -1;
  if (framing_.kind == Kind::none || expected == 0) answerHasEnded();
  if (framing_.kind == Kind::none) {
    expected = 0;
  } else {
    decoder_ = ContentDecoder(headers.value("Content-Encoding").value_or(""));
    if (!decoder_.isIdentity()) expected = -1;
  }
  response_ = std::make_shared<const HTTPURLResponse>(request_->url, header_.statusCode(),
                                                      header_.takeHeaders(), header_.httpVersion());
  bodyUse_ = transfer_->client->headerCame(response_, expected);
  if (bodyUse_ == TransferClient::BodyUse::stream) return true;
  const auto bytes = static_cast<std::size_t>(std::max<std::int64_t>(expected, 0));
  if (bytes > surroundings_.maximumBodyBytes) {
    return fail(URLError::Code::dataLengthExceedsMaximum, kTooLong);
  }
  body_ = GatheredBody(surroundings_.budget, surroundings_.maximumBodyBytes);
  body_.expect(std::min(bytes, kMaximumReservedBytes));
  return true;
}

std::size_t CurlExchange::takeBody(const char* bytes, std::size_t size, std::size_t count,
                                   void* self) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  return exchange.guarded(std::size_t{0},
                          [&] { return exchange.bodyPiece(bytesOf({bytes, size * count})); });
}

/// Takes a piece step by step. When the rest of it has to wait, for the client or for other
/// transfers' turn, libcurl is made to hand the whole piece over again, and the part already taken
/// is skipped.
std::size_t CurlExchange::bodyPiece(DataView piece) {
  lastProgress_ = surroundings_.now;
  if (!response_ || consumed_ > piece.size()) return 0;
  DataView rest = piece.subspan(consumed_);
  std::size_t turn = kTurnBytes;
  bool isDone = false;
  while (!isDone) {
    const std::size_t consumed = piece.size() - rest.size();
    if (!transfer_->client->takesMore(body_.size())) return pause(consumed, false);
    if (turn == 0) return pause(consumed, true);
    const auto decoded = nextStep(rest, std::min(kStepBytes, turn), isDone);
    if (!decoded || !keep(*decoded)) return 0;
    turn -= decoded->size();
  }
  consumed_ = 0;
  rawBytes_ += static_cast<std::int64_t>(piece.size());
  if (framing_.kind == BodyFraming::Kind::length && rawBytes_ == framing_.length) answerHasEnded();
  return piece.size();
}

/// The last byte of an answer has come. Its length on the wire is known unless TLS is used.
void CurlExchange::answerHasEnded() noexcept {
  if (transfer_->origin.isSecure) return;
  surroundings_.sockets.answerEnded(connection_,
                                    header_.bytes() + static_cast<std::uint64_t>(rawBytes_));
}

std::size_t CurlExchange::pause(std::size_t consumed, bool yields) {
  consumed_ = consumed;
  isPaused_ = !yields;
  isYielding_ = yields;
  surroundings_.anyYields = surroundings_.anyYields || yields;
  return CURL_WRITEFUNC_PAUSE;
}

/// Decodes from the front of `rest`, which is shortened; nothing when that fails.
std::optional<DataView> CurlExchange::nextStep(DataView& rest, std::size_t most, bool& isDone) {
  if (decoder_.isIdentity()) {
    const DataView step = rest.first(std::min(rest.size(), most));
    rest = rest.subspan(step.size());
    isDone = rest.empty();
    return step;
  }
  step_.clear();
  using enum ContentDecoder::Result;
  switch (decoder_.decode(rest, step_, most)) {
    case ready:
      isDone = true;
      return step_;
    case full:
      return step_;
    case damaged:
      fail(URLError::Code::cannotDecodeContentData, "the answer's body is damaged");
      return std::nullopt;
    case exploding:
      fail(URLError::Code::cannotDecodeContentData,
           "the answer's body unpacks to more than 200 times its size");
      return std::nullopt;
  }
  return std::nullopt;
}

bool CurlExchange::keep(DataView decoded) {
  if (bodyUse_ == TransferClient::BodyUse::gather) {
    using enum GatheredBody::Result;
    switch (body_.append(decoded)) {
      case kept:
        break;
      case tooLong:
        return fail(URLError::Code::dataLengthExceedsMaximum, kTooLong);
      case tooMuchTogether:
        return fail(URLError::Code::dataLengthExceedsMaximum,
                    "the session's answers are too long to be kept in memory together");
    }
  }
  if (!decoded.empty()) transfer_->client->bodyCame(decoded);
  return true;
}

int CurlExchange::takeProgress(void* self, curl_off_t /*expectedDown*/, curl_off_t /*down*/,
                               curl_off_t /*expectedUp*/, curl_off_t up) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  if (up == exchange.progressSeen_) return 0;
  exchange.progressSeen_ = up;
  exchange.lastProgress_ = exchange.surroundings_.now;
  return exchange.guarded(1, [&] {
    exchange.transfer_->client->bodySent(up);
    return 0;
  });
}

/// Whether the request has been sent already. libcurl would send it again on its own when a reused
/// connection has died or when a server asks for HTTP/1.1, but that is for the session to decide.
bool CurlExchange::refusesToSendAgain() noexcept {
  if (sendings_ == 0) return false;
  wouldBeSentAgain_ = true;
  answerHasBegun_ = surroundings_.sockets.endedInAnAnswer(connection_);
  // On a new connection it goes on with that only where the server wants HTTP/1.1, and not where a
  // stream was refused; but beside other streams it does in both cases.
  isHTTP1Required_ = saysThatHTTP1IsRequired() || (carriesStreams_ && !isReused_ && !mayStall &&
                                                   !surroundings_.sockets.hasEnded(connection_));
  return true;
}

/// Whether the server has done nothing with the request because it asks for HTTP/1.1. libcurl says
/// so only in its text, by the name of the error in RFC 9113.
bool CurlExchange::saysThatHTTP1IsRequired() const noexcept {
  return carriesStreams_ && !hasLine_ &&
         std::string_view(errorText_.data()).find("HTTP_1_1_REQUIRED") != std::string_view::npos;
}

/// Opens a socket for a connection; fails for a request that has been sent already.
curl_socket_t CurlExchange::openSocket(void* self, curlsocktype /*purpose*/,
                                       curl_sockaddr* address) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  if (exchange.refusesToSendAgain()) return CURL_SOCKET_BAD;
  const curl_socket_t descriptor = exchange.guarded(curl_socket_t{CURL_SOCKET_BAD}, [&] {
    return exchange.surroundings_.sockets.open(*address);
  });
  exchange.socketError_ = descriptor == CURL_SOCKET_BAD ? errno : 0;
  return descriptor;
}

/// Checks a connection right before a request goes out. Bytes that a server has sent beyond the end
/// of an answer would be read as the next one, and libcurl does not prevent that.
int CurlExchange::checkConnection(void* self, char* remote, char* local, int remotePort,
                                  int localPort) {
  auto& exchange = *static_cast<CurlExchange*>(self);
  return exchange.guarded(CURL_PREREQFUNC_ABORT, [&] {
    return exchange.mayUse({remote, local, remotePort, localPort}) ? CURL_PREREQFUNC_OK
                                                                   : CURL_PREREQFUNC_ABORT;
  });
}

bool CurlExchange::mayUse(const CurlSockets::Connection& connection) {
  if (refusesToSendAgain()) return false;
  CurlSockets& sockets = surroundings_.sockets;
  const bool isSecure = transfer_->origin.isSecure;
  connection_ = sockets.numberOf(connection);
  carriesStreams_ = isSecure && CurlSockets::carriesStreams(easy_);
  tls_ = isSecure && !carriesStreams_ ? CurlTrust::connectionOf(easy_) : nullptr;
  long newConnections = 0;
  ::curl_easy_getinfo(easy_, CURLINFO_NUM_CONNECTS, &newConnections);
  isReused_ = newConnections == 0;
  if (isReused_ && !carriesStreams_) {
    foundSurplus_ = sockets.hasUnreadBytes(easy_, connection_);
    if (foundSurplus_) return false;
    sockets.requestBegins(connection_, isSecure);
  }
  ++sendings_;
  return true;
}

CURLcode CurlExchange::resumeReceiving() {
  if (!isPaused_) return CURLE_OK;
  isPaused_ = false;
  lastProgress_ = surroundings_.now;
  return ::curl_easy_pause(easy_, CURLPAUSE_CONT);
}

CURLcode CurlExchange::takeTurn() {
  if (!std::exchange(isYielding_, false)) return CURLE_OK;
  return ::curl_easy_pause(easy_, CURLPAUSE_CONT);
}

CURLcode CurlExchange::nudge() {
  if (isPaused_ || isYielding_ || ::curl_easy_pause(easy_, CURLPAUSE_RECV) != CURLE_OK) {
    return CURLE_OK;
  }
  return ::curl_easy_pause(easy_, CURLPAUSE_CONT);
}

/// Whether a reused connection has died before any byte of an answer came. With HTTP/1.1 libcurl
/// would then open another one on its own.
bool CurlExchange::connectionDiedBefore(CURLcode code) const noexcept {
  if (wouldBeSentAgain_) return !answerHasBegun_;
  if (!isReused_ || !carriesStreams_ || hasLine_ || ownError_ != nullptr) return false;
  // A stream that the server has reset may end with the same codes, but its connection stays open.
  const bool isLost = code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR ||
                      code == CURLE_GOT_NOTHING || code == CURLE_PARTIAL_FILE ||
                      code == CURLE_HTTP2 || code == CURLE_HTTP2_STREAM;
  return isLost && surroundings_.sockets.hasEnded(connection_);
}

FailedExchange CurlExchange::failed(const CurlFailure& failure) const {
  return {.hasHeader = hasHeader(),
          .wasSent = sendings_ > 0 || ownError_ != nullptr,
          .connectionDiedBefore = connectionDiedBefore(failure.code),
          .isResend = transfer_->isResend,
          .isIdempotent = isIdempotent(request_->httpMethod),
          .isHTTP1Required = isHTTP1Required_ || saysThatHTTP1IsRequired(),
          .foundSurplus = foundSurplus_,
          .isUndecided = failure.verifyResult == undecidedVerifyResult(),
          .isMissingConnectivity = isMissingConnectivity(failure)};
}

CurlFailure CurlExchange::failureFor(CURLcode code) const {
  CurlFailure failure{.code = code};
  if (code == CURLE_OK) return failure;
  failure.detail = errorText_.data();
  failure.wasSent = sendings_ > 0;
  failure.hasHeader = hasHeader();
  failure.isChunked = framing_.kind == BodyFraming::Kind::chunked;
  failure.isSecure = transfer_->origin.isSecure;
  ::curl_easy_getinfo(easy_, CURLINFO_OS_ERRNO, &failure.systemError);
  if (socketError_ != 0) failure.systemError = socketError_;
  if (code == CURLE_COULDNT_RESOLVE_HOST && !areDescriptorsLeft()) failure.systemError = EMFILE;
  ::curl_easy_getinfo(easy_, CURLINFO_HTTP_CONNECTCODE, &failure.proxyStatus);
  failure.gaveCertificate = hasCertificate_;
  if (trust_ != nullptr) {
    // A reset may overtake the alert that tells of it.
    const bool isReset = failure.systemError == ECONNRESET || failure.systemError == EPIPE;
    const CurlTrust::HandshakeSigns& signs = trust_->signs();
    failure.wantsClientCertificate =
        signs.isRefused || (signs.isCertificateAskedFor && isReset && !isReused_);
  }
  ::curl_easy_getinfo(easy_, CURLINFO_SSL_VERIFYRESULT, &failure.verifyResult);
  return failure;
}

std::shared_ptr<const URLError> CurlExchange::errorFor(const CurlFailure& failure) const {
  using Code = URLError::Code;
  if (ownError_) return ownError_;
  if (wouldBeSentAgain_ && answerHasBegun_) {
    return makeURLError(Code::networkConnectionLost,
                        "the connection ended before the answer's header did");
  }
  if (connectionDiedBefore(failure.code)) {
    return makeURLError(Code::networkConnectionLost,
                        "the connection was lost before an answer came");
  }
  if (failure.code != CURLE_OK) return urlErrorFor(failure);
  if (!response_) {
    return makeURLError(Code::networkConnectionLost,
                        "the connection ended before the answer's header did");
  }
  // Without a length only TLS can tell the end from a connection that anybody has cut
  // (RFC 9112 section 9.8).
  const bool isCut = framing_.kind == BodyFraming::Kind::untilClose && tls_ && !tls_->hasEnded;
  if (isCut || (framing_.kind == BodyFraming::Kind::length && rawBytes_ != framing_.length)) {
    return makeURLError(Code::networkConnectionLost, "the answer's body is cut short");
  }
  if (!decoder_.isAtEnd()) {
    return makeURLError(Code::cannotDecodeContentData, "the answer's body is cut short");
  }
  return nullptr;
}

WireAnswer CurlExchange::takeAnswer() {
  curl_off_t sent = 0;
  ::curl_easy_getinfo(easy_, CURLINFO_SIZE_UPLOAD_T, &sent);
  return {.response = response_,
          .body = std::move(body_),
          .requestTime = requestTime_,
          .responseTime = responseTime_,
          .steps = steps(),
          .bytesSent = sent};
}

bool CurlExchange::hasConnection() const {
  curl_off_t microseconds = 0;
  long sentBytes = 0;
  ::curl_easy_getinfo(easy_, CURLINFO_CONNECT_TIME_T, &microseconds);
  ::curl_easy_getinfo(easy_, CURLINFO_REQUEST_SIZE, &sentBytes);
  return microseconds > 0 || sentBytes > 0;
}

URLSessionTaskMetrics CurlExchange::steps() const {
  URLSessionTaskMetrics metrics;
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
  return metrics;
}

}  // namespace ombrix::platform::detail
