#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "OmbrixPlatform/Network/Curl/Detail/SocketWatch.hpp"

struct ssl_st;

namespace ombrix::platform::detail {

/// The TLS of the connection that a transfer uses; null without.
[[nodiscard]] ssl_st* tlsOf(CURL* easy);

/// The sockets of one network thread, which libcurl does not show while they are in use. It must
/// outlive the multi handle. Network thread only.
class CurlSockets {
 public:
  /// A connection by its two ends, as libcurl names them.
  struct Connection {
    std::string remoteAddress;
    std::string localAddress;
    int remotePort = 0;
    int localPort = 0;

    friend bool operator==(const Connection& a, const Connection& b) noexcept {
      // Most ends differ in this one.
      return a.localPort == b.localPort && a.remotePort == b.remotePort &&
             a.localAddress == b.localAddress && a.remoteAddress == b.remoteAddress;
    }
  };

  /// The watch in which their thread waits for them.
  [[nodiscard]] SocketWatch& watch() noexcept { return watch_; }

  /// Opens a socket and keeps track of it; `CURL_SOCKET_BAD` with errno when none can be opened.
  curl_socket_t open(const curl_sockaddr& address);

  /// Makes a transfer close its sockets through this object.
  void installClosing(CURL* easy);

  /// The number of a connection, never used again; 0 for one that was not opened here.
  [[nodiscard]] std::uint64_t numberOf(const Connection& connection);

  /// Whether the connection that a transfer is about to use is one of HTTP/2.
  [[nodiscard]] static bool carriesStreams(CURL* easy);

  /// Whether an HTTP/1 connection that is about to be reused holds bytes that its server sent
  /// without being asked. Over TLS the bytes of the protocol itself do not count.
  [[nodiscard]] bool hasUnreadBytes(CURL* easy, std::uint64_t number) const;

  /// Called when a request goes out on a reused HTTP/1 connection.
  void requestBegins(std::uint64_t number, bool isSecure);

  /// The answer to the last request is whole. Where its bytes on the wire are known, as they are
  /// neither with chunks nor with TLS, the system need not be asked when the next request goes out.
  void answerEnded(std::uint64_t number, std::uint64_t bytes) noexcept;

  /// Whether a connection that is closed now had brought bytes since its last request began. As few
  /// as its end takes do not count: one byte, or with TLS up to 9 in a record of their own, cannot
  /// be told from an end.
  [[nodiscard]] bool endedInAnAnswer(std::uint64_t number) const noexcept;

  /// Whether the connection with that number is closed, or its server has ended it.
  [[nodiscard]] bool hasEnded(std::uint64_t number) const noexcept;

 private:
  struct Socket {
    curl_socket_t descriptor = CURL_SOCKET_BAD;
    std::uint64_t number = 0;
    Connection ends;                          // without ports until it is connected and asked for
    std::uint64_t bytesAllowed = kNoRequest;  // the total when no byte of an answer had come
    std::uint64_t bytesBefore = kNoRequest;   // received before the last request began
    bool isCounted = false;                   // those before the next request are known
  };
  static constexpr std::uint64_t kNoRequest = ~std::uint64_t{};
  static constexpr std::size_t kEndedKept = 64;

  static int close(void* self, curl_socket_t descriptor) noexcept;

  [[nodiscard]] const Socket* find(std::uint64_t number) const noexcept;
  [[nodiscard]] Socket* find(std::uint64_t number) noexcept;

  SocketWatch watch_;
  std::vector<Socket> sockets_;
  std::array<std::uint64_t, kEndedKept> endedInAnswers_{};  // the last of them, in a ring
  std::size_t endings_ = 0;
  std::uint64_t lastNumber_ = 0;
};

}  // namespace ombrix::platform::detail
