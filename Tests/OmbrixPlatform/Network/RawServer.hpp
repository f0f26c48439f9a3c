#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace ombrix::testing {

/// A connection of `RawServer`, seen from the server.
class RawConnection {
 public:
  explicit RawConnection(int descriptor) : descriptor_(descriptor) {}

  /// The next request: its header and as much body as "Content-Length" says; empty at the end.
  std::string readRequest() {
    while (true) {
      if (const auto end = pending_.find("\r\n\r\n"); end != std::string::npos) {
        const auto length = pending_.find("Content-Length: ");
        const std::size_t body =
            length < end ? std::strtoul(pending_.c_str() + length + 16, nullptr, 10) : 0;
        const std::size_t whole = end + 4 + body;
        if (pending_.size() >= whole) {
          std::string request = pending_.substr(0, whole);
          pending_.erase(0, whole);
          return request;
        }
      }
      char buffer[16384];
      const auto count = ::recv(descriptor_, buffer, sizeof buffer, 0);
      if (count <= 0) return {};
      pending_.append(buffer, static_cast<std::size_t>(count));
    }
  }

  bool send(std::string_view text) const {
    while (!text.empty()) {
      const auto count = ::send(descriptor_, text.data(), text.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      text.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  /// Answers with a body and the length that it has.
  bool answer(std::string_view status, std::string_view body, std::string_view fields = "") const {
    return send("HTTP/1.1 " + std::string(status) +
                "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" +
                std::string(fields) + "\r\n" + std::string(body));
  }

  /// Makes the close at the end a reset.
  void resetAtEnd() const {
    const linger option{1, 0};
    ::setsockopt(descriptor_, SOL_SOCKET, SO_LINGER, &option, sizeof option);
  }

  /// Waits until the client closes.
  void waitForEnd() {
    while (!readRequest().empty()) {
    }
  }

 private:
  int descriptor_;
  std::string pending_;
};

/// A server on a free port of the loopback address that leaves every byte to the test: the handler
/// gets each connection on a thread of its own, which is closed when it returns.
class RawServer {
 public:
  using Handler = std::function<void(RawConnection&)>;

  explicit RawServer(Handler handler) : handler_(std::move(handler)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(listener_, 512) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      std::abort();
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept(); });
  }

  ~RawServer() {
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    ::close(listener_);
    {
      const std::lock_guard lock(mutex_);
      for (const int descriptor : open_) ::shutdown(descriptor, SHUT_RDWR);
    }
    for (auto& thread : threads_) thread.join();
  }

  [[nodiscard]] std::uint16_t port() const noexcept { return port_; }
  [[nodiscard]] std::string url(std::string_view path = "/") const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(path);
  }
  [[nodiscard]] int connections() const noexcept { return connections_; }

 private:
  void accept() {
    while (true) {
      const int descriptor = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (descriptor < 0) return;
      ++connections_;
      const std::lock_guard lock(mutex_);
      open_.push_back(descriptor);
      threads_.emplace_back([this, descriptor] {
        RawConnection connection(descriptor);
        handler_(connection);
        const std::lock_guard closing(mutex_);
        std::erase(open_, descriptor);
        ::close(descriptor);
      });
    }
  }

  const Handler handler_;
  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::atomic<int> connections_ = 0;
  std::mutex mutex_;
  std::vector<int> open_;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

}  // namespace ombrix::testing
