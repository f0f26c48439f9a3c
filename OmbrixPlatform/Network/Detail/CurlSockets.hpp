#pragma once

#include <curl/curl.h>

#include <vector>

namespace ombrix::platform::detail {

/// The sockets of one network thread, which libcurl does not show while they are in use. It must
/// outlive the multi handle. Network thread only.
class CurlSockets {
 public:
  /// Opens a socket and keeps it in mind; `CURL_SOCKET_BAD` with errno when there is none.
  curl_socket_t open(const curl_sockaddr& address);

  /// Makes a transfer close its sockets here.
  void installClosing(CURL* easy);

  /// Whether the connection between these ports, about to be used again, holds bytes that its
  /// server sent without being asked. Over TLS the bytes of the protocol itself do not count, and
  /// neither do the frames that HTTP/2 sends at any time.
  [[nodiscard]] bool hasUnreadBytes(CURL* easy, int localPort, int remotePort);

 private:
  struct Socket {
    curl_socket_t descriptor;
    int localPort;
    int remotePort;  // 0 until it is connected and asked for
  };

  static int close(void* self, curl_socket_t descriptor);

  std::vector<Socket> sockets_;
};

}  // namespace ombrix::platform::detail
