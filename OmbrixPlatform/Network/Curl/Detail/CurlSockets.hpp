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
      // Mostly they differ by this one.
      return a.localPort == b.localPort && a.remotePort == b.remotePort &&
             a.localAddress == b.localAddress && a.remoteAddress == b.remoteAddress;
    }
  };

  /// Where their thread waits for them.
  [[nodiscard]] SocketWatch& watch() noexcept { return watch_; }

  /// Opens a socket and keeps it in mind; `CURL_SOCKET_BAD` with errno when there is none.
  curl_socket_t open(const curl_sockaddr& address);

  /// Makes a transfer close its sockets here.
  void installClosing(CURL* easy);

  /// The number of a connection, never used again; 0 for one that was not opened here.
  [[nodiscard]] std::uint64_t numberOf(const Connection& connection);

  /// Whether the connection that a transfer is about to use is one of HTTP/2.
  [[nodiscard]] static bool carriesStreams(CURL* easy);

  /// Whether a connection of HTTP/1 that is about to be used again holds bytes that its server sent
  /// without being asked. Over TLS the bytes of the protocol itself do not count.
  [[nodiscard]] bool hasUnreadBytes(CURL* easy, std::uint64_t number) const;

  /// A request goes out on a connection of HTTP/1 that is used again.
  void requestBegins(std::uint64_t number, bool isSecure);

  /// The answer to the last request is whole. Where it took just so many bytes on the wire, which
  /// nobody can tell of chunks or TLS, the system need not be asked when the next one goes out.
  void answerEnded(std::uint64_t number, std::uint64_t bytes) noexcept;

  /// Whether a connection that is closed now had brought bytes since its last request began. So
  /// few as its end takes do not count: one byte, over TLS at most 9 in a record of their own, are
  /// not told from that.
  [[nodiscard]] bool endedInAnAnswer(std::uint64_t number) const noexcept;

  /// Whether the connection of that number is closed, or its server has ended it.
  [[nodiscard]] bool hasEnded(std::uint64_t number) const noexcept;

 private:
  struct Socket {
    curl_socket_t descriptor = CURL_SOCKET_BAD;
    std::uint64_t number = 0;
    Connection ends;                          // without ports until it is connected and asked for
    std::uint64_t bytesAllowed = kNoRequest;  // received in all, without any of an answer
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
