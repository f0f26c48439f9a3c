#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::testing {

/// An HTTP proxy: it opens tunnels ("CONNECT") and forwards requests, always to the requested port
/// on this machine, whatever the host. One request per connection. Any thread.
class ForwardingProxy {
 public:
  /// @param credentials The expected "Proxy-Authorization"; empty: any. Other requests get 407.
  explicit ForwardingProxy(std::string credentials = {}) : credentials_(std::move(credentials)) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    (void)::bind(listener_, any, size);
    (void)::listen(listener_, 64);
    (void)::getsockname(listener_, any, &size);
    port_ = ntohs(address.sin_port);
    accepting_ = std::jthread([this](const std::stop_token& stop) { acceptAll(stop); });
  }
  ~ForwardingProxy() {
    accepting_.request_stop();
    ::shutdown(listener_, SHUT_RDWR);
    accepting_.join();  // no more are added afterwards
    {
      const platform::LockGuard lock(mutex_);
      for (const int socket : sockets_) ::shutdown(socket, SHUT_RDWR);
    }
    serving_.clear();
    for (const int socket : sockets_) ::close(socket);
    ::close(listener_);
  }
  ForwardingProxy(const ForwardingProxy&) = delete;
  ForwardingProxy& operator=(const ForwardingProxy&) = delete;

  [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

  /// The first lines of the requests since the last call.
  std::vector<std::string> takeRequests() {
    const platform::LockGuard lock(mutex_);
    return std::exchange(requests_, {});
  }

 private:
  static sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
  }

  void acceptAll(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      keep(client);
      serving_.emplace_back([this, client] { serve(client); });
    }
  }

  void keep(int socket) {
    const platform::LockGuard lock(mutex_);
    sockets_.push_back(socket);
  }

  void serve(int client) {
    std::string head;
    for (char byte = 0; !head.ends_with("\r\n\r\n"); head += byte) {
      if (::recv(client, &byte, 1, 0) != 1) return;
    }
    const std::string line = head.substr(0, head.find('\r'));
    {
      const platform::LockGuard lock(mutex_);
      requests_.push_back(line);
    }
    if (head.find("Proxy-Authorization: " + credentials_ + "\r\n") == std::string::npos &&
        !credentials_.empty()) {
      send(client, "HTTP/1.1 407 No\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
      ::shutdown(client, SHUT_RDWR);
      return;
    }
    const bool isWay = line.starts_with("CONNECT ");
    std::string target = line.substr(line.find(' ') + 1);
    if (!isWay) target.erase(0, std::string_view("http://").size());
    const auto end = target.find_first_of("/ ");
    const std::string authority = target.substr(0, end);
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    keep(server);
    const sockaddr_in address =
        loopback(static_cast<std::uint16_t>(std::stoi(authority.substr(authority.rfind(':') + 1))));
    if (::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return;
    if (isWay) {
      send(client, "HTTP/1.1 200 OK\r\n\r\n");
    } else {
      send(server,
           line.substr(0, line.find(' ') + 1) + target.substr(end) + head.substr(line.size()));
    }
    relay(client, server);
  }

  static bool send(int socket, std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t count = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return false;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  /// Relays bytes both ways until one side ends.
  static void relay(int a, int b) {
    std::array<pollfd, 2> both{pollfd{a, POLLIN, 0}, pollfd{b, POLLIN, 0}};
    std::array<char, 16'384> block{};
    for (;;) {
      if (::poll(both.data(), both.size(), -1) < 0 && errno != EINTR) return;
      for (std::size_t i = 0; i < 2; ++i) {
        if (both[i].revents == 0) continue;
        const ssize_t count = ::recv(both[i].fd, block.data(), block.size(), 0);
        if (count <= 0 || !send(both[1 - i].fd, {block.data(), static_cast<std::size_t>(count)})) {
          ::shutdown(a, SHUT_RDWR);
          ::shutdown(b, SHUT_RDWR);
          return;
        }
      }
    }
  }

  const std::string credentials_;
  const int listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::uint16_t port_ = 0;
  platform::Mutex mutex_;
  std::vector<int> sockets_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<std::string> requests_ OMBRIX_GUARDED_BY(mutex_);
  std::vector<std::jthread> serving_;  // used by the accepting thread, then by the destructor
  std::jthread accepting_;
};

}  // namespace ombrix::testing
