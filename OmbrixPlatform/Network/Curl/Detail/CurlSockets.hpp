#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ombrix::platform::detail {

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

    friend bool operator==(const Connection&, const Connection&) = default;
  };

  /// Opens a socket and keeps it in mind; `CURL_SOCKET_BAD` with errno when there is none.
  curl_socket_t open(const curl_sockaddr& address);

  /// Makes a transfer close its sockets here.
  void installClosing(CURL* easy);

  /// Whether a connection of HTTP/1 that is about to be used again holds bytes that its server sent
  /// without being asked. Over TLS the bytes of the protocol itself do not count.
  [[nodiscard]] bool hasUnreadBytes(CURL* easy, const Connection& connection);

  /// A number for the connection that a transfer over TLS is about to use, if it is one of HTTP/2;
  /// else 0.
  [[nodiscard]] std::uint64_t streamsConnection(CURL* easy, const Connection& connection);

  /// Whether the connection of that number is closed, or its server has ended it.
  [[nodiscard]] bool hasEnded(std::uint64_t number) const noexcept;

 private:
  struct Socket {
    curl_socket_t descriptor = CURL_SOCKET_BAD;
    std::uint64_t number = 0;
    Connection ends;  // without ports until it is connected and asked for
  };

  static int close(void* self, curl_socket_t descriptor);

  Socket* find(const Connection& connection);

  std::vector<Socket> sockets_;
  std::uint64_t lastNumber_ = 0;
};

}  // namespace ombrix::platform::detail
