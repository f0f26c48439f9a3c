#include <arpa/inet.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

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

/// How many bytes the peer has sent on a connection so far, by the system's count.
std::uint64_t bytesReceived(curl_socket_t descriptor) noexcept {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return 0;
  return info.tcpi_bytes_received;
}

constexpr std::uint64_t kEndBytes = 1;  // the system counts the connection's end as one byte
// The record by which TLS ends a connection, with the ciphers of today (TLS 1.2: 31, 1.3: 24).
constexpr std::uint64_t kAlertBytes = 31;

}  // namespace

ssl_st* tlsOf(CURL* easy) {
  curl_tlssessioninfo* session = nullptr;
  ::curl_easy_getinfo(easy, CURLINFO_TLS_SSL_PTR, &session);
  if (session == nullptr || session->backend != CURLSSLBACKEND_OPENSSL) return nullptr;
  return static_cast<SSL*>(session->internals);
}

void CurlSockets::installClosing(CURL* easy) {
  ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &close);
  ::curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
}

curl_socket_t CurlSockets::open(const curl_sockaddr& address) {
  Descriptor socket(::socket(address.family, address.socktype | SOCK_CLOEXEC, address.protocol));
  if (!socket) return CURL_SOCKET_BAD;
  watch_.keep(socket.get());
  try {
    sockets_.push_back({.descriptor = socket.get(), .number = ++lastNumber_});
  } catch (...) {
    watch_.forget(socket.get());
    throw;
  }
  return socket.release();
}

int CurlSockets::close(void* self, curl_socket_t descriptor) noexcept {
  auto& sockets = *static_cast<CurlSockets*>(self);
  const auto socket = std::ranges::find(sockets.sockets_, descriptor, &Socket::descriptor);
  if (socket != sockets.sockets_.end()) {
    if (socket->bytesAllowed != kNoRequest && bytesReceived(descriptor) > socket->bytesAllowed) {
      sockets.endedInAnswers_[sockets.endings_++ % kEndedKept] = socket->number;
    }
    *socket = std::move(sockets.sockets_.back());
    sockets.sockets_.pop_back();
  }
  sockets.watch_.forget(descriptor);
  return ::close(descriptor);
}

std::uint64_t CurlSockets::numberOf(const Connection& connection) {
  for (Socket& socket : sockets_) {
    Connection& ends = socket.ends;
    if (ends.remotePort == 0) {
      readEnd(socket.descriptor, &::getsockname, ends.localAddress, ends.localPort);
      readEnd(socket.descriptor, &::getpeername, ends.remoteAddress, ends.remotePort);
    }
    if (ends == connection) return socket.number;
  }
  return 0;
}

const CurlSockets::Socket* CurlSockets::find(std::uint64_t number) const noexcept {
  const auto socket = std::ranges::find(sockets_, number, &Socket::number);
  return socket == sockets_.end() ? nullptr : &*socket;
}

CurlSockets::Socket* CurlSockets::find(std::uint64_t number) noexcept {
  return const_cast<Socket*>(std::as_const(*this).find(number));
}

bool CurlSockets::carriesStreams(CURL* easy) {
  SSL* tls = tlsOf(easy);
  if (tls == nullptr) return false;
  const unsigned char* protocol = nullptr;
  unsigned size = 0;
  ::SSL_get0_alpn_selected(tls, &protocol, &size);
  return size == 2;  // "h2"
}

bool CurlSockets::hasUnreadBytes(CURL* easy, std::uint64_t number) const {
  const Socket* socket = find(number);
  char byte = 0;
  if (socket == nullptr || !watch_.mayHoldBytes(socket->descriptor) ||
      ::recv(socket->descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0) {
    return false;
  }
  SSL* tls = tlsOf(easy);
  if (tls == nullptr) return true;
  const bool isUnread = ::SSL_peek(tls, &byte, 1) > 0;
  ::ERR_clear_error();
  return isUnread;
}

void CurlSockets::requestBegins(std::uint64_t number, bool isSecure) {
  Socket* socket = find(number);
  if (socket == nullptr) return;
  if (!std::exchange(socket->isCounted, false)) {
    socket->bytesBefore = bytesReceived(socket->descriptor);
  }
  socket->bytesAllowed = socket->bytesBefore + kEndBytes + (isSecure ? kAlertBytes : 0);
}

void CurlSockets::answerEnded(std::uint64_t number, std::uint64_t bytes) noexcept {
  Socket* socket = find(number);
  // How many bytes a proxy sent before the first request is not known.
  if (socket == nullptr || socket->bytesBefore == kNoRequest) return;
  socket->bytesBefore += bytes;
  socket->isCounted = true;
}

bool CurlSockets::endedInAnAnswer(std::uint64_t number) const noexcept {
  return number != 0 && std::ranges::find(endedInAnswers_, number) != endedInAnswers_.end();
}

bool CurlSockets::hasEnded(std::uint64_t number) const noexcept {
  const Socket* socket = find(number);
  if (socket == nullptr) return true;
  char byte = 0;
  const auto count = ::recv(socket->descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
  return count == 0 || (count < 0 && errno != EAGAIN);
}

}  // namespace ombrix::platform::detail
