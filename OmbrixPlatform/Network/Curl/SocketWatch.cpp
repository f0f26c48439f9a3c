#include "OmbrixPlatform/Network/Curl/Detail/SocketWatch.hpp"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <new>
#include <system_error>
#include <utility>

#include "OmbrixPlatform/Network/Curl/Detail/NetworkThreads.hpp"

namespace ombrix::platform::detail {
namespace {

epoll_event eventFor(int descriptor, std::uint32_t events) noexcept {
  return {.events = events, .data = {.fd = descriptor}};
}

}  // namespace

void SocketWatch::open() {
  if (call_) return;
  Descriptor all(::epoll_create1(EPOLL_CLOEXEC));
  Descriptor call(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  auto event = eventFor(call.get(), EPOLLIN);
  if (!all || !call || ::epoll_ctl(all.get(), EPOLL_CTL_ADD, call.get(), &event) != 0) {
    throw std::system_error(errno, std::generic_category(), "sockets cannot be watched");
  }
  ready_.reserve(kReadyAtOnce);
  all_ = std::move(all);
  call_ = std::move(call);
}

void SocketWatch::install(CURLM* multi) {
  ::curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &socketIsWanted);
  ::curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, this);
}

void SocketWatch::wake() const noexcept {
  const std::uint64_t one = 1;
  (void)retrying([&] { return ::write(call_.get(), &one, sizeof one); });
}

std::span<const SocketWatch::Ready> SocketWatch::wait(std::chrono::milliseconds limit) {
  ready_.clear();
  std::array<epoll_event, kReadyAtOnce> events;
  const int count = ::epoll_wait(all_.get(), events.data(), static_cast<int>(events.size()),
                                 static_cast<int>(limit.count()));
  if (count < 0) return {};  // a signal
  for (const epoll_event& event : std::span(events).first(static_cast<std::size_t>(count))) {
    const int socket = event.data.fd;
    if (socket == call_.get()) {
      std::uint64_t calls = 0;
      (void)retrying([&] { return ::read(call_.get(), &calls, sizeof calls); });
      continue;
    }
    Watched& state = stateOf(socket);
    if (state.wanted == 0) {
      watch(socket, state, 0);  // otherwise each wait would report it
      continue;
    }
    // The next use of the socket shows an error.
    const bool hasFailed = (event.events & (EPOLLERR | EPOLLHUP)) != 0;
    const std::uint32_t shown = hasFailed ? state.wanted : event.events & state.wanted;
    const int what = ((shown & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) |
                     ((shown & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0);
    if (what != 0) ready_.push_back({socket, what});
  }
  if (static_cast<std::size_t>(count) < events.size()) ++looks_;
  return ready_;
}

void SocketWatch::keep(curl_socket_t socket) { stateOf(socket) = {.isKept = true}; }

void SocketWatch::forget(curl_socket_t socket) noexcept {
  const auto index = static_cast<std::size_t>(socket);
  if (index >= states_.size()) return;
  // A forked child may hold it open, and then closing it here does not remove it from the set.
  watch(socket, states_[index], 0);
  states_[index] = {};
}

bool SocketWatch::mayHoldBytes(curl_socket_t socket) const noexcept {
  const auto index = static_cast<std::size_t>(socket);
  if (index >= states_.size()) return true;
  const Watched& state = states_[index];
  return state.wanted != 0 || state.watched != EPOLLIN || state.idleSince == looks_;
}

int SocketWatch::socketIsWanted(CURL* /*easy*/, curl_socket_t socket, int what, void* self,
                                void* /*ofSocket*/) noexcept {
  try {
    static_cast<SocketWatch*>(self)->want(socket, what);
  } catch (const std::bad_alloc&) {
    // Its transfer ends by its deadlines. Any other return value would end them all.
  }
  return 0;
}

void SocketWatch::want(curl_socket_t socket, int what) {
  Watched& state = stateOf(socket);
  state.wanted = (what == CURL_POLL_IN || what == CURL_POLL_INOUT ? EPOLLIN : 0U) |
                 (what == CURL_POLL_OUT || what == CURL_POLL_INOUT ? EPOLLOUT : 0U);
  if (state.wanted != 0) return watch(socket, state, state.wanted);
  state.idleSince = looks_;
  if (!state.isKept || state.watched != EPOLLIN) watch(socket, state, 0);
}

/// Makes the system watch a socket for these events; 0 for none.
void SocketWatch::watch(curl_socket_t socket, Watched& state, std::uint32_t events) noexcept {
  const std::uint32_t before = std::exchange(state.watched, events);
  if (before == events || isForkedChild()) return;  // the child of a fork shares the set
  auto event = eventFor(socket, events);
  const int change = events == 0 ? EPOLL_CTL_DEL : before == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
  if (::epoll_ctl(all_.get(), change, socket, &event) != 0) state.watched = 0;
}

SocketWatch::Watched& SocketWatch::stateOf(curl_socket_t socket) {
  const auto index = static_cast<std::size_t>(socket);
  if (index >= states_.size()) states_.resize(index + 1);
  return states_[index];
}

}  // namespace ombrix::platform::detail
