// Requests over loopback, submitted from another thread than the one that transfers, and the
// processor time that each costs this process, beside libcurl's multi interface with nothing around
// it. The server is a process of its own that does as little as possible.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <curl/curl.h>
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
#include <mutex>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace {

using namespace ombrix::platform;

constexpr std::size_t kBodyBytes = 1024;
constexpr std::size_t kWidth = 6;
constexpr int kBurst = 2000;

/// Answers every request with the same bytes; one thread, for ever.
[[noreturn]] void serve(int listener) {
  const std::string answer =
      "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n"
      "Cache-Control: max-age=600\r\nContent-Length: " +
      std::to_string(kBodyBytes) + "\r\n\r\n" + std::string(kBodyBytes, 'x');
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
      if (size <= 0 || ::send(ready, answer.data(), answer.size(), MSG_NOSIGNAL) <= 0) {
        ::close(ready);
      }
    }
  }
}

/// Starts the server before this process has any thread; gives its URL.
std::string startServer() {
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

const std::string kServer = startServer();

double processorMicroseconds() {
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
  std::atomic<int> left_ = kBurst;
  std::atomic<int> failures_ = 0;
  std::binary_semaphore done_{0};
};

/// Submits bursts to a client and waits for each.
template <class Client>
void requests(benchmark::State& state) {
  Client client;
  const auto runBurst = [&] {
    Burst burst;
    for (int i = 0; i < kBurst; ++i) client.submit(burst);
    return burst.wait();
  };
  if (!runBurst()) state.SkipWithError("an answer is not whole");
  const double before = processorMicroseconds();
  for (auto _ : state) {
    if (!runBurst()) state.SkipWithError("an answer is not whole");
  }
  const auto count = static_cast<double>(state.iterations()) * kBurst;
  state.SetItemsProcessed(static_cast<std::int64_t>(count));
  state.counters["cpu_us_each"] = (processorMicroseconds() - before) / count;
}

class Ours {
 public:
  void submit(Burst& burst) {
    session_
        ->dataTask(request_,
                   [&burst](auto data, const auto& response, const auto& /*error*/) {
                     burst.answered(response && data && data->size() == kBodyBytes);
                   })
        ->resume();
  }

 private:
  const std::shared_ptr<URLSession> session_ =
      URLSession::make(URLSessionConfiguration::ephemeral());
  const URLRequest request_{URL::parse(kServer).value()};
};

/// A thread around a multi handle and a queue in front of it.
class CurlMulti {
 public:
  CurlMulti() : multi_(::curl_multi_init()) {
    ::curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, static_cast<long>(kWidth));
    thread_ = std::thread([this] { run(); });
  }
  ~CurlMulti() {
    isStopping_ = true;
    ::curl_multi_wakeup(multi_);
    thread_.join();
    ::curl_multi_cleanup(multi_);
  }
  CurlMulti(const CurlMulti&) = delete;
  CurlMulti& operator=(const CurlMulti&) = delete;

  void submit(Burst& burst) {
    bool mustWake = false;
    {
      const std::lock_guard lock(mutex_);
      mustWake = submitted_.empty();
      submitted_.push_back(&burst);
    }
    if (mustWake) ::curl_multi_wakeup(multi_);
  }

 private:
  struct Transfer {
    Burst* burst;
    std::string body;
  };

  static std::size_t take(const char* bytes, std::size_t size, std::size_t count, void* body) {
    static_cast<Transfer*>(body)->body.append(bytes, size * count);
    return size * count;
  }

  void run() {
    std::vector<Burst*> waiting;
    std::size_t next = 0;
    while (!isStopping_) {
      {
        const std::lock_guard lock(mutex_);
        waiting.insert(waiting.end(), submitted_.begin(), submitted_.end());
        submitted_.clear();
      }
      while (active_ < kWidth && next < waiting.size()) start(*waiting[next++]);
      if (next == waiting.size()) {
        waiting.clear();
        next = 0;
      }
      int running = 0;
      ::curl_multi_perform(multi_, &running);
      if (!finish()) ::curl_multi_poll(multi_, nullptr, 0, 1000, nullptr);
    }
  }

  void start(Burst& burst) {
    CURL* easy = ::curl_easy_init();
    auto* transfer = new Transfer{&burst, {}};
    ::curl_easy_setopt(easy, CURLOPT_URL, kServer.c_str());
    ::curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    ::curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &take);
    ::curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer);
    ::curl_easy_setopt(easy, CURLOPT_PRIVATE, transfer);
    ::curl_multi_add_handle(multi_, easy);
    ++active_;
  }

  bool finish() {
    bool hasFinished = false;
    int left = 0;
    while (const CURLMsg* message = ::curl_multi_info_read(multi_, &left)) {
      CURL* easy = message->easy_handle;
      char* transfer = nullptr;
      ::curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
      const std::unique_ptr<Transfer> owned(reinterpret_cast<Transfer*>(transfer));
      const bool isWhole = message->data.result == CURLE_OK && owned->body.size() == kBodyBytes;
      ::curl_multi_remove_handle(multi_, easy);
      ::curl_easy_cleanup(easy);
      --active_;
      hasFinished = true;
      owned->burst->answered(isWhole);
    }
    return hasFinished;
  }

  CURLM* const multi_;
  std::mutex mutex_;
  std::vector<Burst*> submitted_;
  std::size_t active_ = 0;
  std::atomic<bool> isStopping_ = false;
  std::thread thread_;
};

/// From `resume` to the handler, when the memory tier has the answer.
void memoryCacheHit(benchmark::State& state) {
  auto configuration = URLSessionConfiguration::ephemeral();
  configuration.urlCache = URLCache::make(1 << 20, 0, std::nullopt);
  const auto session = URLSession::make(configuration);
  const URLRequest request(URL::parse(kServer).value());
  std::shared_ptr<URLSessionTask> task;
  const auto fetch = [&] {
    std::atomic<bool> isThere = false;
    task = session->dataTask(request, [&](auto, const auto&, const auto&) {
      isThere.store(true, std::memory_order_release);
      isThere.notify_one();
    });
    task->resume();
    isThere.wait(false, std::memory_order_acquire);
  };
  fetch();
  for (auto _ : state) fetch();
  if (task->metrics().fetchType != URLSessionTaskMetrics::FetchType::localCache) {
    state.SkipWithError("the answer does not come from the cache");
  }
}

BENCHMARK(requests<Ours>)->Name("request/ours")->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(requests<CurlMulti>)
    ->Name("request/curl-multi")
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(memoryCacheHit)->Name("request from memory/ours")->UseRealTime();

}  // namespace
