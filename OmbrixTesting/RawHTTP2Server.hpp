#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "Tools/DevServer/HTTP/Certificates.hpp"

namespace ombrix::testing {

/// An HTTP/2 server (RFC 9113) over TLS that answers each request with any bytes that a test
/// returns. It follows no rules and decodes no headers: requests are identified by their streams
/// and their order. Link OmbrixTestServer and OpenSSL::SSL.
class RawHTTP2Server {
 public:
  enum class Frame : std::uint8_t {
    data = 0,
    headers = 1,
    reset = 3,
    settings = 4,
    pushPromise = 5,
    ping = 6,
    goAway = 7,
    windowUpdate = 8,
    continuation = 9,
  };
  static constexpr std::uint8_t kEndStream = 1;  // of `data` and `headers`
  static constexpr std::uint8_t kAck = 1;        // of `settings` and `ping`
  static constexpr std::uint8_t kEndHeaders = 4;

  struct Reply {
    std::string bytes;
    bool closes = false;  ///< the connection, properly, after the bytes
  };
  /// Called on the thread of a connection, with the stream of each complete request.
  using Handler = std::function<Reply(std::uint32_t stream)>;

  struct Options {
    int verifyMode = SSL_VERIFY_NONE;  ///< OpenSSL's, for certificates of clients
    int newestTLS = TLS1_3_VERSION;
    bool changesCertificate = false;  ///< for each connection
  };

  explicit RawHTTP2Server(Handler handler) : RawHTTP2Server(std::move(handler), Options()) {}
  RawHTTP2Server(Handler handler, const Options& options)
      : handler_(std::move(handler)), options_(options) {
    SSL_CTX* context = identity_.context.get();
    ::SSL_CTX_set_alpn_select_cb(context, &chooseProtocol, nullptr);
    (void)::SSL_CTX_set_min_proto_version(context, std::min(options.newestTLS, TLS1_2_VERSION));
    (void)::SSL_CTX_set_max_proto_version(context, options.newestTLS);
    ::SSL_CTX_set_verify(context, options.verifyMode, nullptr);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    (void)::bind(listener_, any, size);
    (void)::listen(listener_, 64);
    (void)::getsockname(listener_, any, &size);
    port_ = ntohs(address.sin_port);
    threads_.emplace_back([this] { acceptAll(); });
  }
  ~RawHTTP2Server() {
    isStopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    {
      const platform::LockGuard lock(mutex_);
      for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
    }
    threads_.front().join();  // no more are added afterwards
    threads_.clear();
    ::close(listener_);
  }
  RawHTTP2Server(const RawHTTP2Server&) = delete;
  RawHTTP2Server& operator=(const RawHTTP2Server&) = delete;

  [[nodiscard]] int port() const noexcept { return port_; }

  /// Whether a client accepts a request for its certificate after the handshake; for
  /// SSL_VERIFY_POST_HANDSHAKE.
  [[nodiscard]] bool mayAskLater() const noexcept { return mayAskLater_; }

  [[nodiscard]] std::string url(std::string_view path = "/") const {
    return "https://api.ombrix.test:" + std::to_string(port_) + std::string(path);
  }

  static std::string frame(Frame type, std::uint8_t flags, std::uint32_t stream,
                           std::string_view payload) {
    std::string bytes = number(static_cast<std::uint32_t>(payload.size())).substr(1);
    bytes.push_back(static_cast<char>(type));
    bytes.push_back(static_cast<char>(flags));
    return bytes.append(number(stream)).append(payload);
  }
  static std::string number(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes.push_back(static_cast<char>(value >> shift));
    return bytes;
  }
  /// A header field in the encoding of a header block, neither indexed nor compressed (RFC 7541
  /// section 6.2.2); names and values of at most 126 bytes.
  static std::string field(std::string_view name, std::string_view value) {
    std::string bytes(1, '\0');
    for (const std::string_view text : {name, value}) {
      bytes.push_back(static_cast<char>(text.size()));
      bytes.append(text);
    }
    return bytes;
  }
  static std::string headers(std::uint32_t stream, std::string_view block, std::uint8_t more = 0) {
    return frame(Frame::headers, static_cast<std::uint8_t>(kEndHeaders | more), stream, block);
  }
  static std::string data(std::uint32_t stream, std::string_view bytes, std::uint8_t flags = 0) {
    return frame(Frame::data, flags, stream, bytes);
  }
  static std::string reset(std::uint32_t stream, std::uint32_t code) {
    return frame(Frame::reset, 0, stream, number(code));
  }
  static std::string goAway(std::uint32_t lastStream, std::uint32_t code) {
    return frame(Frame::goAway, 0, 0, number(lastStream) + number(code));
  }

