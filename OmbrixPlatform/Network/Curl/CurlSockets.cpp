#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "OmbrixPlatform/Network/Curl/Detail/CurlSockets.hpp"

namespace ombrix::platform::detail {
namespace {

/// One end of a socket; port 0 when it has none.
void readEnd(curl_socket_t descriptor, int (*end)(int, sockaddr*, socklen_t*), std::string& address,
             int& port) {
  sockaddr_storage storage{};
  socklen_t size = sizeof storage;
  if (end(descriptor, reinterpret_cast<sockaddr*>(&storage), &size) != 0) return;
  std::array<char, INET6_ADDRSTRLEN> text{};
  const bool isIPv6 = storage.ss_family == AF_INET6;
  const auto* as6 = reinterpret_cast<const sockaddr_in6*>(&storage);
  const auto* as4 = reinterpret_cast<const sockaddr_in*>(&storage);
  const void* bytes = isIPv6 ? static_cast<const void*>(&as6->sin6_addr) : &as4->sin_addr;
  if (::inet_ntop(storage.ss_family, bytes, text.data(), text.size()) == nullptr) return;
  address = text.data();
  port = ntohs(isIPv6 ? as6->sin6_port : as4->sin_port);
}

/// The TLS of the connection that a transfer uses; null without.
SSL* tlsOf(CURL* easy) {
  curl_tlssessioninfo* session = nullptr;
  ::curl_easy_getinfo(easy, CURLINFO_TLS_SSL_PTR, &session);
  if (session == nullptr || session->backend != CURLSSLBACKEND_OPENSSL) return nullptr;
  return static_cast<SSL*>(session->internals);
}

}  // namespace

void CurlSockets::installClosing(CURL* easy) {
  ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &close);
  ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
}

curl_socket_t CurlSockets::open(const curl_sockaddr& address) {
  const curl_socket_t descriptor =
      ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (descriptor >= 0) sockets_.push_back({.descriptor = descriptor, .number = ++lastNumber_});
  return descriptor;
}

int CurlSockets::close(void* self, curl_socket_t descriptor) {
  std::erase_if(static_cast<CurlSockets*>(self)->sockets_,
                [&](const Socket& socket) { return socket.descriptor == descriptor; });
  return ::close(descriptor);
}

CurlSockets::Socket* CurlSockets::find(const Connection& connection) {
  for (Socket& socket : sockets_) {
    Connection& ends = socket.ends;
    if (ends.remotePort == 0) {
      readEnd(socket.descriptor, &::getsockname, ends.localAddress, ends.localPort);
      readEnd(socket.descriptor, &::getpeername, ends.remoteAddress, ends.remotePort);
    }
    if (ends == connection) return &socket;
  }
  return nullptr;
}

bool CurlSockets::hasUnreadBytes(CURL* easy, const Connection& connection) {
  const Socket* socket = find(connection);
  char byte = 0;
  if (socket == nullptr || ::recv(socket->descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0) {
    return false;
  }
  SSL* tls = tlsOf(easy);
  if (tls == nullptr) return true;
  const bool isUnread = ::SSL_peek(tls, &byte, 1) > 0;
  ::ERR_clear_error();
  return isUnread;
}

bool CurlSockets::hasEnded(std::uint64_t number) const noexcept {
  const auto socket = std::ranges::find(sockets_, number, &Socket::number);
  if (socket == sockets_.end()) return true;
  char byte = 0;
  const auto count = ::recv(socket->descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count == 0 || (count < 0 && errno != EAGAIN);
}

std::uint64_t CurlSockets::streamsConnection(CURL* easy, const Connection& connection) {
  SSL* tls = tlsOf(easy);
  if (tls == nullptr) return 0;
  const unsigned char* protocol = nullptr;
  unsigned size = 0;
  ::SSL_get0_alpn_selected(tls, &protocol, &size);
  if (size != 2) return 0;  // "h2"
  const Socket* socket = find(connection);
  return socket == nullptr ? 0 : socket->number;
}

}  // namespace ombrix::platform::detail
