#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "OmbrixPlatform/Network/Detail/CurlSockets.hpp"

namespace ombrix::platform::detail {
namespace {

/// The port of a socket's one end; 0 when it has none.
int portOf(curl_socket_t descriptor, int (*end)(int, sockaddr*, socklen_t*)) {
  sockaddr_in6 address{};  // IPv4 has its port in the same place
  socklen_t size = sizeof address;
  if (end(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.sin6_port);
}

}  // namespace

void CurlSockets::installClosing(CURL* easy) {
  ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &close);
  ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
}

curl_socket_t CurlSockets::open(const curl_sockaddr& address) {
  const curl_socket_t descriptor =
      ::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol);
  if (descriptor >= 0) sockets_.push_back({descriptor, 0, 0});
  return descriptor;
}

int CurlSockets::close(void* self, curl_socket_t descriptor) {
  std::erase_if(static_cast<CurlSockets*>(self)->sockets_,
                [&](const Socket& socket) { return socket.descriptor == descriptor; });
  return ::close(descriptor);
}

bool CurlSockets::hasUnreadBytes(CURL* easy, int localPort, int remotePort) {
  for (Socket& socket : sockets_) {
    if (socket.remotePort == 0) {
      socket.localPort = portOf(socket.descriptor, &::getsockname);
      socket.remotePort = portOf(socket.descriptor, &::getpeername);
    }
    if (socket.localPort != localPort || socket.remotePort != remotePort) continue;
    char byte = 0;
    if (::recv(socket.descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0) return false;
    curl_tlssessioninfo* session = nullptr;
    ::curl_easy_getinfo(easy, CURLINFO_TLS_SSL_PTR, &session);
    if (session == nullptr || session->backend != CURLSSLBACKEND_OPENSSL ||
        session->internals == nullptr) {
      return true;
    }
    auto* tls = static_cast<SSL*>(session->internals);
    const unsigned char* protocol = nullptr;
    unsigned size = 0;
    ::SSL_get0_alpn_selected(tls, &protocol, &size);
    if (size == 2) return false;  // "h2"
    const bool isUnread = ::SSL_peek(tls, &byte, 1) > 0;
    ::ERR_clear_error();
    return isUnread;
  }
  return false;
}

}  // namespace ombrix::platform::detail
