#pragma once

// What the benchmarks of requests share: a server in a process of its own that does as little as
// possible, and bursts of requests to it.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace bursts {

inline constexpr std::size_t kBodyBytes = 1024;
inline constexpr int kBurst = 2000;

inline std::string answerWith(const std::string& cacheControl) {
  return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nCache-Control: " + cacheControl +
         "\r\nContent-Length: " + std::to_string(kBodyBytes) + "\r\n\r\n" +
         std::string(kBodyBytes, 'x');
}

/// Answers every request with the same bytes; one thread, for ever.
[[noreturn]] inline void serve(int listener) {
  const std::string lasting = answerWith("max-age=600"), fleeting = answerWith("no-store");
  const int poll = ::epoll_create1(0);
  epoll_event event{.events = EPOLLIN, .data = {.fd = listener}};
  ::epoll_ctl(poll, EPOLL_CTL_ADD, listener, &event);
  std::array<epoll_event, 64> events{};
  std::array<char, 4096> buffer{};
  while (true) {
    const int count = ::epoll_wait(poll, events.data(), events.size(), -1);
    for (int i = 0; i < count; ++i) {
      const int ready = events[static_cast<std::size_t>(i)].data.fd;
      if (ready == listener) {
        const int client = ::accept(listener, nullptr, nullptr);
        const int on = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        event.data.fd = client;
        ::epoll_ctl(poll, EPOLL_CTL_ADD, client, &event);
        continue;
      }
      // The clients send a request in one piece and wait for its answer.
      const auto size = ::recv(ready, buffer.data(), buffer.size(), 0);
      const bool isFleeting = size > 5 && buffer[5] == 'n';
      const std::string& answer = isFleeting ? fleeting : lasting;
      if (size <= 0 || ::send(ready, answer.data(), answer.size(), MSG_NOSIGNAL) <= 0) {
        ::close(ready);
      }
    }
  }
}

/// Starts the server before this process has any thread; gives its URL.
inline std::string startServer() {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::listen(listener, 64) != 0 ||
      ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    std::abort();
  }
  if (::fork() == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    serve(listener);
  }
  ::close(listener);
  return "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
}

/// Where it is. Answers to paths that begin with "n" are not to be stored, others for ten minutes.
inline const std::string kServer = startServer();

/// Where requests go, which ask for "n" there. A host under ".test" is this machine, whose
/// certificate is taken as it is.
struct Target {
  std::string url = kServer;
  bool isSecure = false;
};

/// What this process has used so far.
inline double processorMicroseconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto microseconds = [](const timeval& time) {
    return 1e6 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec);
  };
  return microseconds(usage.ru_utime) + microseconds(usage.ru_stime);
}

/// Counts a burst's answers.
class Burst {
 public:
  explicit Burst(int count = kBurst) : left_(count) {}

  void answered(bool isWhole) {
    if (!isWhole) failures_.fetch_add(1, std::memory_order_relaxed);
    if (left_.fetch_sub(1, std::memory_order_acq_rel) == 1) done_.release();
  }
  /// False when an answer was not whole.
  bool wait() {
    done_.acquire();
    return failures_ == 0;
  }

 private:
  std::atomic<int> left_;
  std::atomic<int> failures_ = 0;
  std::binary_semaphore done_{0};
};

/// Times rounds of `kBurst` requests, and what each request costs this process.
template <class Round>
void rounds(benchmark::State& state, Round runBurst) {
  if (!runBurst()) state.SkipWithError("an answer is not whole");
  const double before = processorMicroseconds();
  for (auto _ : state) {
    if (!runBurst()) state.SkipWithError("an answer is not whole");
  }
  const auto count = static_cast<double>(state.iterations()) * kBurst;
  state.SetItemsProcessed(static_cast<std::int64_t>(count));
  state.counters["cpu_us_each"] = (processorMicroseconds() - before) / count;
}

/// Submits bursts to a client and waits for each.
template <class Client>
void requests(benchmark::State& state) {
  Client client{Target()};
  rounds(state, [&] {
    Burst burst;
    for (int i = 0; i < kBurst; ++i) client.submit(burst);
    return burst.wait();
  });
}

/// Has callers, as many as the argument says, each wait for an answer before they ask again.
template <class Client>
void callers(benchmark::State& state, const Target& target) {
  Client client(target);
  rounds(state, [&] {
    std::atomic<int> left = kBurst;
    std::atomic<bool> areWhole = true;
    std::vector<std::jthread> threads;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
      threads.emplace_back([&] {
        while (left.fetch_sub(1) > 0) {
          Burst one(1);
          client.submit(one);
          if (!one.wait()) areWhole = false;
        }
      });
    }
    threads.clear();
    return areWhole.load();
  });
}

}  // namespace bursts
