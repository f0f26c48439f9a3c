// Requests over loopback, submitted from another thread than the one that transfers, and the
// processor time that each costs this process, beside libcurl's multi interface with nothing around
// it.

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Benchmarks/RequestBursts.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"
#include "OmbrixPlatform/Network/URLSession.hpp"

namespace {

using namespace ombrix::platform;
using bursts::Burst;
using bursts::kBodyBytes;
using bursts::kServer;
using bursts::requests;

constexpr std::size_t kWidth = 6;

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
