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
#include <limits>
#include <string>
#include <string_view>

namespace ombrix::devserver {

/// A plain connection to a server on 127.0.0.1, byte for byte.
class RawClient {
 public:
  explicit RawClient(std::uint16_t port) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    isConnected_ =
        ::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawClient() { ::close(socket_); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  [[nodiscard]] bool isConnected() const { return isConnected_; }

  void send(std::string_view bytes) const {
    while (!bytes.empty()) {
      const auto count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count <= 0) return;
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
  }

  /// Reads until the connection ends, the text ends so, or that much has come; "(reset)" and
  /// "(nothing more)" tell of what else ended it.
  std::string receive(std::string_view until = "(end)",
                      std::size_t most = std::numeric_limits<std::size_t>::max()) const {
    std::string received;
    std::array<char, std::size_t{64} * 1024> block;
    while (!received.ends_with(until) && received.size() < most) {
      pollfd ready{socket_, POLLIN, 0};
      if (::poll(&ready, 1, 20'000) != 1) return received + "(nothing more)";
      const auto count = ::recv(socket_, block.data(), block.size(), 0);
      if (count < 0) return received + (errno == ECONNRESET ? "(reset)" : "(error)");
      if (count == 0) break;
      received.append(block.data(), static_cast<std::size_t>(count));
    }
    return received;
  }

  std::string exchange(std::string_view bytes, std::string_view until = "(end)") const {
    send(bytes);
    return receive(until);
  }

 private:
  int socket_;
  bool isConnected_ = false;
};

}  // namespace ombrix::devserver
