#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// What a network thread sleeps on: the sockets that libcurl wants watched, and a call of other
/// threads (epoll).
///
/// A socket that is `keep`t stays watched while no transfer uses it: using the connection again
/// takes no system call, and what came meanwhile is known. Network thread only, but for `wake`.
class SocketWatch {
 public:
  struct Ready {
    curl_socket_t socket;
    int events;  ///< as `curl_multi_socket_action` wants them
  };

  /// Gets what it takes from the system; again: nothing. Throws `std::system_error`.
  void open();

  /// Has a multi handle tell which sockets it wants watched. It must not outlive this object.
  void install(CURLM* multi);

  /// Ends the wait that is under way, or else the next one. Any thread, after `open`.
  void wake() const noexcept;

  /// Waits for sockets that somebody uses, not at all when the limit is 0.
  /// @return Those that are ready, valid until the next call; empty when the limit has passed, when
  ///         `wake` was called, or for another reason to look again.
  std::span<const Ready> wait(std::chrono::milliseconds limit);

  /// A new socket whose end `forget` will tell of, before it is closed.
  void keep(curl_socket_t socket);
  void forget(curl_socket_t socket) noexcept;

  /// Whether a kept socket that nobody uses may hold bytes, or have come to its end; false when a
  /// look since its last use has shown that it does not.
  [[nodiscard]] bool mayHoldBytes(curl_socket_t socket) const noexcept;

 private:
  static constexpr std::size_t kReadyAtOnce = 64;

  struct Watched {
    std::uint32_t wanted = 0;   // of EPOLLIN and EPOLLOUT; 0: nobody uses it
    std::uint32_t watched = 0;  // the same, as the system knows it; 0: it does not know it
    std::uint64_t idleSince = 0;
    bool isKept = false;
  };

  static int socketIsWanted(CURL* easy, curl_socket_t socket, int what, void* self,
                            void* ofSocket) noexcept;

  void want(curl_socket_t socket, int what);
  void watch(curl_socket_t socket, Watched& state, std::uint32_t events) noexcept;
  Watched& stateOf(curl_socket_t socket);

  Descriptor all_;
  Descriptor call_;
  std::vector<Watched> states_;  // by descriptor, which the system gives out from below
  std::vector<Ready> ready_;
  std::uint64_t looks_ = 0;  // that have shown all that was ready
};

}  // namespace ombrix::platform::detail
