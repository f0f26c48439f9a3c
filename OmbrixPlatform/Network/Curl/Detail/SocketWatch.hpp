#pragma once

#include "OmbrixPlatform/Network/Curl/Detail/LoadedCurl.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "OmbrixPlatform/Detail/Descriptor.hpp"

namespace ombrix::platform::detail {

/// What a network thread sleeps on (epoll): the sockets that libcurl wants watched, and calls from
/// other threads.
///
/// A socket that is `keep`t stays watched while no transfer uses it: reusing the connection takes
/// no system call, and bytes that came meanwhile are noticed. Network thread only, but for `wake`.
class SocketWatch {
 public:
  struct Ready {
    curl_socket_t socket;
    int events;  ///< as `curl_multi_socket_action` wants them
  };

  /// Opens the descriptors that it needs; a second call does nothing. Throws `std::system_error`.
  void open();

  /// Makes a multi handle report the sockets that it wants watched. The handle must not outlive
  /// this object.
  void install(CURLM* multi);

  /// Ends the present wait, or the next one if there is none. Any thread, after `open`.
  void wake() const noexcept;

  /// Waits for the sockets that are in use; does not wait when the limit is 0.
  /// @return Those that are ready, valid until the next call; empty when the limit has passed, when
  ///         `wake` was called, or when there is another reason to look again.
  std::span<const Ready> wait(std::chrono::milliseconds limit);

  /// Adds a new socket; `forget` is called before it is closed.
  void keep(curl_socket_t socket);
  void forget(curl_socket_t socket) noexcept;

  /// Whether a kept socket that is not in use may hold bytes or have been closed by its peer; false
  /// when a look since its last use has shown neither.
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
  std::vector<Watched> states_;  // by descriptor: the system gives out the lowest free number
  std::vector<Ready> ready_;
  std::uint64_t looks_ = 0;  // since when all ready sockets were seen
};

}  // namespace ombrix::platform::detail