 private:
  static int chooseProtocol(SSL*, const unsigned char** chosen, unsigned char* size,
                            const unsigned char* offered, unsigned offeredBytes, void*) {
    const std::string_view names(reinterpret_cast<const char*>(offered), offeredBytes);
    const auto at = names.find("\x02h2");
    if (at == std::string_view::npos) return SSL_TLSEXT_ERR_NOACK;
    *chosen = offered + at + 1;
    *size = 2;
    return SSL_TLSEXT_ERR_OK;
  }

  void acceptAll() {
    while (!isStopping_) {
      const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (socket < 0) continue;
      const platform::LockGuard lock(mutex_);
      sockets_.push_back(socket);
      threads_.emplace_back([this, socket] { serve(socket); });
    }
  }

  void serve(int socket) {
    sigset_t brokenPipe;
    ::sigemptyset(&brokenPipe);
    ::sigaddset(&brokenPipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &brokenPipe, nullptr);
    std::optional<devserver::Identity> own;
    if (options_.changesCertificate) {
      own = devserver::makeIdentity(devserver::Certificate::selfSigned);
    }
    const std::unique_ptr<SSL, decltype(&::SSL_free)> tls(
        ::SSL_new((own ? *own : identity_).context.get()), &::SSL_free);
    ::SSL_set_fd(tls.get(), socket);
    if (::SSL_accept(tls.get()) == 1) {
      if ((options_.verifyMode & SSL_VERIFY_POST_HANDSHAKE) != 0) {
        mayAskLater_ = ::SSL_verify_client_post_handshake(tls.get()) == 1;
      }
      const unsigned char* protocol = nullptr;
      unsigned size = 0;
      ::SSL_get0_alpn_selected(tls.get(), &protocol, &size);
      size == 0 ? answerByHTTP1(tls.get()) : converse(tls.get());
    }
    const platform::LockGuard lock(mutex_);
    std::erase(sockets_, socket);
    ::close(socket);
  }

  /// Answers "200 abc" to any request of a client that does not support HTTP/2.
  static void answerByHTTP1(SSL* tls) {
    constexpr std::string_view kLength = "Content-Length: ";
    std::string header;
    for (std::string byte(1, '\0'); !header.ends_with("\r\n\r\n"); header += byte) {
      if (!read(tls, byte)) return;
    }
    const auto length = header.find(kLength);
    std::string body;
    if (length != std::string::npos)
      body.resize(std::stoul(header.substr(length + kLength.size())));
    if (!read(tls, body)) return;
    write(tls, "HTTP/1.1 200 OK\r\nContent-Length: 3\r\n\r\nabc");
    read(tls, header);  // until the client closes it
  }

  void converse(SSL* tls) const {
    constexpr std::size_t kPrefaceBytes = 24;
    std::string header(kPrefaceBytes, '\0');
    if (!read(tls, header) || !write(tls, frame(Frame::settings, 0, 0, ""))) return;
    header.resize(9);
    while (read(tls, header)) {
      const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(header[at]); };
      std::string payload(std::size_t{byte(0)} << 16 | std::size_t{byte(1)} << 8 | byte(2), '\0');
      if (!read(tls, payload)) return;
      const auto type = static_cast<Frame>(byte(3));
      const std::uint8_t flags = byte(4);
      const std::uint32_t stream = std::uint32_t{byte(5)} << 24 | std::uint32_t{byte(6)} << 16 |
                                   std::uint32_t{byte(7)} << 8 | byte(8);
      if ((type == Frame::settings || type == Frame::ping) && (flags & kAck) == 0) {
        if (!write(tls, frame(type, kAck, 0, type == Frame::ping ? payload : ""))) return;
      }
      const bool isWhole = (type == Frame::headers || type == Frame::data) && (flags & kEndStream);
      if (!isWhole) continue;
      const Reply reply = handler_(stream);
      if (!write(tls, reply.bytes)) return;
      if (!reply.closes) continue;
      ::SSL_shutdown(tls);
      ::shutdown(::SSL_get_fd(tls), SHUT_WR);
      // Unread bytes would turn the close into a reset, which discards the answer.
      while (::recv(::SSL_get_fd(tls), header.data(), header.size(), 0) > 0) continue;
      return;
    }
  }

  static bool read(SSL* tls, std::string& bytes) {
    std::size_t done = 0;
    for (std::size_t count = 0; done < bytes.size(); done += count) {
      if (::SSL_read_ex(tls, bytes.data() + done, bytes.size() - done, &count) != 1) return false;
    }
    return true;
  }
  static bool write(SSL* tls, std::string_view bytes) {
    std::size_t count = 0;
    return bytes.empty() || ::SSL_write_ex(tls, bytes.data(), bytes.size(), &count) == 1;
  }

  const Handler handler_;
  const Options options_;
  const devserver::Identity identity_ = devserver::makeIdentity(devserver::Certificate::selfSigned);
  const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int port_ = 0;
  std::atomic<bool> isStopping_ = false;
  std::atomic<bool> mayAskLater_ = false;
  platform::Mutex mutex_;
  std::vector<int> sockets_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<std::jthread> threads_;  // the first one accepts connections
};

}  // namespace ombrix::testing
